// The order of duty among the threads that may deliver. Guarded by the process lock.
#include "localnode/runtime/deliverers.h"

#include "localnode/runtime/fork.h"
#include "localnode/runtime/never_destroyed.h"
#include "localnode/runtime/paths.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>

namespace tessaly::runtime {

constinit u64 watched_ms = NEVER;

namespace {

constinit waiter* newest = nullptr;  // of the callers asleep; its stack is the one most likely still in the cache

// Threads that were called, or stepped aside between two deliveries: they look at the queue as soon as they have the lock.
constinit u32 attending = 0;

// One waiting thread wakes up in time for the node's deadline.
constinit waiter* watcher = nullptr;

enum class thread_state : u8 { none, waiting, busy };
constinit thread_state runtime_thread = thread_state::none;
constinit never_destroyed<waiter> runtime_waiter;
constinit std::atomic<bool> process_ends{false};

void list(waiter& sleeping) noexcept
{
    sleeping.asleep = true;
    sleeping.newer = nullptr;
    sleeping.older = newest;
    if (newest != nullptr)
        newest->newer = &sleeping;
    newest = &sleeping;
}

void unlist(waiter& sleeping) noexcept
{
    if (!sleeping.asleep)
        return;
    sleeping.asleep = false;
    (sleeping.newer != nullptr ? sleeping.newer->older : newest) = sleeping.older;
    if (sleeping.older != nullptr)
        sleeping.older->newer = sleeping.newer;
}

void call(waiter& waiting) noexcept
{
    if (waiting.woken)
        return;
    waiting.called = true;
    ++attending;
    process_lock.wake(waiting);
}

void wait(waiter& me, u64 limit_ms) noexcept
{
    if (node_deadline_ms < watched_ms) {
        watched_ms = node_deadline_ms;
        watcher = &me;
    }
    process_lock.wait(me, watcher == &me ? std::min(limit_ms, watched_ms) : limit_ms);
    if (watcher == &me) {
        watcher = nullptr;
        watched_ms = NEVER;
    }
    if (me.called) {
        me.called = false;
        --attending;
    }
}

// Who slept last after sending on the path of the oldest event probably waits for it, and need not pass it on.
waiter& best_sleeper() noexcept
{
    const path* from = events_wait() ? find_path(first_event->path) : nullptr;
    return from != nullptr && from->caller != nullptr && from->caller->asleep ? *from->caller : *newest;
}

void* run_runtime_thread(void*) noexcept
{
    process_lock.take();
    const u32 forks = forks_seen;
    --attending;  // it was started because it was called
    while (!process_ends.load() && forks == forks_seen) {
        const bool callers_deliver = newest != nullptr || attending != 0;
        if (!callers_deliver) {
            deliver_waiting(NEVER_STOP);
            if (events_wait()) {
                let_others_in();
                continue;
            }
        }
        call_deliverer();
        runtime_thread = thread_state::waiting;
        wait(*runtime_waiter, NEVER);
        runtime_thread = thread_state::busy;
    }
    process_lock.drop();
    return nullptr;
}

void stop_delivering() noexcept
{
    process_ends.exchange(true);
}

// Its signals belong to the application's threads, and it never keeps the process from ending: nobody waits for it, and what it
// uses is never destroyed.
bool start_runtime_thread() noexcept
{
    static const bool stops_at_exit = std::atexit(stop_delivering) == 0;
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t started;
    const bool made = stops_at_exit && pthread_create(&started, nullptr, run_runtime_thread, nullptr) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (made)
        pthread_detach(started);
    return made;
}

// A busy runtime thread looks at the queue before it waits again.
void call_runtime_thread() noexcept
{
    if (runtime_thread == thread_state::waiting) {
        call(*runtime_waiter);
    } else if (runtime_thread == thread_state::none) {
        runtime_waiter->start_afresh();
        if (start_runtime_thread()) {
            runtime_thread = thread_state::busy;
            ++attending;
        }
        // Without a thread, events wait for the next synchronous verb.
    }
}

}  // namespace

void call_some_deliverer() noexcept
{
    if (attending != 0)
        return;
    if (newest != nullptr) {
        waiter& called = best_sleeper();
        unlist(called);
        call(called);
    } else {
        call_runtime_thread();
    }
}

void let_others_in() noexcept
{
    ++attending;
    process_lock.step_aside();
    --attending;
}

void sleep_as_caller(waiter& me, u64 limit_ms) noexcept
{
    list(me);
    wait(me, limit_ms);
    unlist(me);
}

void wake(waiter& sleeping) noexcept
{
    if (!sleeping.asleep)
        return;
    unlist(sleeping);
    process_lock.wake(sleeping);
}

void forget_deliverers() noexcept
{
    newest = nullptr;
    attending = 0;
    watcher = nullptr;
    watched_ms = NEVER;
    runtime_thread = thread_state::none;
}

}  // namespace tessaly::runtime
