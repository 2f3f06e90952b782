// A connection to a node in another process: a SOCK_SEQPACKET socket that carries one frame a packet, and a mailbox where a
// thread that waits gets most of them.
#pragma once

#include "localnode/engine/packet.h"
#include "localnode/runtime/host.h"
#include "localnode/runtime/looking.h"
#include "localnode/runtime/mailbox.h"
#include "localnode/runtime/slots.h"

#include <sys/un.h>

#include <memory>
#include <span>
#include <string_view>

namespace tessaly::runtime {

enum class reception : u8 { nothing, packet, end };

// One thread at a time receives; sending and all else is guarded by the process lock.
class connection {
public:
    // Null when no node answers at that path, or when it refuses; the log says why.
    static std::unique_ptr<connection> to(std::string_view socket_path) noexcept;
    ~connection();
    connection(const connection&) = delete;
    connection& operator=(const connection&) = delete;

    // Waits for room: the node reads whatever comes, so there soon is some.
    status send(const node::frame& sent) noexcept;

    // Waits for the next packet, at most until that time: looks first, then sleeps. Without the lock.
    reception receive(u64 until_ms) noexcept;

    // Takes the next packet if there is one already.
    reception receive_at_once() noexcept;

    // Before something is sent for whose answer this thread may wait: the answer may then come before it waits. Unless another
    // thread receives.
    void expect_answer() noexcept { mailbox_.listen(received_); }

    // When it does not wait. Takes the answer if it has come that way.
    reception stop_expecting() noexcept;

    // Waits until something is there to receive, or wake_fd is readable. Without the lock.
    void watch(int wake_fd, u64 until_ms) const noexcept;

    // The packet received last, as long as none is received after it.
    const node::packet_header& header() const noexcept { return *reinterpret_cast<const node::packet_header*>(packet_); }

    // Copies its block, header().block_bytes long; null: drops it. To be called once.
    void take_block(u8* to) noexcept;

    // Has the node send a packet back, which ends a receive() under way. Waits for room like send().
    void ask_for_echo() noexcept;

    // Both directions end, for whoever receives as well.
    void hang_up() noexcept;

    // In a fork's child: leaves the connection to the parent, which would seem alive while the child has it open.
    void leave_to_parent() noexcept;

    std::unique_ptr<connection> before;  // of the host's, among those that are over

private:
    explicit connection(int socket) noexcept : socket_(socket) {}

    bool connect_to(const sockaddr_un& address) noexcept;
    bool greet() noexcept;
    bool set_time_limit(long seconds) noexcept;
    ssize_t send_parts(const node::packet_header& header, std::span<const u8> block, std::span<const u8> data) noexcept;
    reception receive_with(int flags) noexcept;
    reception take_letter(std::span<const u8> letter) noexcept;
    reception judge(std::size_t bytes) const noexcept;

    int socket_;
    u32 received_ = 0;  // packets through the socket since the welcome
    slots slots_;
    mailbox mailbox_;
    const u8* block_ = nullptr;  // of the packet received last, unless it lies in a slot
    looking look_{100};
    alignas(node::packet_header) u8 packet_[node::LONGEST_PACKET];
};

}  // namespace tessaly::runtime
