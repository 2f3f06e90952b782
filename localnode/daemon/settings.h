// What the node can be told, with what it does when it is told nothing. tessaly-node.toml, which is installed with it, shows
// the same and says what each setting means.
#pragma once

#include "common/types.h"
#include "localnode/daemon/status_protocol.h"
#include "localnode/engine/engine.h"
#include "service/common_settings.h"

#include <sys/types.h>

#include <string>
#include <vector>

namespace tessaly::daemon {

using namespace service;  // the daemon is one

struct settings {
    struct access_settings {
        u32 mode = 0600;
        std::string group;  // empty: the node's own
        std::vector<uid_t> users;
        std::vector<gid_t> groups;

        bool operator==(const access_settings&) const = default;
    };
    struct tp_server_settings {
        std::vector<uid_t> users;
        std::vector<gid_t> groups;

        bool operator==(const tp_server_settings&) const = default;
    };
    struct limit_settings {
        u32 clients = 1000;
        u32 paths_per_client = 20'000;
        u32 queued_mib_per_client = 64;
        u32 unread_kib_per_conversation = 256;
        u32 waiting_attaches = 1000;
        u32 programs = 100;

        bool operator==(const limit_settings&) const = default;
    };
    struct time_settings {
        u32 attach_seconds = 30;
        u32 start_seconds = 60;
        u32 stop_seconds = 2;

        bool operator==(const time_settings&) const = default;
    };

    std::string name = "TESSALY";
    std::string network = "TESSALY";
    std::string socket{node::DEFAULT_SOCKET};
    access_settings access;
    tp_server_settings tp_servers;
    log_settings log;
    limit_settings limits;
    time_settings times;
    std::vector<node::lu_definition> lus;
    std::vector<node::lu_definition> partner_lus;
    std::vector<program_settings> programs;

    bool operator==(const settings&) const = default;
};

node::configuration engine_configuration(const settings& from);

}  // namespace tessaly::daemon
