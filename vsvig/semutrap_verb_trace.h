// The verb API trace: one record when a verb is handed in, one when its results go back, one for an implied forget. The library
// tests api_trace_on() before each call, so that verbs pay nothing else while the trace is off.
#pragma once

#include "common/types.h"

#include <tessaly/diagnostics.h>

namespace tessaly {

inline constexpr u16 TRACE_REQUEST = 1;
inline constexpr u16 TRACE_RESPONSE = 2;

}  // namespace tessaly
