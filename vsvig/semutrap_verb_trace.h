// The verb API trace: one record when a verb is handed in, one when its results go back, one for an implied forget. The library
// tests api_trace_on() before each call, so that verbs pay nothing else while the trace is off.
#pragma once

#include "common/types.h"
#include "verbs/catalogue.h"

#include <tessaly/diagnostics.h>

namespace tessaly {

inline constexpr u16 TRACE_REQUEST = 1;
inline constexpr u16 TRACE_RESPONSE = 2;

// How much data the block of a verb that is about to be sent holds, or has room for, bytes; 0 where responses show none.
u16 traced_data_room(const void* vcb, const verb_row& verb) noexcept;

// The response to a verb that was sent: its block holds the node's word by now, so that format and room are those at issue.
void trace_response(const void* vcb, u8 format, u16 data_room) noexcept;

}  // namespace tessaly
