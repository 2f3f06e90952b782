// The records that wait to be received on one side of a conversation, in one buffer that is kept and reused. transfer fills
// and empties it.
#pragma once

#include "common/types.h"

#include <span>

namespace tessaly::node {

class record_queue {
public:
    enum class kind : u8 {
        record,
        part,   // of a record whose end has not come; more of it may be added while it is the last item
        error,  // what a SEND_ERROR in between looks like is up to transfer
    };

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
    bool has_errors() const noexcept { return errors_ != 0; }

    // False when there is no memory; the queue is then as before.
    bool push(kind what, std::span<const u8> content) noexcept;

    // The next bytes of a record that comes in pieces, and whether they are its end.
    bool push_piece(std::span<const u8> content, bool ends) noexcept;

    // The queue must not be empty. Valid until the next push.
    item front() const noexcept;
    bool holds_only_one() const noexcept;

    // Bytes of records in front of the first error, over their borders.
    u32 record_bytes() const noexcept;

    // Takes that many bytes off the front, over the borders of records; 0 takes a record without data. They are copied to `to`,
    // unless that is null.
    void take(u8* to, u32 bytes) noexcept;

    // Empties the queue; a small buffer stays for the next conversation.
    void clear() noexcept;

private:
    u32 prefix_at(u32 at) const noexcept;
    void set_prefix(u32 at, kind what, u32 length) noexcept;
    bool make_room(u32 bytes) noexcept { return capacity_ - tail_ >= bytes || move_or_grow(bytes); }
    bool move_or_grow(u32 bytes) noexcept;
    void consume(u32 bytes) noexcept;

    u8* buffer_ = nullptr;
    u32 capacity_ = 0;
    u32 head_ = 0;
    u32 tail_ = 0;
    u32 last_ = 0;    // the last item, unless the queue is empty
    u32 data_ = 0;    // bytes of records
    u32 errors_ = 0;
};

}  // namespace tessaly::node
