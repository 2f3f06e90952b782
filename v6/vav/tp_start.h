// TP_STARTED up to the moment it is sent, its repeats on other nodes, and its cancelling.
#pragma once

#include "common/types.h"
#include "v6/records/tpcb.h"

namespace tessaly {

enum start_reason : u16 {
    START_BY_APPLICATION = 5,
    START_AFTER_ANSWER = 6,        // the node answered that it cannot start the TP
    START_AFTER_PATH_FAILURE = 7,
};

// Finds a node, makes the TP's path and sends the TP_STARTED. A repeat goes to the next node. Result: 1 sent, 0 when
// it could not be: then the codes are in the block, logged, and the caller completes the verb.
u16 vav_tp_started(tpcb& tp, pndcb& pend, start_reason reason) noexcept;

// Cancels the first TP_STARTED that waits for its answer, for a CANCEL_CONV without TP identifier and conversation. Result:
// VAV_COMPLETE.
u16 vav_cancel_tp_started() noexcept;

}  // namespace tessaly
