// The queue of what the node sends, and its delivery to the receive routines. Whoever has the process lock may deliver.
#pragma once

#include "localnode/runtime/memory.h"

namespace tessaly::runtime {

extern block* first_event;  // the oldest; null when nothing waits

inline bool events_wait() noexcept { return first_event != nullptr; }

// Queues an event with room for what is delivered with it. Null when there is no memory.
u8* queue_event(u16 event, u32 path, u32 bytes) noexcept;
void queue_block(block* event) noexcept;

// Tells the node the time when it is due, then delivers what waits, until told to stop. Leaves alone what the callbacks in
// there bring about: that might never end.
void deliver_waiting(const bool& stop) noexcept;
inline constexpr bool NEVER_STOP = false;

// Drops what waits for a path. (What waits for a path user that is gone is dropped when its turn comes.)
void drop_events_of(u32 path) noexcept;
void drop_all_events() noexcept;

}  // namespace tessaly::runtime
