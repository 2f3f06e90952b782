// The TP server's control block and the three kinds of record that hang off it, each with its only create and release. All under
// the process lock.
#pragma once

#include "common/list.h"
#include "common/types.h"
#include "runtime/node_runtime.h"

#include <tessaly/tp_server.h>

namespace tessaly {

// A path for PIP data. It belongs to the path user that made it, and queries of other servers may use it as well.
struct tps_path {
    list_link link;
    u32 target;  // node address
    u32 path;
    u32 path_user;
};

// One TP server verb in progress. It is in its server's verb_list exactly while it waits for the node, with null links else.
struct verb_info {
    list_link link;
    u32 handle;  // in verb_table; the correlator that the node echoes
    void* verb;  // the application's block
    u32 corr;    // for the callback
    appc_completion callback;
    u32 api_type;

    u16 opcode;          // as it was issued: the block stays the application's
    u32 server_handle;   // 0: none
    u16 query_answered;  // further answers of that kind are ignored
    u16 attach_bytes;    // of the attach header that the answer being read has stored
    u32 pip_path;        // on which the query waits for PIP data; 0: none
    u16 pip_path_lost;
    u16 pip_announced;  // its data come next
};

// One registered TP server. It stays in server_table for its whole life, though its handle is refused once it leaves.
struct tp_server {
    u32 handle;
    list_head<verb_info> verb_list;
    appc_server_callback server_callback;
    u32 path_user;    // 0 once unregistered
    u16 privileged;   // registered by root
    u32 wait_object;  // a synchronous verb sleeps on it
    u16 sync_busy;    // a synchronous verb is under way
    u16 file_status_events;

    u16 leaving;     // unregistered, or could not be registered: freed when the last caller leaves
    u32 callers;     // verbs that the dispatcher is running
    u32 status_due;  // file status events that its callback has not had yet
};

enum tps_state : u32 { TPS_STATE_LOADED = 1, TPS_STATE_ACTIVE = 2, TPS_STATE_TERMINATING = 3 };

struct tps_control_block {
    list_head<tps_path> path_list;
    u32 server_table;
    u32 verb_table;
    u32 state;     // tps_state
    u16 sweeping;  // a termination is completing verbs, up the stack
};

extern tps_control_block* tps_main_cb;  // null: not loaded

// Counts the teardowns. Whoever called back or slept compares it: a new number means that all records are gone.
extern u32 tps_teardowns;

// Null when memory or a handle are short; errno is that of the call that failed. corr: not used for VAV_SYNCBCK_VERB.
verb_info* tps_alloc_verb(void* vcb, appc_completion callback, u32 corr, u32 api_type) noexcept;
void tps_free_verb(verb_info* verb) noexcept;

// The same for a server and its wait object. The release leaves path user and verb_list alone.
tp_server* tps_alloc_server() noexcept;
void tps_free_server(tp_server* server) noexcept;

// The verb with this handle and its server, each null when there is none. Result: 1 when both are there, else 0.
u16 tps_get_verb(u32 correlator, verb_info** verb, tp_server** server) noexcept;

// The server that an application or the node names; null for one that leaves.
tp_server* find_server(u32 handle) noexcept;

struct waiting_verb {
    verb_info* verb;  // null: none
    tp_server* server;
};

// The verb that an answer names, if it waits for one.
waiting_verb find_waiting_verb(u32 correlator) noexcept;

// The next server in handle order; null: none. handle: where the last step stopped, 0 to start.
tp_server* next_server(u32& handle) noexcept;

}  // namespace tessaly
