// Sending a verb to the node: its block copied by the rule of its row, widened, with its data behind it.
#pragma once

#include "common/types.h"
#include "v6/records/tpcb.h"

namespace tessaly {

// Builds the message of a queued verb by its row and sends it on the TP's path. Result: the runtime's last status, which
// callers do not look at: a failed send shows up as a path failure.
u16 vav_send_verb(tpcb& tp, pndcb& pend) noexcept;

}  // namespace tessaly
