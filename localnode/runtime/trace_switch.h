// The diagnostics flags, and what switches the API trace in them.
#pragma once

namespace tessaly::runtime {

// Follows the file that TESSALY_API_TRACE_SWITCH names, if it does: the trace is on while that file exists. In a thread of its
// own, which a fork leaves behind: the child calls this again.
void watch_trace_switch() noexcept;

}  // namespace tessaly::runtime
