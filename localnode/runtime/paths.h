// Path users and paths, and how a path breaks. Guarded by the process lock.
#pragma once

#include "localnode/runtime/memory.h"
#include "localnode/runtime/wait.h"
#include "runtime/node_runtime.h"
#include "wire/tp_server_datagrams.h"

#include <vector>

namespace tessaly::runtime {

inline constexpr u32 VERB_LIBRARY = 0;  // the kinds of path users
inline constexpr u32 TP_SERVER = TPS_PATH_USER_KIND;

struct path_user {
    u32 kind;
    node_receive_routine receive;
};

struct path {
    const path_user* user = nullptr;
    block* failure = nullptr;    // kept in reserve, so that a path can fail without memory; null once it has
    std::vector<u8> assembly{};  // of a message that comes in several calls: what came so far
    u32 assembly_bytes = 0;      // and how long it will be; 0 when none is under way
    u32 assembly_block = 0;      // how much of it is the contiguous part
    waiter* caller = nullptr;    // who slept last after sending on it; may do something else by now

    bool failed() const noexcept { return failure == nullptr; }
};

// Null for a handle that is unknown or no longer used.
path_user* find_path_user(u32 handle) noexcept;
path* find_path(u32 handle) noexcept;

// The path user of that kind that was there first; null when there is none.
path_user* first_path_user(u32 kind) noexcept;

// The path of the last message that was sent; whoever sleeps next, under the same hold of the lock, sent it.
extern u32 last_sent_on;

// Queues the path's failure, once; its node has dropped it already.
void fail_path(u32 handle) noexcept;
void fail_all_paths() noexcept;

// Fails a path from this side.
void break_path(u32 handle) noexcept;

// Removes a path whose failure is being delivered.
void forget_path(u32 handle) noexcept;

// Queues the termination of the node's services for each path user.
void announce_termination() noexcept;

// In a fork's child: forgets the paths, tells each path user that the process forked, and forgets it.
void report_fork_to_path_users() noexcept;

}  // namespace tessaly::runtime
