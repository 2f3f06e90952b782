// What a verb's answer does to its TP, once the verb has been found.
#pragma once

#include "common/types.h"
#include "runtime/node_runtime.h"
#include "v6/records/tpcb.h"
#include "verbs/catalogue.h"

namespace tessaly {

// Takes the answer to a verb that waits on the TP. verb: its row, null when nobody waits for its results any more. The
// message is at least as long as the verb's block in node layout. Result: enum node_event_result.
u16 take_answer(tpcb& tp, pndcb& pend, const verb_row* verb, rcv_info& info) noexcept;

}  // namespace tessaly
