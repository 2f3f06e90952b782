// The memory that a client and the node share, as either of them has it: long frames go through its slots (engine/packet.h).
// Whatever the other end does with that memory, this end stays within it, and reads a slot only to copy it.
#pragma once

#include "localnode/engine/packet.h"

#include <span>

namespace tessaly::runtime {

// One end of it; without memory it has no slot to give. One thread at a time, but for content().
class slots {
public:
    slots() noexcept = default;
    ~slots();
    slots(const slots&) = delete;
    slots& operator=(const slots&) = delete;

    // The node's end, before it welcomes a client: makes the memory. Result: its descriptor, which the caller closes; -1 when
    // there is none.
    int make() noexcept;

    // The client's end: takes the memory that the node handed over, unless it might shrink or is not as long as it should be.
    bool take_over(int descriptor) noexcept;

    // In a fork's child. Does only what a signal handler may.
    void forget() noexcept;

    // Null without memory.
    node::shared_mailbox* mailbox() const noexcept { return shared_ != nullptr ? &shared_->mailbox : nullptr; }

    // In front of the mailbox lies a page that the other end has not, for what belongs to it and must have the same distance from
    // each mailbox. Not to be asked for without memory.
    static constexpr std::size_t OWN_PAGE_BYTES = 4096;
    void* own_page() const noexcept { return reinterpret_cast<u8*>(shared_) - OWN_PAGE_BYTES; }

    // Puts a frame into a free slot of this end. Result: the number for the packet; 0 when it must go in the packet itself.
    u8 put(std::span<const u8> block, std::span<const u8> data) noexcept;

    // What the other end has put into a slot, as long as it is not freed. Null when it may not name that slot, or for more than a
    // slot holds.
    const u8* content(u8 slot, u32 block_bytes, u32 data_bytes) const noexcept;

    // What was put into it has been copied, or could not be sent.
    void free(u8 slot) noexcept;

private:
    bool map(int descriptor) noexcept;

    node::shared_memory* shared_ = nullptr;
    u32 first_own_ = 0;  // index of this end's first slot; the node's come first
};

// From here on a slot pays: with records of 8 KiB a flow becomes a tenth faster, with 4 KiB hardly at all.
inline constexpr std::size_t SHORTEST_IN_SLOT = 4096;

}  // namespace tessaly::runtime
