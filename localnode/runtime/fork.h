// A fork's child is a new client of the node: what its parent had belongs to the parent.
#pragma once

#include "common/types.h"

namespace tessaly::runtime {

extern bool fork_unreported;

void report_unreported_fork() noexcept;

// In a fork's child, once: tells the path users. Called by whoever takes the lock for the library, so before any verb runs, and
// after each delivery, since an application may fork in a callback. The lock is held.
inline void report_fork() noexcept
{
    if (fork_unreported) [[unlikely]]
        report_unreported_fork();
}

// Changes when this process is the child of a fork.
u32 forks_seen() noexcept;

}  // namespace tessaly::runtime
