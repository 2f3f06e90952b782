// The trace file's mutex, for whoever handles forks.
#pragma once

namespace tessaly::runtime {

void trace_mutex_before_fork() noexcept;
void trace_mutex_after_fork() noexcept;    // in the parent
void trace_mutex_start_afresh() noexcept;  // in the child

}  // namespace tessaly::runtime
