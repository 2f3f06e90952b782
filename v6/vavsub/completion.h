// Every verb ends here: taken off its TP's queue and handed back to whoever waits for it, once.
#pragma once

#include "common/types.h"
#include "v6/records/tpcb.h"

namespace tessaly {

// Completes one verb, whose results are in its block. An application's callback may do anything, end its own TP
// included: callers find TP and records again by handle.
void vav_call_appl(tpcb& tp, pndcb& pend) noexcept;

// Completes a start or a wait that has come to nothing, then the CANCEL_CONV that waits for its end, and ends the TP.
void complete_and_end(tpcb& tp, pndcb& pend) noexcept;

// Delivers the implied forget of a DEALLOCATE. type: APPC_FORGET_...
void vav_call_appl_imp_forget(tpcb& tp, pndcb& pend, u16 type) noexcept;

}  // namespace tessaly
