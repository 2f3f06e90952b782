// Who delivers. A caller that sleeps in vpm_sleep does, for itself and for the others. While none sleeps the runtime thread
// does; it is started the first time that it is needed.
#pragma once

#include "localnode/runtime/events.h"
#include "localnode/runtime/host_socket.h"
#include "localnode/runtime/wait.h"

namespace tessaly::runtime {

extern u64 watched_ms;  // when a waiting thread will tell the node the time; NEVER when none will

inline bool work_may_wait() noexcept
{
    return events_wait() || node_deadline_ms < watched_ms || node_elsewhere != nullptr;
}

// Calls a thread that delivers what waits, or reads what a node elsewhere will send, unless one is on its way.
// Whoever gives the lock away does this first.
void call_some_deliverer() noexcept;

inline void call_deliverer() noexcept
{
    if (work_may_wait()) [[unlikely]]
        call_some_deliverer();
}

// Between two deliveries: lets others have the lock, while the caller goes on being the deliverer.
void let_others_in() noexcept;

// Waits until the thread is woken or called, or until that time.
void sleep_as_caller(waiter& me, u64 limit_ms) noexcept;
void wake(waiter& sleeping) noexcept;

// In a fork's child.
void forget_deliverers() noexcept;

}  // namespace tessaly::runtime
