// The trace file's mutex, for whoever handles forks.
#pragma once

namespace tessaly::runtime {

void trace_mutex_before_fork() noexcept;
void trace_mutex_after_fork() noexcept;  // on both sides

}  // namespace tessaly::runtime
