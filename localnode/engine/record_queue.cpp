// Each item lies in the buffer behind a prefix, its kind and length. Taking a part of the first item moves the prefix along.
#include "localnode/engine/record_queue.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace tessaly::node {

namespace {

constexpr u32 PREFIX_BYTES = sizeof(u32);
constexpr u32 KIND_SHIFT = 24;
constexpr u32 LENGTH_MASK = (1u << KIND_SHIFT) - 1;
constexpr u32 FIRST_CAPACITY = 1024;
constexpr u32 KEPT_CAPACITY = 128 * 1024;

record_queue::kind kind_in(u32 prefix) noexcept
{
    return static_cast<record_queue::kind>(prefix >> KIND_SHIFT);
}

}  // namespace

record_queue::~record_queue()
{
    std::free(buffer_);
}

bool record_queue::push(kind what, std::span<const u8> content) noexcept
{
    const u32 length = static_cast<u32>(content.size());
    if (!make_room(PREFIX_BYTES + length))
        return false;
    last_ = tail_;
    set_prefix(last_, what, length);
    if (length != 0)
        std::memcpy(buffer_ + tail_ + PREFIX_BYTES, content.data(), length);
    tail_ += PREFIX_BYTES + length;
    if (what == kind::error)
        ++errors_;
    else
        data_ += length;
    return true;
}

bool record_queue::push_piece(std::span<const u8> content, bool ends) noexcept
{
    const kind what = ends ? kind::record : kind::part;
    if (empty() || kind_in(prefix_at(last_)) != kind::part)
        return push(what, content);
    const u32 length = static_cast<u32>(content.size());
    if (!make_room(length))
        return false;
    set_prefix(last_, what, (prefix_at(last_) & LENGTH_MASK) + length);
    std::memcpy(buffer_ + tail_, content.data(), length);
    tail_ += length;
    data_ += length;
    return true;
}

record_queue::item record_queue::front() const noexcept
{
    const u32 first = prefix_at(head_);
    return {kind_in(first), {buffer_ + head_ + PREFIX_BYTES, first & LENGTH_MASK}};
}

bool record_queue::holds_only_one() const noexcept
{
    return head_ == last_;
}

u32 record_queue::record_bytes() const noexcept
{
    if (errors_ == 0)
        return data_;
    u32 bytes = 0;
    for (u32 at = head_; kind_in(prefix_at(at)) != kind::error; at += PREFIX_BYTES + (prefix_at(at) & LENGTH_MASK))
        bytes += prefix_at(at) & LENGTH_MASK;
    return bytes;
}

void record_queue::take(u8* to, u32 bytes) noexcept
{
    do {
        const std::span<const u8> first = front().content;
        const u32 taken = std::min(bytes, static_cast<u32>(first.size()));
        if (to != nullptr && taken != 0) {
            std::memcpy(to, first.data(), taken);
            to += taken;
        }
        consume(taken);
        bytes -= taken;
    } while (bytes != 0);
}

void record_queue::consume(u32 bytes) noexcept
{
    const u32 first = prefix_at(head_);
    const u32 rest = (first & LENGTH_MASK) - bytes;
    if (kind_in(first) == kind::error)
        --errors_;
    else
        data_ -= bytes;
    head_ += bytes;
    if (rest != 0)
        set_prefix(head_, kind_in(first), rest);
    else
        head_ += PREFIX_BYTES;
    last_ = std::max(last_, head_);
    if (empty())
        head_ = tail_ = last_ = 0;
}

u32 record_queue::prefix_at(u32 at) const noexcept
{
    u32 prefix;
    std::memcpy(&prefix, buffer_ + at, PREFIX_BYTES);
    return prefix;
}

void record_queue::set_prefix(u32 at, kind what, u32 length) noexcept
{
    const u32 prefix = static_cast<u32>(what) << KIND_SHIFT | length;
    std::memcpy(buffer_ + at, &prefix, PREFIX_BYTES);
}

void record_queue::clear() noexcept
{
    head_ = tail_ = last_ = data_ = errors_ = 0;
    if (capacity_ <= KEPT_CAPACITY)
        return;
    std::free(buffer_);
    buffer_ = nullptr;
    capacity_ = 0;
}

bool record_queue::move_or_grow(u32 bytes) noexcept
{
    const u32 used = tail_ - head_;
    // Moving pays when at least as much has been taken out as must be moved.
    if (capacity_ - used >= bytes && head_ >= used) {
        std::memmove(buffer_, buffer_ + head_, used);
        last_ -= head_;
        head_ = 0;
        tail_ = used;
        return true;
    }
    const u32 wanted = std::max({FIRST_CAPACITY, 2 * capacity_, tail_ + bytes});
    u8* const larger = static_cast<u8*>(std::realloc(buffer_, wanted));
    if (larger == nullptr)
        return false;
    buffer_ = larger;
    capacity_ = wanted;
    return true;
}

}  // namespace tessaly::node
