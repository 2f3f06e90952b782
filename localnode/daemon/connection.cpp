#include "localnode/daemon/connection.h"

#include "localnode/runtime/socket_calls.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tessaly::daemon {

namespace {

constexpr std::size_t BYTES_PER_ENTRY = 32;  // so that many small packets count as what they take

}  // namespace

bool connection::send_welcome(const node::welcome& answer, bool with_memory) noexcept
{
    const unique_fd memory{with_memory ? slots_.make() : -1};
    mailbox_.open(slots_);
    return runtime::send_with_descriptor(socket_.get(), &answer, sizeof answer, memory.get(), MSG_DONTWAIT | MSG_NOSIGNAL) >= 0;
}

ssize_t connection::receive(std::span<u8, node::LONGEST_PACKET> into, int flags) noexcept
{
    const ssize_t got = runtime::receive_packet(socket_.get(), into.data(), into.size(), flags | MSG_TRUNC);
    if (got > static_cast<ssize_t>(into.size())) {
        errno = EMSGSIZE;
        return -1;
    }
    node::packet_header header;
    if (now != stage::conversing || got < static_cast<ssize_t>(sizeof header))
        return got;
    std::memcpy(&header, into.data(), sizeof header);
    if (header.slot == 0) [[likely]]
        return got;
    static_assert(sizeof header + node::SLOT_BYTES <= node::LONGEST_PACKET);
    const u8* const content = slots_.content(header.slot, header.block_bytes, header.data_bytes);
    if (content == nullptr || got != sizeof header) {
        errno = EFAULT;
        return -1;
    }
    const u32 bytes = header.block_bytes + header.data_bytes;
    std::memcpy(into.data() + sizeof header, content, bytes);
    slots_.free(header.slot);
    return static_cast<ssize_t>(sizeof header + bytes);
}

connection::result connection::try_to_send(std::span<const u8> packet) noexcept
{
    node::packet_header header;
    u8 slot = 0;
    if (packet.size() >= runtime::SHORTEST_IN_SLOT)
        slot = slots_.put(packet.subspan(sizeof header), {});
    if (slot != 0) {
        std::memcpy(&header, packet.data(), sizeof header);
        header.slot = slot;
        packet = {reinterpret_cast<const u8*>(&header), sizeof header};
    }
    if (mailbox_.put(packet))
        return result::sent;
    ssize_t sent = 0;
    do
        sent = runtime::send_packet(socket_.get(), packet.data(), packet.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    mailbox_.note_sent(sent >= 0);
    if (sent >= 0) [[likely]]
        return result::sent;
    if (slot != 0)
        slots_.free(slot);
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
