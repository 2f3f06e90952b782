// The subcommands. Each takes what the command line said, already checked for its form, and returns how it ended.
#pragma once

#include "tools/tessaly/conversation.h"
#include "tools/tessaly/trace_story.h"

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace tessaly::tool {

inline constexpr std::string_view DEFAULT_ECHO = "ECHO";

struct ping_options {
    partner with;
    std::string local_lu;
    std::uint64_t count = 0;  // 0: until stopped
    clock::duration interval = std::chrono::seconds(1);
    std::size_t bytes = 56;  // of a record, at least PING_LEAST
    bool quiet = false;      // the summary alone
    clock::duration limit = std::chrono::seconds(10);
};

inline constexpr std::size_t PING_LEAST = 8;  // the number of a round trip

// Times round trips of one record each way. Prints to `out`: a line for each, then minimum, median, p99, maximum and loss.
// Over the embedded node it runs the other end in a thread of its own.
ending ping(stopper& stop, const ping_options& options, std::FILE* out);

struct echo_options {
    std::string tp{DEFAULT_ECHO};
    std::uint64_t count = 0;  // conversations; 0: until stopped
    clock::duration limit = NO_LIMIT;
};

// Serves conversations one after the other: sends each record back. What becomes of a conversation is said on stderr.
ending echo(stopper& stop, const echo_options& options);

struct send_options {
    std::string file;
    partner with;
    std::string local_lu;
    clock::duration limit = std::chrono::seconds(60);
};

// Sends a file and waits until the receiver has confirmed the whole of it.
ending send_file(stopper& stop, const send_options& options);

struct receive_options {
    std::string tp;
    std::string output;  // empty: the name that the sender tells, in the working directory, which must not exist there
    clock::duration limit = NO_LIMIT;
};

// Receives one file. It has its name only when it is whole; until then it lies beside it under another one.
ending receive_file(stopper& stop, const receive_options& options);

struct status_options {
    std::string socket;  // empty: as TESSALY_NODE says, else the default
    bool json = false;
    clock::duration limit = std::chrono::seconds(5);
};

ending status(const status_options& options, std::FILE* out);

// The tables of a status document, for a terminal. Result: false, with the reason in `text`, for what is no such document.
bool status_tables(std::string_view document, std::string& text);

struct launcher_options {
    std::string config;
    bool check_config = false;  // only read the file and tell what is wrong with it
};

// Serves the node as a TP server until SIGTERM or SIGINT; reads its file again at SIGHUP.
ending launch_programs(const launcher_options& options);

struct trace_options {
    std::vector<std::string> files;
    trace::filter which;
    bool list = false;    // a line for each verb, not the summary
    bool follow = false;  // a line for each verb as it ends, until stopped; one file
    bool json = false;
    std::string svg, html;  // where a chart goes, if it does; nothing else is shown then
    std::size_t limit = 2000;
};

// Shows what happened according to verb trace files. stop: for follow, else null.
ending show_trace(stopper* stop, const trace_options& options, std::FILE* out);

// Prints the lines behind the what-string markers of a file.
ending version_of(const std::string& file, std::FILE* out);

// Prints name, meaning and next step of each code. A code that is none: exit code EXIT_USAGE and the nearest one.
ending explain(const std::vector<std::string>& codes, std::FILE* out);

}  // namespace tessaly::tool
