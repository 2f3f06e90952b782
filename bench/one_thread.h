// For programs that play both ends of a conversation in one thread. While they hold the runtime's lock, what asynchronous
// verbs bring about is delivered when and where they want it, and no other thread takes part.
#pragma once

#include "bench/verb.h"

namespace tessaly::bench {

class held_lock {
public:
    held_lock() noexcept;
    held_lock(const held_lock&) = delete;
    held_lock& operator=(const held_lock&) = delete;
    ~held_lock();

private:
    u16 token_;
};

// Counts completions: the callback, with the address of the counter as correlator.
void count_completion(void*, u8*, u32, u32 counter);
u32 corr_of(u32& counter);

// Delivers what waits until the counter has come that far. Call with the lock held.
void deliver_until(const u32& counter, u32 awaited);

// Lets a new TP accept a conversation of the given one, over the embedded node. Result: the new TP.
program accept_conversation_of(program& caller);

}  // namespace tessaly::bench
