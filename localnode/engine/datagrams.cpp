// A datagram is taken when its length is that of its type, in its header and as it came.
#include "localnode/engine/datagrams.h"

#include "localnode/engine/attaches.h"

#include <cstring>

namespace tessaly::node {

namespace {

template <typename Datagram>
void hand_on(node& n, const frame& input, void (*take)(node&, client_id, const Datagram&))
{
    Datagram datagram;
    if (input.block.size() != sizeof datagram)
        return;
    std::memcpy(&datagram, input.block.data(), sizeof datagram);
    if (datagram.header.length == sizeof datagram)
        take(n, input.client, datagram);
}

}  // namespace

void take_datagram(node& n, const frame& input)
{
    datagram_header header;
    if (input.block.size() < sizeof header)
        return;
    std::memcpy(&header, input.block.data(), sizeof header);
    switch (header.type) {
    case DATAGRAM_ANNOUNCE: hand_on(n, input, announce); break;
    case DATAGRAM_CANCEL_ANNOUNCE: hand_on(n, input, cancel_announcement); break;
    case DATAGRAM_ATTACH_RESPONSE: hand_on(n, input, attach_response); break;
    case DATAGRAM_REGISTER_CPIC: hand_on(n, input, register_name); break;
    case DATAGRAM_UNREGISTER_CPIC: hand_on(n, input, unregister_name); break;
    default: break;
    }
}

}  // namespace tessaly::node
