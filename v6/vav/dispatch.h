// The dispatcher: checks each verb and decides what happens to it.
#pragma once

#include "common/types.h"
#include "v6/records/tpcb.h"
#include "verbs/catalogue.h"

namespace tessaly {

constexpr bool is_synchronous(api_type api) noexcept
{
    return api == VAV_SYNC_VERB || api == VAV_SYNCBCK_VERB;
}

// One verb on its way through the dispatcher.
struct verb_call {
    void* vcb;
    appc_completion callback;  // vav_sync_callback for a synchronous verb
    u32 corr;
    api_type api;

    // What the dispatcher found and made; tp and pend only while the verb is in progress.
    const verb_row* verb = nullptr;  // null: no verb has this opcode
    tpcb* tp = nullptr;              // the TP that it works on
    pndcb* pend = nullptr;           // its record, which a synchronous caller releases
    u32 wait_object = 0;             // what a synchronous caller sleeps on
};

// Records a verb as pending on a TP. A synchronous verb's record has a wait object, which is then its correlator.
void queue(verb_call& call, tpcb& tp, pndcb& pend) noexcept;

// Issues one verb, with the process lock held. Result: VAV_IN_PROGRESS (it completes later, through the callback) or
// VAV_COMPLETE (the results are in the block).
u16 vav_async_verb(verb_call& call) noexcept;

}  // namespace tessaly
