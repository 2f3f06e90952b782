// The node's log: one line per event, to stderr or a file.
#pragma once

#include <sstream>
#include <string>
#include <string_view>

namespace tessaly::service {

enum class level { error, warning, info, debug };

// Appends to that file from now on; empty: to stderr. False, with errno, when it cannot be opened; the log then stays as it was.
bool log_to(const std::string& file) noexcept;
void log_up_to(level most) noexcept;

bool is_logged(level of) noexcept;
void write_log(level of, std::string_view text) noexcept;

// A line made of the parts, which are whatever an ostream takes. What does not fit into memory is lost.
template <typename... Parts>
void log(level of, const Parts&... parts) noexcept
{
    if (!is_logged(of))
        return;
    try {
        std::ostringstream text;
        (text << ... << parts);
        write_log(of, text.str());
    } catch (...) {
    }
}

// What errno means, for the end of a line.
std::string error_text(int error);

}  // namespace tessaly::service
