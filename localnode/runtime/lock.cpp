// The process lock: vpm_lock, vpm_unlock and what stands behind them.
#include "localnode/runtime/lock.h"

#include "localnode/runtime/deliverers.h"
#include "localnode/runtime/fork.h"
#include "localnode/runtime/looking.h"
#include "runtime/node_runtime.h"

#include <sched.h>

#include <cerrno>
#include <utility>

namespace tessaly::runtime {

constinit nesting_lock process_lock;

thread_local u32 nesting_lock::depth_ = 0;

namespace {

constexpr u32 LOOKS = 1000;
[[gnu::tls_model("initial-exec")]] constinit thread_local looking look{LOOKS};

// Result: false when the time came first.
bool await_post(sem_t& semaphore, u64 until_ms) noexcept
{
    if (look.finds([&] { return sem_trywait(&semaphore) == 0; }))
        return true;
    const timespec until = time_at_ms(until_ms == NEVER ? 0 : until_ms);
    int failed = 0;
    do
        failed = until_ms == NEVER ? sem_wait(&semaphore) : sem_clockwait(&semaphore, CLOCK_MONOTONIC, &until);
    while (failed != 0 && errno == EINTR);
    return failed == 0;
}

}  // namespace

bool wait_for_wake_up(sleeper& me, u64 until_ms) noexcept
{
    return await_post(me.wake_up, until_ms);
}

void sleeper::start_afresh() noexcept
{
    sem_init(&wake_up, 0, 0);
    woken = false;
}

void nesting_lock::enter() noexcept
{
    if (pthread_mutex_trylock(&mutex_) == 0) [[likely]]
        return;
    blocked_.fetch_add(1);
    pthread_mutex_lock(&mutex_);
    blocked_.fetch_sub(1);
    admitted_.fetch_add(1);
}

void nesting_lock::leave() noexcept
{
    sleeper* woken = std::exchange(first_woken_, nullptr);
    pthread_mutex_unlock(&mutex_);
    while (woken != nullptr) {
        sleeper* next = woken->next_woken;  // read first: once posted, it may be woken anew
        sem_post(&woken->wake_up);
        woken = next;
    }
}

u32 nesting_lock::take() noexcept
{
    const u32 depth = depth_;
    if (depth == 0) {
        notice_fork();
        enter();
    }
    depth_ = depth + 1;
    return depth + 1;
}

void nesting_lock::drop() noexcept
{
    if (--depth_ == 0)
        leave();
}

void nesting_lock::wake(sleeper& waiting) noexcept
{
    if (waiting.woken)
        return;
    waiting.woken = true;
    waiting.next_woken = first_woken_;
    first_woken_ = &waiting;
    ++woken_;
}

void nesting_lock::wait(sleeper& me, u64 until_ms, way_to_wait way) noexcept
{
    const u32 depth = std::exchange(depth_, 0);
    leave();
    const bool posted = way(me, until_ms);
    enter();
    depth_ = depth;
    if (!me.woken)
        return;
    if (!posted)
        await_post(me.wake_up, NEVER);  // it comes: whoever woke this thread has left the lock
    me.woken = false;
    --woken_;
    admitted_.fetch_add(1);
}

// A mutex that is unlocked and locked again at once nearly always stays with the same thread, and a program whose callbacks
// keep issuing verbs would never let the others in. So the lock stays free until one of them has had it, or its chance.
void nesting_lock::step_aside() noexcept
{
    constexpr int PATIENCE = 64;
    if (woken_ == 0 && blocked_.load() == 0)
        return;
    const u32 before = admitted_.load();
    const u32 depth = std::exchange(depth_, 0);
    leave();
    for (int i = 0; i < PATIENCE && admitted_.load() == before; ++i)
        sched_yield();
    enter();
    depth_ = depth;
}

void nesting_lock::start_afresh() noexcept
{
    pthread_mutex_init(&mutex_, nullptr);
    if (held())
        pthread_mutex_lock(&mutex_);
    first_woken_ = nullptr;
    woken_ = 0;
    blocked_.exchange(0);
}

}  // namespace tessaly::runtime

using namespace tessaly::runtime;

extern "C" uint16_t vpm_lock(void)
{
    const tessaly::u32 depth = process_lock.take();
    report_fork();
    return static_cast<uint16_t>(depth);
}

extern "C" void vpm_unlock(uint16_t token)
{
    const tessaly::u32 depth = process_lock.depth();
    if (depth == 0) {
        v0_assert("lock", __LINE__, "the thread that unlocks holds the lock");
        return;
    }
    if (static_cast<uint16_t>(depth) != token)
        v0_assert("lock", __LINE__, "levels of the lock are undone in reverse order");
    if (depth == 1)
        call_deliverer();
    process_lock.drop();
}
