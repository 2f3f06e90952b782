// A fork's child is a new client of the node: what its parent had belongs to the parent.
#pragma once

#include "common/types.h"

#include <atomic>

namespace tessaly::runtime {

extern u32 forks_seen;  // changes when this process is the child of a fork
extern bool fork_unreported;

// 0 in a fork's child that the C library has not told of the fork, since the kernel clears it there.
extern std::atomic<u32>* fork_mark;

void take_over_after_unseen_fork() noexcept;
void report_unreported_fork() noexcept;

// Before a thread without the lock takes it. Whoever held it when a program forked by the bare system call is not here.
inline void notice_fork() noexcept
{
    if (fork_mark->load(std::memory_order_relaxed) != 1) [[unlikely]]
        take_over_after_unseen_fork();
}

// In a fork's child, once: tells the path users. Called by whoever takes the lock for the library, so before any verb runs, and
// after each delivery, since an application may fork in a callback. The lock is held.
inline void report_fork() noexcept
{
    if (fork_unreported) [[unlikely]]
        report_unreported_fork();
}

}  // namespace tessaly::runtime
