// A thread that waits: for its own wake-up, for a call to deliver events, or for a time.
#pragma once

#include "localnode/runtime/lock.h"

namespace tessaly::runtime {

// Guarded by the process lock.
struct waiter {
    pthread_cond_t condition{};
    waiter* newer = nullptr;  // among the callers that are asleep
    waiter* older = nullptr;
    bool asleep = false;
    bool signalled = false;  // woken, and not yet running
    bool called = false;     // signalled to deliver events

    // For a new record, and for one whose waiting thread a fork has left behind.
    void start_afresh() noexcept;
};

// In a fork's child: none of the other threads sleeps any more.
void forget_sleeping_threads() noexcept;

}  // namespace tessaly::runtime
