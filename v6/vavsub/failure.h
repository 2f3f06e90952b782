// Sweeps: when a TP's path breaks, or the node cancels, every verb concerned completes, once.
#pragma once

#include "common/types.h"
#include "v6/records/tpcb.h"

namespace tessaly {

void vav_path_failure(u32 path) noexcept;

// The node reports the abend of one TP. Result: 0.
u16 vav_abend(u32 path, tpcb& tp) noexcept;

// Fails every verb of a TP whose path is gone. The TP ends, starts again on another node, or stays failed.
void vav_process_failure(tpcb& tp) noexcept;

// Cancels the queued verbs of one conversation, or with 0 all verbs of the TP, up to the last one queued now. `except`
// caused the sweep and completes in its place with its own codes.
void vav_cancel_verbs_in_list(u32 conversation, pndcb& except, tpcb& tp) noexcept;

}  // namespace tessaly
