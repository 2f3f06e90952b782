// Incoming conversations: the receive-allocate verbs, announced to the node or sent on an attach path, and their
// cancelling.
#pragma once

#include "common/types.h"
#include "v6/records/tpcb.h"
#include "v6/vav/dispatch.h"
#include "wire/datagrams.h"

namespace tessaly {

// Sets a queued receive-allocate on its way. Result: 1 when it was announced or sent, 0 when it could not be: then
// the codes are in its block and the caller completes it.
u16 vav_rcv_allocate(tpcb& tp, pndcb& pend) noexcept;

// Makes the path of an attach and sends the verb on it. Result: 0 sent, 1 when no path could be made (the codes are
// in its block).
u16 vav_send_rcv_allocate(tpcb& tp, pndcb& pend, u32 attach_addr, u32 attach_corr) noexcept;

// CANCEL_CONV of a waiting receive-allocate, the first one that waits. Result: VAV_IN_PROGRESS when the node must answer
// first, else VAV_COMPLETE.
u16 vav_cancel_rcv_alloc(verb_call& call) noexcept;

// Copies an EBCDIC TP name up to its first blank; a name that starts with 0x00 or a blank is empty.
void vav_copy_tp_name(counted_tp_name& dest, const u8* name) noexcept;

// Tells the node whether an attach was taken. The status is not looked at.
void answer_attach(attach_reason reason, u32 attach_corr, u32 attach_addr) noexcept;

}  // namespace tessaly
