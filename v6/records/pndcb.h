// The pending verb record: one per verb in flight, from its acceptance until its completion has been delivered. Made
// and released in pend_cache only.
#pragma once

#include "common/list.h"
#include "common/types.h"
#include "verbs/catalogue.h"

#include <tessaly/appc.h>

namespace tessaly {

inline constexpr u16 NOT_CACHED = 0xFFFF;

// What a cancelling sweep will do with a record when it comes to it.
enum sweep_mark_type : u16 { NOT_MARKED, MARKED_CANCELLED, MARKED_AS_IT_IS };

struct pndcb {
    list_link link;                       // in its TP's verb_q or forget_q
    const verb_row* verb;                 // as issued; once a receive-allocate is sent, as it travels
    u8 format;                            // as issued: what the application's block says later decides nothing
    u32 handle;                           // names the record to the node; new on every allocation
    u32 tp_handle;                        // the TP that the verb was issued on
    u16 cache_index;                      // slot in vav_pend_cache, or NOT_CACHED
    u16 imp_forget;                       // 1: waits on forget_q for the implied forget of a DEALLOCATE
    u16 forgotten;                        // 1: its implied forget has already been delivered
    u16 data_room;                        // as issued, of the data that a traced response may show, bytes
    u16 cancelled;                        // 1: the application cancelled the receive-allocate that it records
    sweep_mark_type sweep_mark;
    appc_completion callback;             // null: an internal verb
    appc_implied_forget forget_callback;  // while imp_forget is set
    u32 corr;                             // for the callback: a synchronous verb's wait object, or the forget value
    u32 forget_conv_id;
    void* vcb;                            // the application's block, or an internal verb's; null: nobody waits any more
    u32 attach_addr;
    u32 attach_corr;
    u32 wait_obj;                         // non-zero while a synchronous caller owns the record
};

// The completion of synchronous verbs: wakes the caller, who sleeps on the wait object in corr.
void vav_sync_callback(void* vcb, appc_u8* tp_id, appc_u32 conv_id, appc_u32 corr);

}  // namespace tessaly
