// The process lock as the runtime's own files use it. vpm_lock and vpm_unlock are thin wrappers around it.
#pragma once

#include "common/types.h"

#include <pthread.h>

#include <ctime>

namespace tessaly::runtime {

// A mutex that nests by thread. A thread that waits on a condition gives up all its levels and has them again afterwards.
class nesting_lock {
public:
    // How many levels the calling thread holds. Kept by thread, so that nobody reads what another thread writes.
    u32 depth() const noexcept { return depth_; }
    bool held() const noexcept { return depth_ != 0; }

    void take() noexcept;
    void drop() noexcept;

    // Waits on the condition, at most until that time (CLOCK_MONOTONIC; null: no limit).
    void wait(pthread_cond_t& condition, const timespec* until) noexcept;

    // Lets a thread that waits for the lock have it in between.
    void step_aside() noexcept;

    // A thread that was woken from wait() needs the lock soon, respectively has it.
    void expect_contender() noexcept;
    void contender_arrived() noexcept;

    // Around a fork, by a thread that holds the lock.
    void before_fork() noexcept { pthread_mutex_lock(&gate_); }
    void after_fork_in_parent() noexcept { pthread_mutex_unlock(&gate_); }
    void after_fork_in_child() noexcept;

private:
    [[gnu::tls_model("initial-exec")]] static thread_local u32 depth_;

    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_mutex_t gate_ = PTHREAD_MUTEX_INITIALIZER;  // guards the two below, only for a moment
    u32 contenders_ = 0;                                // threads that want the lock
    u32 admitted_ = 0;                                  // counts those that got it
};

extern nesting_lock process_lock;

}  // namespace tessaly::runtime
