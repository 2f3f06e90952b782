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
    const u32 its_prefix = static_cast<u32>(what) << KIND_SHIFT | length;
    std::memcpy(buffer_ + tail_, &its_prefix, PREFIX_BYTES);
    if (length != 0)
        std::memcpy(buffer_ + tail_ + PREFIX_BYTES, content.data(), length);
    tail_ += PREFIX_BYTES + length;
    return true;
}

record_queue::item record_queue::front() const noexcept
{
    const u32 first = prefix();
    return {static_cast<kind>(first >> KIND_SHIFT), {buffer_ + head_ + PREFIX_BYTES, first & LENGTH_MASK}};
}

bool record_queue::holds_only_one() const noexcept
{
    return bytes() == PREFIX_BYTES + (prefix() & LENGTH_MASK);
}

void record_queue::consume(u32 bytes) noexcept
{
    const u32 rest = prefix() - bytes;
    head_ += bytes;
    if ((rest & LENGTH_MASK) != 0)
        std::memcpy(buffer_ + head_, &rest, PREFIX_BYTES);
    else
        head_ += PREFIX_BYTES;
    if (empty())
        head_ = tail_ = 0;
}

u32 record_queue::prefix() const noexcept
{
    u32 first;
    std::memcpy(&first, buffer_ + head_, PREFIX_BYTES);
    return first;
}

void record_queue::clear() noexcept
{
    head_ = tail_ = 0;
    if (capacity_ <= KEPT_CAPACITY)
        return;
    std::free(buffer_);
    buffer_ = nullptr;
    capacity_ = 0;
}

bool record_queue::make_room(u32 bytes) noexcept
{
    if (capacity_ - tail_ >= bytes)
        return true;
    const u32 used = tail_ - head_;
    // Moving pays when at least as much has been taken out as must be moved.
    if (capacity_ - used >= bytes && head_ >= used) {
        std::memmove(buffer_, buffer_ + head_, used);
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
