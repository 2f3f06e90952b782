// Making and unmaking the TP server. It is loaded by the first of its verbs, and gone when the node ends or the process forks.
#pragma once

#include "common/types.h"

namespace tessaly {

// Makes the control block. Result: 0, or 12 when memory or a table is short; nothing is left behind then.
u32 tps_load() noexcept;

u32 tps_initialise() noexcept;  // opens it for verbs; 0

// The node has ended. Completes every verb that waits, then releases all, unless a synchronous verb is under way: the last of
// those calls this again when it leaves. Path users stay.
void tps_terminate() noexcept;

void tps_unload() noexcept;

// This process is a fork's child: releases all without completing anything. Path users are the parent's.
void tps_appl_forked() noexcept;

}  // namespace tessaly
