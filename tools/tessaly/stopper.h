// Ends verbs that wait: when their time is up, on SIGINT or SIGTERM, and when a program no longer needs its other half.
#pragma once

#include "verbs/codes.h"

#include <tessaly/appc.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace tessaly::tool {

using clock = std::chrono::steady_clock;
inline constexpr clock::duration NO_LIMIT = clock::duration::max();

enum class stop_cause { none, time_out, signal, finished };

// One for a process's conversations; any thread. Once stopped it stays so: verbs that wait are cancelled, further ones are not
// begun. A process that is still there END_LIMIT after a time-out or a signal ends itself, and the node tells its partners.
class stopper {
public:
    stopper();
    ~stopper();
    stopper(const stopper&) = delete;
    stopper& operator=(const stopper&) = delete;

    // Before a verb that may wait. cancel: the CANCEL_CONV that ends it, valid until end_wait.
    // Result: false when everything is to stop; the verb is then not to be issued.
    bool begin_wait(const appc_cancel_conv& cancel, clock::duration limit);
    void end_wait(const appc_cancel_conv& cancel);

    // Waits, unless stopped. Result: false when stopped.
    bool pause(clock::duration time);

    // Only the first cause counts.
    void stop(stop_cause why);
    stop_cause cause() const;

private:
    static constexpr auto END_LIMIT = std::chrono::seconds(5);
    static constexpr auto CANCEL_AGAIN = std::chrono::milliseconds(20);

    struct wait {
        const appc_cancel_conv* cancel;
        clock::time_point deadline;
    };

    void watch();
    void look_at_deadlines();
    void cancel_waits() const;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<wait> waits_;
    stop_cause cause_ = stop_cause::none;
    clock::time_point stopped_at_{};
    clock::time_point wakes_at_ = clock::time_point::max();
    bool ending_ = false;
    std::thread thread_;
};

// Before the first thread is made: the signals that signal_watch takes come to it alone.
void block_watched_signals();

// While it lives, the first SIGINT or SIGTERM stops, the second ends the process at once.
class signal_watch {
public:
    explicit signal_watch(stopper& stop);
    ~signal_watch();
    signal_watch(const signal_watch&) = delete;
    signal_watch& operator=(const signal_watch&) = delete;

private:
    std::thread thread_;
};

}  // namespace tessaly::tool
