// The node's only loop: sockets, signals and the engine's time.
#pragma once

#include "localnode/daemon/listener.h"
#include "localnode/daemon/switchboard.h"
#include "localnode/runtime/looking.h"

#include <sys/epoll.h>

namespace tessaly::daemon {

// The signals that the loop takes; to be blocked before it is made.
sigset_t signals_taken() noexcept;

class server {
public:
    // config: the file that is read again on SIGHUP; empty: none.
    server(settings& with, std::string config, listener& clients);

    // Until a signal says stop. Then all clients have been told, and have had a moment to take what waited for them.
    void run();

private:
    int wait_for_news(int timeout_ms);
    int timeout_ms() const noexcept;
    connection* alone(int count) noexcept;
    void handle(const epoll_event& event);
    void admit_clients();
    void take_signals();
    void reload();
    void say_goodbye();

    settings& settings_;
    const std::string config_;
    listener& listener_;
    unique_fd poller_;
    unique_fd signals_;
    programs programs_;
    switchboard switchboard_;
    private_line line_;
    runtime::looking look_{100};
    void* last_ = nullptr;    // whose event was the only one of the last round
    u32 packets_before_ = 0;  // that had come when it became so
    bool stopping_ = false;
    bool admits_ = true;  // false while the system has no descriptor for another client
    epoll_event events_[64];
};

}  // namespace tessaly::daemon
