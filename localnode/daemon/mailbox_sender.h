// The node's end of a client's mailbox (engine/packet.h): puts a packet where the client waits for it, and wakes the client.
#pragma once

#include "localnode/runtime/slots.h"

#include <linux/futex.h>

#include <span>

namespace tessaly::daemon {

// To be used by the thread that made it.
class mailbox_sender {
public:
    mailbox_sender() noexcept = default;
    mailbox_sender(const mailbox_sender&) = delete;
    mailbox_sender& operator=(const mailbox_sender&) = delete;
    ~mailbox_sender();  // before the memory goes: a client that listens takes its letter or turns to the socket, for good

    // Opens the mailbox in that memory; should the kernel have no robust futexes, it stays closed. Once.
    void open(const runtime::slots& memory) noexcept;

    // False when the packet must go through the socket, since the client does not listen or the packet is too long. Its sending
    // is counted then, and note_sent() says what became of it.
    bool put(std::span<const u8> packet) noexcept;
    void note_sent(bool sent) noexcept;

private:
    bool is_listened_to() const noexcept;
    bool try_to_put(std::span<const u8> packet) noexcept;
    void count(u32 sent) noexcept;
    bool wake() noexcept;
    void close() noexcept;

    node::shared_mailbox* shared_ = nullptr;
    robust_list* entry_ = nullptr;  // in the list of this thread's robust futexes
    u32 at_rest_ = 0;               // the word's values
    u32 listened_to_ = 0;
    u32 sent_ = 0;
};

}  // namespace tessaly::daemon
