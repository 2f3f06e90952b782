// The process lock as the runtime's own files use it. vpm_lock and vpm_unlock are thin wrappers around it.
#pragma once

#include "common/types.h"
#include "localnode/runtime/clock.h"

#include <pthread.h>
#include <semaphore.h>

#include <atomic>

namespace tessaly::runtime {

// A thread that waits without the lock until another wakes it. Guarded by the lock, but for the semaphore. Never freed: whoever
// wakes it posts the semaphore after leaving the lock.
struct sleeper {
    sem_t wake_up{};
    sleeper* next_woken = nullptr;
    bool woken = false;  // and not yet running

    // For a new record, and for one whose thread a fork has left behind.
    void start_afresh() noexcept;
};

// How a thread waits without the lock. Result: whether it took the wake-up; false when the time came first, or something else.
using way_to_wait = bool (*)(sleeper& me, u64 until_ms) noexcept;
bool wait_for_wake_up(sleeper& me, u64 until_ms) noexcept;

// A mutex that nests by thread. A thread that waits gives up all its levels and has them again afterwards. The threads that it
// woke meanwhile begin to run when it leaves the lock: earlier they would only wait once more.
class nesting_lock {
public:
    // How many levels the calling thread holds. Kept by thread, so that nobody reads what another thread writes.
    u32 depth() const noexcept { return depth_; }
    bool held() const noexcept { return depth_ != 0; }

    u32 take() noexcept;  // gives the new depth
    void drop() noexcept;

    void wake(sleeper& waiting) noexcept;

    // Waits until the sleeper is woken, at most until that time (CLOCK_MONOTONIC; NEVER: no limit). Who waits in another way sees
    // to it that a wake-up ends that too.
    void wait(sleeper& me, u64 until_ms, way_to_wait way = wait_for_wake_up) noexcept;

    // Lets a thread that waits for the lock have it in between.
    void step_aside() noexcept;

    // In a fork's child, where no other thread is: the calling thread holds as many levels as before the fork.
    void start_afresh() noexcept;

private:
    void enter() noexcept;
    void leave() noexcept;

    [[gnu::tls_model("initial-exec")]] static thread_local u32 depth_;

    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    sleeper* first_woken_ = nullptr;  // by the holder of the lock
    u32 woken_ = 0;                   // threads on their way out of wait()
    std::atomic<u32> blocked_{0};     // threads that wait for the mutex
    std::atomic<u32> admitted_{0};    // counts those that waited for it and got it
};

extern nesting_lock process_lock;

}  // namespace tessaly::runtime
