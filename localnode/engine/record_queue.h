// The records that wait to be received on one side of a conversation, in one buffer that is kept and reused. transfer fills
// and empties it.
#pragma once

#include "common/types.h"

#include <span>

namespace tessaly::node {

class record_queue {
public:
    // What a SEND_ERROR in between looks like is up to transfer.
    enum class kind : u8 { record, error };

    struct item {
        kind what;
        std::span<const u8> content;  // of a record: what is left of it
    };

    record_queue() noexcept = default;
    record_queue(const record_queue&) = delete;
    record_queue& operator=(const record_queue&) = delete;
    ~record_queue();

    bool empty() const noexcept { return head_ == tail_; }
    u32 bytes() const noexcept { return tail_ - head_; }  // with what the queue itself needs for each record

    // False when there is no memory; the queue is then as before.
    bool push(kind what, std::span<const u8> content) noexcept;

    // The queue must not be empty. Valid until the next push.
    item front() const noexcept;
    bool holds_only_one() const noexcept;

    // Takes that many bytes off the first item, and the item away when nothing is left of it.
    void consume(u32 bytes) noexcept;

    // Empties the queue; a small buffer stays for the next conversation.
    void clear() noexcept;

private:
    u32 prefix() const noexcept;
    bool make_room(u32 bytes) noexcept;

    u8* buffer_ = nullptr;
    u32 capacity_ = 0;
    u32 head_ = 0;
    u32 tail_ = 0;
};

}  // namespace tessaly::node
