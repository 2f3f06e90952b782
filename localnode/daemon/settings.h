// What the node can be told, with what it does when it is told nothing. The file that is installed with it shows the same.
#pragma once

#include "common/types.h"
#include "localnode/daemon/log.h"
#include "localnode/daemon/status_protocol.h"

#include <sys/types.h>

#include <string>
#include <vector>

namespace tessaly::daemon {

struct settings {
    std::string name = "TESSALY";
    std::string socket{node::DEFAULT_SOCKET};

    struct {
        u32 mode = 0600;          // of the socket's file
        std::string group;        // of the socket's file; empty: the node's own
        std::vector<uid_t> users;  // who may connect, besides root and the node's user; both empty: whom the file's mode lets in
        std::vector<gid_t> groups;
    } access;

    struct {
        u32 clients = 1000;
        u32 paths_per_client = 20'000;
        u32 queued_mib_per_client = 64;
    } limits;
};

}  // namespace tessaly::daemon
