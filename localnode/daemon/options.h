// The command line.
#pragma once

#include "localnode/daemon/settings.h"

#include <optional>

namespace tessaly::daemon {

struct options {
    std::string config;  // empty: none given
    std::string socket;  // empty: none given
    bool check_config = false;
    bool foreground = false;
};

// None when the program is done: it has printed its help or version, or what is wrong with the command line.
std::optional<options> read_command_line(int count, char** words, int& exit_code);

}  // namespace tessaly::daemon
