// The verb API trace: one record when a verb is handed in, one when its results go back, one for an implied forget. Callers test
// api_trace_on() first.
#pragma once

#include "common/types.h"

namespace tessaly {

inline constexpr u16 TRACE_REQUEST = 1;
inline constexpr u16 TRACE_RESPONSE = 2;

}  // namespace tessaly

extern "C" {

// Writes a request or response record of a block.
void seputrap(tessaly::u16 kind, void* vcb);

// Writes an implied-forget record.
void seputrap2(void* vcb, tessaly::u32 corr, tessaly::u32 conv_id, const tessaly::u8* tp_id, tessaly::u16 type, void* callback);

}
