// The library's one global control block; zero until the first start. All under the process lock.
#pragma once

#include "common/invariant.h"
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
    u32 stops;             // counts the stops, so that who slept or called back can tell that its records are gone
    u32 last_serial;       // of the TP made last
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

// Visits the TPs in table order until a visit says stop (false). A visit may end TPs; when it ends the library, that was
// the last.
template <typename Visit>
void for_each_tp(const char* module, Visit visit) noexcept
{
    const u32 stops = main_cb.stops;
    void* entry = nullptr;
    u32 handle = 0;
    while (main_cb.stops == stops && (handle = vtm_get_next_used(main_cb.tp_table, handle, &entry)) != 0) {
        auto* tp = static_cast<tpcb*>(entry);
        if (invariant(tp != nullptr, module, "tpcb != NULL") && !visit(*tp))
            return;
    }
}

}  // namespace tessaly
