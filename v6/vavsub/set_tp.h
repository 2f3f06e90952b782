// The library's own SET_TP_PROPERTIES, which tells the node whose TP has started before the application learns of it.
#pragma once

#include "common/types.h"
#include "v6/records/tpcb.h"

namespace tessaly {

// Sends it for a TP_STARTED that succeeded. Result: VAV_IN_PROGRESS (TP_STARTED completes when it is answered), or
// VAV_COMPLETE when the process's user has no name and nothing was sent.
u16 vav_issue_set_tp(tpcb& tp, pndcb& started) noexcept;

}  // namespace tessaly
