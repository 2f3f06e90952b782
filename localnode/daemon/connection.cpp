#include "localnode/daemon/connection.h"

#include "localnode/runtime/socket_calls.h"

#include <algorithm>
#include <cerrno>

namespace tessaly::daemon {

namespace {

constexpr std::size_t BYTES_PER_ENTRY = 32;  // so that many small packets count as what they take

}  // namespace

connection::result connection::try_to_send(std::span<const u8> packet) noexcept
{
    ssize_t sent = 0;
    do
        sent = runtime::send_packet(socket_.get(), packet.data(), packet.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    if (sent >= 0) [[likely]]
        return result::sent;
    return errno == EAGAIN || errno == ENOBUFS ? result::must_wait : result::broken;
}

bool connection::send(std::span<const u8> packet)
{
    if (queue_.empty()) [[likely]] {
        const result tried = try_to_send(packet);
        if (tried != result::must_wait)
            return tried == result::sent;
    }
    queue_.push_back({std::make_unique_for_overwrite<u8[]>(packet.size()), static_cast<u32>(packet.size())});
    std::ranges::copy(packet, queue_.back().content.get());
    queued_bytes_ += packet.size() + BYTES_PER_ENTRY;
    return true;
}

bool connection::flush() noexcept
{
    while (!queue_.empty()) {
        const waiting_packet& next = queue_.front();
        const result tried = try_to_send({next.content.get(), next.bytes});
        if (tried != result::sent)
            return tried == result::must_wait;
        queued_bytes_ -= next.bytes + BYTES_PER_ENTRY;
        queue_.pop_front();
    }
    return true;
}

}  // namespace tessaly::daemon
