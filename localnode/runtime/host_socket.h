// The socket host: the node is another process. A caller that sleeps waits for its packets itself, so that a synchronous verb is
// one send and one wait in one thread; the runtime thread watches the socket while no caller sleeps.
#pragma once

#include "localnode/runtime/connection.h"
#include "localnode/runtime/wait.h"

#include <string>

namespace tessaly::runtime {

// Guarded by the process lock.
class socket_host final : public node_host {
public:
    explicit socket_host(std::string_view socket_path);
    ~socket_host() override;

    bool is_there() noexcept override;
    status submit(node::frame&& sent) noexcept override;
    void pass_time(u64) noexcept override {}
    void leave_to_parent() noexcept override;

    // Whether a message was sent since this was asked last.
    bool was_sent_to() noexcept;

    // Before a thread that does not sleep gives the lock away: the answers to what was sent are left to whoever reads the socket.
    void stop_expecting() noexcept;

    bool may_be_read() const noexcept { return connected_ != nullptr && reader_ == nullptr; }
    bool is_unread() const noexcept { return may_be_read() && watcher_ == nullptr; }

    // Gives up the lock until a packet has come, the thread is woken or the time has come; what came is in the queue then. Only
    // when the node may be read.
    void read(waiter& me, u64 until_ms) noexcept;

    // The same for a thread that leaves the reading to any caller that begins to sleep meanwhile.
    void watch(waiter& me) noexcept;

    // A thread that was woken comes back from read() or watch().
    void interrupt(const waiter& woken) noexcept;

private:
    void take_in(reception got) noexcept;
    void drop_for_want_of_memory(node::frame_kind kind, u32 path) noexcept;
    void disconnect() noexcept;
    void lose() noexcept;
    void bury_disconnected() noexcept;

    std::string socket_path_;
    std::unique_ptr<connection> connected_;
    std::unique_ptr<connection> disconnected_;  // and still in use by the reader or the watcher
    waiter* reader_ = nullptr;
    connection* read_ = nullptr;  // by the reader
    reception got_ = reception::nothing;
    waiter* watcher_ = nullptr;
    connection* watched_ = nullptr;
    int wake_watcher_ = -1;
    bool sent_to_ = false;
};

// The host of this process if it is of that kind, else null.
extern socket_host* node_elsewhere;

// Null when there is no memory.
std::unique_ptr<node_host> make_socket_host(std::string_view socket_path) noexcept;

}  // namespace tessaly::runtime
