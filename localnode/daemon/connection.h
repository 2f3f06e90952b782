// One client's socket, and what waits until the client takes it.
#pragma once

#include "service/unique_fd.h"
#include "localnode/daemon/mailbox_sender.h"
#include "localnode/engine/packet.h"
#include "localnode/runtime/slots.h"

#include <sys/socket.h>

#include <deque>
#include <memory>
#include <unordered_set>
#include <vector>

namespace tessaly::daemon {

using service::unique_fd;

class connection {
public:
    enum class stage {
        greeting,   // its first packet has not come yet
        conversing,
        leaving,    // takes what waits, then it is closed
        gone,       // dropped and closed at the end of the round
    };

    connection(node::client_id number, unique_fd socket, const ucred& process, std::vector<gid_t> further_groups) noexcept
        : id(number), peer(process), groups(std::move(further_groups)), socket_(std::move(socket))
    {
    }

    int socket() const noexcept { return socket_.get(); }
    std::size_t queued_bytes() const noexcept { return queued_bytes_; }

    // One packet: at once, or, when the client does not take it now, behind what waits already. Never blocks. False, with
    // errno, when the connection is broken. Throws std::bad_alloc.
    bool send(std::span<const u8> packet);

    // The answer to a greeting, with memory for long frames if there is any. False, with errno, when it cannot be sent.
    bool send_welcome(const node::welcome& answer, bool with_memory) noexcept;

    // The next packet, and behind its header what lies in a slot of it, copied before anything looks at it: the client can write
    // there at any time. Blocks without MSG_DONTWAIT in flags, if the socket does. Result: the length of the whole; 0 at the end
    // of the connection; -1 with errno, which is EMSGSIZE for a packet that is too long and EFAULT for one that names a slot that
    // it may not name.
    ssize_t receive(std::span<u8, node::LONGEST_PACKET> into, int flags) noexcept;

    // Sends what waits, as far as the client takes it. False when the connection is broken.
    bool flush() noexcept;

    const node::client_id id;
    const ucred peer;
    const std::vector<gid_t> groups;  // besides its own
    stage now = stage::greeting;
    node::refusal refused = node::refusal::none;  // what its greeting will be answered with
    node::client_rights rights;
    bool told_no_rights = false;    // the log has a line of what it sent without them
    bool watched_for_room = false;  // the poller tells when the client takes packets again
    std::unordered_set<u32> paths;  // that the client has opened

private:
    enum class result { sent, must_wait, broken };
    result try_to_send(std::span<const u8> packet) noexcept;

    struct waiting_packet {
        std::unique_ptr<u8[]> content;
        u32 bytes;
    };

    unique_fd socket_;
    runtime::slots slots_;
    mailbox_sender mailbox_;
    std::deque<waiting_packet> queue_;
    std::size_t queued_bytes_ = 0;  // with what the queue itself needs
};

}  // namespace tessaly::daemon
