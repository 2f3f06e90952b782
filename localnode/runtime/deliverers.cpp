// The order of duty among the threads that may deliver. Guarded by the process lock.
#include "localnode/runtime/deliverers.h"

#include "localnode/runtime/fork.h"
#include "localnode/runtime/never_destroyed.h"
#include "localnode/runtime/paths.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <utility>

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

constinit bool answers_unattended = false;  // answers come from a node elsewhere that no caller sleeps for
constinit bool thread_rests = true;         // the runtime thread is there only when it is called
constinit u32 sleeps = 0;                   // of callers
constinit u32 sleeps_seen = 0;              // by the runtime thread

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

void bring_back(waiter& waiting) noexcept
{
    process_lock.wake(waiting);
    if (node_elsewhere != nullptr)
        node_elsewhere->interrupt(waiting);
}

void call(waiter& waiting) noexcept
{
    if (waiting.woken)
        return;
    waiting.called = true;
    ++attending;
    bring_back(waiting);
}

enum class socket_use : u8 { none, read, watch };

void wait(waiter& me, u64 limit_ms, socket_use reading) noexcept
{
    if (node_deadline_ms < watched_ms) {
        watched_ms = node_deadline_ms;
        watcher = &me;
    }
    const u64 until_ms = watcher == &me ? std::min(limit_ms, watched_ms) : limit_ms;
    if (reading == socket_use::read && node_elsewhere != nullptr && node_elsewhere->may_be_read())
        node_elsewhere->read(me, until_ms);
    else if (reading == socket_use::watch)
        node_elsewhere->watch(me);
    else
        process_lock.wait(me, until_ms);
    if (watcher == &me) {
        watcher = nullptr;
        watched_ms = NEVER;
    }
    if (me.called) {
        me.called = false;
        --attending;
    }
}

bool work_waits() noexcept
{
    if (events_wait() || node_deadline_ms < watched_ms)
        return true;
    return node_elsewhere != nullptr && node_elsewhere->is_unread() && (newest != nullptr || answers_unattended || thread_rests);
}

// Who slept last after sending on the path of the oldest event probably waits for it, and need not pass it on.
waiter& best_sleeper() noexcept
{
    const path* from = events_wait() ? find_path(first_event->path) : nullptr;
    return from != nullptr && from->caller != nullptr && from->caller->asleep ? *from->caller : *newest;
}

// While callers keep sleeping, and so reading, the runtime thread keeps out of their way: being called after each verb would cost
// more than looking from time to time whether they have stopped. Once verbs have been sent for which nobody slept, it is called.
void wait_as_runtime_thread() noexcept
{
    constexpr u64 PAUSE_MS = 5;
    if (node_elsewhere == nullptr || !node_elsewhere->may_be_read()) {
        thread_rests = true;
        wait(*runtime_waiter, NEVER, socket_use::none);
        thread_rests = false;
    } else if (std::exchange(sleeps_seen, sleeps) != sleeps && !answers_unattended) {
        wait(*runtime_waiter, precise_now_ms() + PAUSE_MS, socket_use::none);
    } else {
        wait(*runtime_waiter, NEVER, socket_use::watch);
    }
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
            if (node_elsewhere != nullptr)
                node_elsewhere->stop_expecting();  // what callbacks have sent for
            if (events_wait()) {
                let_others_in();
                continue;
            }
        }
        call_deliverer();
        runtime_thread = thread_state::waiting;
        wait_as_runtime_thread();
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
    if (node_elsewhere != nullptr) {
        answers_unattended |= node_elsewhere->was_sent_to();
        node_elsewhere->stop_expecting();
    }
    if (attending != 0 || !work_waits())
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
    if (node_elsewhere != nullptr)
        node_elsewhere->was_sent_to();  // and this thread sleeps for the answer
    ++sleeps;
    list(me);
    wait(me, limit_ms, socket_use::read);
    unlist(me);
}

void wake(waiter& sleeping) noexcept
{
    if (!sleeping.asleep)
        return;
    unlist(sleeping);
    bring_back(sleeping);
}

void forget_deliverers() noexcept
{
    newest = nullptr;
    attending = 0;
    watcher = nullptr;
    watched_ms = NEVER;
    runtime_thread = thread_state::none;
    thread_rests = true;
    answers_unattended = false;
}

}  // namespace tessaly::runtime
