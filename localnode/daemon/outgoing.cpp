#include "localnode/daemon/outgoing.h"

#include <cstring>
#include <new>

namespace tessaly::daemon {

namespace {

constexpr u32 CHUNK_BYTES = 2 * node::LONGEST_PACKET;
constexpr u32 ALIGNMENT = 16;
static_assert(sizeof(node::packet_header) % ALIGNMENT == 0);

}  // namespace

u8* outgoing::make_room(u32 bytes)
{
    const u32 needed = (bytes + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT;
    if (chunks_.empty() || CHUNK_BYTES - used_ < needed) {
        chunks_.push_back(std::unique_ptr<u8[]>{new u8[CHUNK_BYTES]});
        used_ = 0;
    }
    u8* const room = chunks_.back().get() + used_;
    used_ += needed;
    return room;
}

u8* outgoing::add(node::client_id client, node::frame_kind kind, u32 path, u32 bytes)
try {
    const u32 whole = bytes + static_cast<u32>(sizeof(node::packet_header));
    if (bytes > node::LONGEST_PACKET || whole > node::LONGEST_PACKET)
        throw std::bad_alloc{};
    u8* const room = make_room(whole);
    packets_.push_back({client, {room, whole}});
    const node::packet_header header = {.kind = static_cast<u8>(kind), .path = path, .block_bytes = bytes};
    std::memcpy(room, &header, sizeof header);
    return room + sizeof header;
} catch (const std::bad_alloc&) {
    starved_.push_back(client);  // without memory even for this, the frame that caused it fails as a whole
    return nullptr;
}

void outgoing::clear() noexcept
{
    packets_.clear();
    starved_.clear();
    if (chunks_.size() > 1)
        chunks_.resize(1);
    used_ = 0;
}

}  // namespace tessaly::daemon
