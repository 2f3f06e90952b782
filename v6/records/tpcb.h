// The TP control block: one per TP, from its starting verb until its end. Made and released here only.
#pragma once

#include "common/inlining.h"
#include "common/list.h"
#include "common/types.h"
#include "v6/records/pndcb.h"
#include "verbs/block.h"

namespace tessaly {

enum tp_state : u16 {
    TP_ACTIVE = 1,
    TP_FAILED = 3,  // its path failed; TP_ENDED releases it
    TP_ENDING = 4,  // TP_ENDED is under way
    TP_GONE = 5,    // over; the last synchronous caller that sleeps on it frees it
};

struct tpcb {
    u8 node_tp_id[TP_ID_BYTES];  // the node's identifier, from its answer to the starting verb
    u8 tp_id[TP_ID_BYTES];       // the application's: four zeros and the handle
    list_head<pndcb> verb_q;     // verbs in flight, in the order of their issue
    list_head<pndcb> forget_q;   // DEALLOCATE records that wait for their implied forget
    u32 handle;                  // in main_cb's tp_table
    u32 serial;                  // no two TPs of the process have the same
    u32 node_corr;               // the node's correlator; 0 until its answer
    u32 query_cursor[2];         // so that a repeated start tries the next node
    u32 path;                    // 0: none
    u16 node_known;              // 1: node_tp_id and node_corr are the node's, for the path that the TP has now
    u16 sync_waiters;            // synchronous verbs outstanding
    u16 state;
    u16 expect_data_callback;  // a receive verb waits for its data
    u16 saved_opcode;          // the application's own, while its receive-allocate is sent; else 0
    u16 sweeps;                // failure sweeps under way, which keep the block
    pndcb* pnd_cncl;           // the CANCEL_CONV that waits for the end of an announced receive-allocate
    pndcb* set_tp_waiter;      // the answered TP_STARTED that completes when SET_TP_PROPERTIES answers
    pndcb* set_tp_pndcb;       // reserved for SET_TP_PROPERTIES, with its block
    u8 lu_alias[LU_ALIAS_BYTES];      // ASCII
    u8 fq_lu_name[FQ_LU_NAME_BYTES];  // EBCDIC
};

// Makes a TP and enters it in the table. Result: 1, or 0 when memory or an entry could not be had (already logged).
u16 vav_alloc_tpcb(tpcb** out) noexcept;

// Releases a TP with its path, its kept DEALLOCATE records and its reserved record. What is on verb_q is the caller's
// to complete first. Null does nothing.
TESSALY_OFF_THE_ROAD void vav_free_tpcb(tpcb* tp) noexcept;

// Records a verb as pending on the TP, behind those that it has. corr: handed to the record's callback.
void queue_verb(tpcb& tp, pndcb& pend, const verb_row& verb, void* vcb, u32 corr) noexcept;

// The node has started the TP and names it so; on another node it would be named otherwise.
void take_node_names(tpcb& tp, const u8* node_tp_id, u32 node_corr) noexcept;
void forget_node_names(tpcb& tp) noexcept;

// Whether the verb that starts the TP has completed. Until then nobody has been told the TP's identifier.
inline bool is_started(const tpcb& tp) noexcept
{
    return tp.node_known != 0 && tp.set_tp_waiter == nullptr;
}

// Closes the TP's path, if it has one, and clears it.
void drop_path(tpcb& tp) noexcept;

// A TP to come back to after a callback, which may have ended it, and even have started another under the same handle.
struct tp_ref {
    u32 handle;
    u32 serial;

    explicit tp_ref(const tpcb& tp) noexcept : handle(tp.handle), serial(tp.serial) {}
    tpcb* find() const noexcept;  // null when it is gone
};

// Ends a TP, if it is still there: frees it, or leaves that to the last synchronous caller or failure sweep busy with it.
void end_tp(const tp_ref& ended) noexcept;

// Takes the library's own SET_TP_PROPERTIES out of the queue and back into reserve; nobody waits for its answer then.
void recover_set_tp(tpcb& tp) noexcept;

inline bool is_first(const tpcb& tp, u16 opcode) noexcept
{
    const pndcb* pend = tp.verb_q.first();
    return pend != nullptr && pend->vcb != nullptr && pend->verb->opcode == opcode;
}

// The library's own SET_TP_PROPERTIES has no callback; an application's has one.
inline bool is_internal(const pndcb& pend) noexcept
{
    return pend.callback == nullptr;
}

// Puts the application's own opcode back into the block of a receive-allocate that was sent.
void restore_opcode(tpcb& tp, const pndcb& pend) noexcept;

}  // namespace tessaly
