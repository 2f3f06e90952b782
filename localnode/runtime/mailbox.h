// The client's end of its mailbox (engine/packet.h): where the node puts a packet while the client waits for one.
#pragma once

#include "localnode/engine/packet.h"
#include "localnode/runtime/looking.h"

#include <span>

namespace tessaly::runtime {

// One thread at a time listens.
class mailbox {
public:
    // Null: there is none.
    void use(node::shared_mailbox* shared) noexcept;

    // Begins to listen, unless it does. received: how many packets have come through the socket. False when the socket is to be
    // received from instead.
    bool listen(u32 received) noexcept;

    // After listen(): waits until the node has put something, has sent something through the socket or has ended, or until
    // close(). Looks first, then sleeps. Result: the letter, valid until listen(); empty: the socket is to be received from.
    std::span<const u8> next() noexcept;

    // Does not listen any more. Result: the letter that has come, valid until listen(); empty: none.
    std::span<const u8> stop() noexcept;

    // Whoever listens comes back, and nobody listens again. Any thread.
    void close() noexcept;

private:
    bool take_back() noexcept;
    u32 listened_to() const noexcept { return at_rest_ & ~node::MAILBOX_AT_REST; }
    bool listens() const noexcept;
    std::span<const u8> take_letter() noexcept;

    node::shared_mailbox* shared_ = nullptr;
    u32 at_rest_ = 0;  // the word's value
    bool listening_ = false;
    looking look_{1500};  // which take as long as 100 looks at a socket
};

}  // namespace tessaly::runtime
