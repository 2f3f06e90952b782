// Start and stop of the library. Nothing happens when it is loaded; the first verb that can create or register a TP
// starts it.
#pragma once

#include "common/inlining.h"
#include "common/types.h"

namespace tessaly {

// Result: 0, or the start code: the runtime's status, or 12 when the TP table cannot be made. vav_terminate cleans up
// after it.
u16 vav_init() noexcept;

// Releases the path user, the TP table and the records of the cache. The TPs have been freed before.
TESSALY_OFF_THE_ROAD void vav_terminate() noexcept;

// Stops the library if the node has terminated and no TP is left.
void stop_after_last_tp() noexcept;

}  // namespace tessaly
