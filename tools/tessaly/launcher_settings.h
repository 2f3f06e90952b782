// What the launcher is told by its file. tessaly-launcher.toml, which is installed with it, says what each setting means.
#pragma once

#include "service/common_settings.h"

#include <tessaly/tp_server.h>

namespace tessaly::tool {

// A TP and the program that is started for its conversations.
struct launched_tp {
    service::program_settings program;
    std::string lu;       // local LU alias; empty: any
    std::string partner;  // NET.LU, or a pattern that ends in *; empty: any
    appc_u8 type = APPC_TP_NONQUEUED;
    u32 most = 10;  // programs of it at a time

    bool operator==(const launched_tp&) const = default;

    // What the node knows it by: two TPs differ in one of these.
    bool is_same_tp(const launched_tp& other) const
    {
        return program.tp_name == other.program.tp_name && lu == other.lu && partner == other.partner;
    }
};

struct launcher_settings {
    std::string socket;  // of the node; empty: as TESSALY_NODE says
    service::log_settings log;
    u32 most_programs = 100;
    u32 retry_seconds = 1;
    std::vector<launched_tp> tps;

    bool operator==(const launcher_settings&) const = default;
};

// Throws service::config_error, with texts for the user, also for a file that others can write.
launcher_settings read_launcher_settings(const std::string& file);

}  // namespace tessaly::tool
