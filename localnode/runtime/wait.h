// A thread that waits: for its own wake-up, for a call to deliver events, or for a time.
#pragma once

#include "localnode/runtime/lock.h"

namespace tessaly::runtime {

// Guarded by the process lock.
struct waiter : sleeper {
    waiter* newer = nullptr;  // among the callers that are asleep
    waiter* older = nullptr;
    bool asleep = false;
    bool called = false;  // woken to deliver events

    void start_afresh() noexcept
    {
        sleeper::start_afresh();
        asleep = false;
        called = false;
    }
};

// In a fork's child: none of the other threads sleeps any more.
void forget_sleeping_threads() noexcept;

}  // namespace tessaly::runtime
