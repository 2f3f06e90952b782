// One client that talks alone, on a single processor: the loop waits for it on its own socket, which costs less than the poller.
// Meanwhile a thread, the sentry, waits for the poller, and calls the loop back as soon as there is any other news. It does
// nothing else, and touches nothing of the loop's.
//
// How the loop is called back: the sentry makes the socket non-blocking, then sends the loop's thread a signal. Wherever that
// hits, the next receiving call finds nothing to wait for: one that waits already is restarted by the signal, others have not
// begun. So nothing is lost between a check and a call, and other calls, which are restarted too, notice nothing.
#pragma once

#include "service/unique_fd.h"

#include <pthread.h>

#include <atomic>
#include <thread>

namespace tessaly::daemon {

// All is for the loop's thread; begin and end in turns.
class private_line {
public:
    // poller: an epoll instance, the news of which end the line. It must outlive this.
    explicit private_line(int poller) noexcept : poller_(poller) {}
    private_line(const private_line&) = delete;
    private_line& operator=(const private_line&) = delete;
    ~private_line();

    // Makes that socket blocking until there is news; then receiving fails with EAGAIN. False, with the socket as it was, when
    // there can be no sentry.
    bool begin(int socket) noexcept;

    // Whether there has been no news yet. To be asked before each packet: those of a client that never falls silent come even
    // from a socket that does not block.
    bool is_quiet() const noexcept { return state_.load() == state::taken; }

    // The socket is non-blocking again, and the sentry leaves it alone. Before the socket is closed.
    void end() noexcept;

private:
    enum class state {
        idle,       // the sentry sleeps
        taken,      // the loop is on the line, the sentry waits for news
        recalling,  // there is news: the sentry calls the loop, which waits for the end of that before it leaves
        left,       // the loop has left by itself; the sentry still waits for news, and nothing has to wake it for the next line
        stopping,
    };

    bool start_sentry() noexcept;
    void keep_watch() noexcept;

    const int poller_;
    int socket_ = -1;  // written while idle or left, read by the sentry while recalling
    std::atomic<state> state_ = state::idle;
    bool possible_ = true;
    pthread_t loop_{};
    service::unique_fd stop_;  // an eventfd: readable when the sentry is to end
    std::thread sentry_;
};

}  // namespace tessaly::daemon
