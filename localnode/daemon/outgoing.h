// The packets that one frame causes, until they are sent: the engine writes its frames straight into them.
#pragma once

#include "localnode/engine/packet.h"

#include <memory>
#include <vector>

namespace tessaly::daemon {

class outgoing final : public node::frame_sink {
public:
    struct packet {
        node::client_id client;
        std::span<const u8> bytes;
    };

    u8* add(node::client_id client, node::frame_kind kind, u32 path, u32 bytes) override;

    // In the order in which they were added; valid until clear().
    const std::vector<packet>& packets() const noexcept { return packets_; }

    // The clients that were to get a frame for which there was no room.
    const std::vector<node::client_id>& starved() const noexcept { return starved_; }

    void clear() noexcept;

private:
    u8* make_room(u32 bytes);

    std::vector<packet> packets_;
    std::vector<node::client_id> starved_;
    std::vector<std::unique_ptr<u8[]>> chunks_;  // all of CHUNK_BYTES; the last one is being filled
    u32 used_ = 0;                               // of the last chunk
};

}  // namespace tessaly::daemon
