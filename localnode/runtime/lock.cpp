// The process lock: vpm_lock, vpm_unlock and what stands behind them.
#include "localnode/runtime/lock.h"

#include "localnode/runtime/deliverers.h"
#include "localnode/runtime/fork.h"
#include "runtime/node_runtime.h"

#include <sched.h>

namespace tessaly::runtime {

constinit nesting_lock process_lock;

thread_local u32 nesting_lock::depth_ = 0;

void nesting_lock::take() noexcept
{
    if (!held() && pthread_mutex_trylock(&mutex_) != 0) {
        expect_contender();
        pthread_mutex_lock(&mutex_);
        contender_arrived();
    }
    ++depth_;
}

void nesting_lock::drop() noexcept
{
    if (--depth_ == 0)
        pthread_mutex_unlock(&mutex_);
}

void nesting_lock::wait(pthread_cond_t& condition, const timespec* until) noexcept
{
    const u32 depth = depth_;
    depth_ = 0;
    if (until != nullptr)
        pthread_cond_timedwait(&condition, &mutex_, until);
    else
        pthread_cond_wait(&condition, &mutex_);
    depth_ = depth;
}

void nesting_lock::expect_contender() noexcept
{
    pthread_mutex_lock(&gate_);
    ++contenders_;
    pthread_mutex_unlock(&gate_);
}

void nesting_lock::contender_arrived() noexcept
{
    pthread_mutex_lock(&gate_);
    --contenders_;
    ++admitted_;
    pthread_mutex_unlock(&gate_);
}

// A mutex that is unlocked and locked again at once nearly always stays with the same thread, and a program whose callbacks
// keep issuing verbs would never let the others in. So the lock stays free until one of them has had it, or its chance.
void nesting_lock::step_aside() noexcept
{
    constexpr int PATIENCE = 64;
    pthread_mutex_lock(&gate_);
    const bool wanted = contenders_ != 0;
    const u32 before = admitted_;
    pthread_mutex_unlock(&gate_);
    if (!wanted)
        return;

    const u32 depth = depth_;
    depth_ = 0;
    pthread_mutex_unlock(&mutex_);
    bool admitted = false;
    for (int i = 0; i < PATIENCE && !admitted; ++i) {
        sched_yield();
        pthread_mutex_lock(&gate_);
        admitted = admitted_ != before;
        pthread_mutex_unlock(&gate_);
    }
    pthread_mutex_lock(&mutex_);
    depth_ = depth;
}

void nesting_lock::after_fork_in_child() noexcept
{
    contenders_ = 0;
    pthread_mutex_unlock(&gate_);
}

}  // namespace tessaly::runtime

using namespace tessaly::runtime;

extern "C" uint16_t vpm_lock(void)
{
    process_lock.take();
    const uint16_t token = static_cast<uint16_t>(process_lock.depth());
    report_fork();
    return token;
}

extern "C" void vpm_unlock(uint16_t token)
{
    if (!process_lock.held()) {
        v0_assert("lock", __LINE__, "the thread that unlocks holds the lock");
        return;
    }
    if (static_cast<uint16_t>(process_lock.depth()) != token)
        v0_assert("lock", __LINE__, "levels of the lock are undone in reverse order");
    if (process_lock.depth() == 1)
        call_deliverer();
    process_lock.drop();
}
