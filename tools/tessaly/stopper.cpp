#include "tools/tessaly/stopper.h"

#include "tools/tessaly/terminal.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

namespace tessaly::tool {

namespace {

void release_cancel(void* vcb, appc_u8*, appc_u32, appc_u32)
{
    delete static_cast<appc_cancel_conv*>(vcb);
}

// Waits for nothing: the node may be the reason why the verb hangs.
void issue_cancel(const appc_cancel_conv& cancel)
{
    auto block = std::make_unique<appc_cancel_conv>(cancel);
    if (APPC_Async(block.get(), release_cancel, 0) == APPC_IN_PROGRESS)
        static_cast<void>(block.release());  // until the callback
}

sigset_t watched_signals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int each : {SIGINT, SIGTERM, SIGUSR1})
        sigaddset(&signals, each);
    return signals;
}

}  // namespace

stopper::stopper() : thread_([this] { watch(); }) {}

stopper::~stopper()
{
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

bool stopper::begin_wait(const appc_cancel_conv& cancel, clock::duration limit)
{
    const auto deadline = limit == NO_LIMIT ? clock::time_point::max() : clock::now() + limit;
    const std::lock_guard lock(mutex_);
    if (cause_ != stop_cause::none)
        return false;
    waits_.push_back({&cancel, deadline});
    if (deadline < wakes_at_)  // most verbs begin later than the one that the watcher has in view
        changed_.notify_all();
    return true;
}

void stopper::end_wait(const appc_cancel_conv& cancel)
{
    const std::lock_guard lock(mutex_);
    std::erase_if(waits_, [&](const wait& each) { return each.cancel == &cancel; });
}

bool stopper::pause(clock::duration time)
{
    std::unique_lock lock(mutex_);
    return !changed_.wait_until(lock, clock::now() + time, [this] { return cause_ != stop_cause::none; });
}

void stopper::stop(stop_cause why)
{
    const std::lock_guard lock(mutex_);
    if (cause_ != stop_cause::none)
        return;
    cause_ = why;
    stopped_at_ = clock::now();
    changed_.notify_all();
}

stop_cause stopper::cause() const
{
    const std::lock_guard lock(mutex_);
    return cause_;
}

void stopper::look_at_deadlines()
{
    wakes_at_ = clock::time_point::max();
    for (const wait& each : waits_)
        wakes_at_ = std::min(wakes_at_, each.deadline);
    if (cause_ == stop_cause::none && wakes_at_ <= clock::now()) {
        cause_ = stop_cause::time_out;
        stopped_at_ = clock::now();
        changed_.notify_all();
    }
}

// With the lock held, so that a verb that has ended is not cancelled any more.
void stopper::cancel_waits() const
{
    for (const wait& each : waits_)
        issue_cancel(*each.cancel);
}

void stopper::watch()
{
    std::unique_lock lock(mutex_);
    while (!ending_) {
        look_at_deadlines();
        if (cause_ == stop_cause::none) {
            if (wakes_at_ == clock::time_point::max())
                changed_.wait(lock);
            else
                changed_.wait_until(lock, wakes_at_);
            continue;
        }
        // Again and again: a thread may have begun its wait and not issued the verb yet.
        cancel_waits();
        if (cause_ != stop_cause::finished && clock::now() > stopped_at_ + END_LIMIT) {
            say("tessaly: what was to stop goes on; the process ends now, and the node tells the partner");
            ::_exit(cause_ == stop_cause::time_out ? EXIT_TIME_OUT : EXIT_VERB_FAILED);
        }
        changed_.wait_for(lock, CANCEL_AGAIN);
    }
}

void block_watched_signals()
{
    const sigset_t signals = watched_signals();
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

signal_watch::signal_watch(stopper& stop)
{
    thread_ = std::thread([&stop, signals = watched_signals()] {
        for (int taken = 0, received = 0; ::sigwait(&signals, &received) == 0 && received != SIGUSR1; ++taken) {
            if (taken > 0)
                ::_exit(EXIT_VERB_FAILED);
            stop.stop(stop_cause::signal);
        }
    });
}

signal_watch::~signal_watch()
{
    ::pthread_kill(thread_.native_handle(), SIGUSR1);
    thread_.join();
}

}  // namespace tessaly::tool
