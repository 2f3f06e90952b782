// What the subcommands share towards their user: how they end, and how they speak. Data goes to stdout, talk to stderr.
#pragma once

#include <string>
#include <string_view>

namespace tessaly::tool {

inline constexpr int EXIT_OK = 0;
inline constexpr int EXIT_VERB_FAILED = 1;
inline constexpr int EXIT_USAGE = 2;
inline constexpr int EXIT_NO_NODE = 3;
inline constexpr int EXIT_TIME_OUT = 4;

// How a subcommand ended: its exit code, and what to say about it; empty: nothing.
struct ending {
    int code = EXIT_OK;
    std::string message;
};

// A line on stderr, written at once.
void say(std::string_view line);

// Text from elsewhere without what could move the cursor or forge a line: control characters and all that is not ASCII
// become dots. Longer text is cut, and ends with "...".
std::string printable(std::string_view text, std::size_t most = 200);

// printf into a string.
[[gnu::format(printf, 1, 2)]] std::string text_of(const char* format, ...);

}  // namespace tessaly::tool
