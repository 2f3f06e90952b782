// The dispatcher: checks each verb and decides what happens to it.
#pragma once

#include "common/types.h"
#include "v6/records/tpcb.h"

namespace tessaly {

// Which family of entries a verb came through.
enum api_type : u16 {
    VAV_ASYNCBCK_VERB = 1,  // asynchronous; ALLOCATE and RECEIVE_ALLOCATE of format 0 become format 1
    VAV_SYNCBCK_VERB = 2,   // synchronous, with the same promotion; may overlap other synchronous verbs of its TP
    VAV_ASYNC_VERB = 3,
    VAV_SYNC_VERB = 4,
};

constexpr bool is_synchronous(api_type api) noexcept
{
    return api == VAV_SYNC_VERB || api == VAV_SYNCBCK_VERB;
}

// Issues one verb, with the process lock held.
//   callback           vav_sync_callback for a synchronous verb
//   tp_out             the TP that the verb works on; null when it completed
//   wait_object, pend  given for synchronous verbs, else null: what the caller sleeps on and what it releases
//                      afterwards
// Result: VAV_IN_PROGRESS (it completes later, through the callback) or VAV_COMPLETE (the results are in the block).
u16 vav_async_verb(void* vcb, appc_completion callback, u32 corr, api_type api, tpcb** tp_out, u32* wait_object,
                   pndcb** pend) noexcept;

}  // namespace tessaly
