// The library's one global control block; zero until the first start. All under the process lock.
#pragma once

#include "common/types.h"
#include "runtime/node_runtime.h"
#include "v6/records/tpcb.h"
#include "wire/verb_message.h"

namespace tessaly {

enum library_state : u32 {
    NOT_STARTED = 0,
    RUNNING = 1,
    NODE_TERMINATED = 2,  // verbs are refused until the last TP is gone and the library has stopped
};

struct main_control_block {
    u32 state;
    u16 in_callback;       // 1 while an application's callback runs
    u32 path_user;         // 0: none
    u32 tp_table;          // 0: none
    u32 stops;             // counts the stops, so that who slept can tell that its records are gone
    verb_message message;  // the one buffer in which every message is built
    struct tpcb* tpcb;     // whose receive verb waits for its data; null: none
    pndcb* data_pndcb;     // that verb
};

extern main_control_block main_cb;

// The TP with this handle, or null.
inline tpcb* find_tp(u32 handle) noexcept
{
    return static_cast<tpcb*>(vtm_get_pointer(main_cb.tp_table, handle));
}

// A delivery of data that is under way finds nobody then.
inline void forget_delivery_to(const tpcb& tp) noexcept
{
    if (main_cb.tpcb == &tp) {
        main_cb.tpcb = nullptr;
        main_cb.data_pndcb = nullptr;
    }
}

}  // namespace tessaly
