// Starting a program for a conversation: as a user, with just the environment and descriptors that it is to have, never through a
// shell.
#pragma once

#include "common/types.h"

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace tessaly::service {

struct program_settings {
    std::string tp_name;
    std::vector<std::string> command;  // its path from / on, then its arguments
    std::string user;                  // name or number; empty: this process's own
    std::map<std::string, std::string> environment;

    bool operator==(const program_settings&) const = default;
};

// The value of APPC_ATTACH_ID that makes a program take just that conversation.
std::string attach_id(u32 attach, u32 node);

enum class base_environment {
    inherited,
    clean,  // PATH, HOME, USER, LOGNAME and SHELL alone
};

struct started_program {
    pid_t process = -1;   // -1: it could not be started
    std::string problem;  // why
};

// Starts it in a session of its own, with `standard_input` (-1: an empty one), stdout and stderr as they are here and no more
// descriptors, as its user with all of its groups. `added` goes into its environment beside its own settings, which it wins
// over. Returns when the program has been found and runs. Safe where other threads run: what the child does until then takes no
// lock.
started_program start_program(const program_settings& program, base_environment from,
                              const std::map<std::string, std::string>& added, int standard_input = -1);

}  // namespace tessaly::service
