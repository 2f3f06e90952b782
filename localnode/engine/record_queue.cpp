// The queue of records. Each lies in the buffer behind its length; taking a part of the first one moves the length along.
#include "localnode/engine/record_queue.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace tessaly::node {

namespace {

constexpr u32 LENGTH_BYTES = sizeof(u32);
constexpr u32 FIRST_CAPACITY = 1024;
constexpr u32 KEPT_CAPACITY = 128 * 1024;

}  // namespace

record_queue::~record_queue()
{
    std::free(buffer_);
}

bool record_queue::push(std::span<const u8> record) noexcept
{
    const u32 length = static_cast<u32>(record.size());
    if (!make_room(LENGTH_BYTES + length))
        return false;
    std::memcpy(buffer_ + tail_, &length, LENGTH_BYTES);
    if (length != 0)
        std::memcpy(buffer_ + tail_ + LENGTH_BYTES, record.data(), length);
    tail_ += LENGTH_BYTES + length;
    return true;
}

std::span<const u8> record_queue::front() const noexcept
{
    u32 length;
    std::memcpy(&length, buffer_ + head_, LENGTH_BYTES);
    return {buffer_ + head_ + LENGTH_BYTES, length};
}

void record_queue::consume(u32 bytes) noexcept
{
    const u32 left = static_cast<u32>(front().size()) - bytes;
    head_ += bytes;
    if (left != 0)
        std::memcpy(buffer_ + head_, &left, LENGTH_BYTES);
    else
        head_ += LENGTH_BYTES;
    if (empty())
        head_ = tail_ = 0;
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
