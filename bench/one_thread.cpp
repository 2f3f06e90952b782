#include "bench/one_thread.h"

#include "runtime/node_runtime.h"

namespace tessaly::bench {

held_lock::held_lock() noexcept : token_(vpm_lock()) {}

held_lock::~held_lock()
{
    vpm_unlock(token_);
}

void count_completion(void*, u8*, u32, u32 counter)
{
    ++*reinterpret_cast<u32*>(static_cast<std::uintptr_t>(counter));
}

u32 corr_of(u32& counter)
{
    return static_cast<u32>(reinterpret_cast<std::uintptr_t>(&counter));
}

// What one event brings about is delivered by the next call.
void deliver_until(const u32& counter, u32 awaited)
{
    constexpr u32 PATIENCE = 8;
    for (u32 i = 0; i < PATIENCE && counter < awaited; ++i)
        vpm_process_pending_events();
    if (counter < awaited) [[unlikely]] {
        std::fputs("an asynchronous verb does not complete\n", stderr);
        std::exit(1);
    }
}

program accept_conversation_of(program& caller)
{
    const held_lock lock;
    u32 completed = 0;
    auto accept = accepting("PARTNER");
    issue(accept, count_completion, corr_of(completed));
    allocate(caller, "PARTNER");
    deliver_until(completed, 1);
    return accepted(accept);
}

}  // namespace tessaly::bench
