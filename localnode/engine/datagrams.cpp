// A datagram is taken when its length is that of its type, in its header and as it came.
#include "localnode/engine/datagrams.h"

#include "localnode/engine/attaches.h"
#include "localnode/engine/clients.h"
#include "localnode/engine/starts.h"
#include "localnode/engine/tp_definitions.h"
#include "localnode/engine/tp_server.h"

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

std::optional<u16> type_of(const frame& input) noexcept
{
    datagram_header header;
    if (input.block.size() < sizeof header)
        return std::nullopt;
    std::memcpy(&header, input.block.data(), sizeof header);
    return header.type;
}

// Reports may come from a client that has nothing here yet.
void note_rights(node& n, const frame& input) noexcept
{
    if (client_record* const of = client_of(n, input.client))
        of->rights = input.rights;
}

}  // namespace

void take_datagram(node& n, const frame& input)
{
    const std::optional<u16> type = type_of(input);
    if (!type)
        return;
    if (is_from_tp_server(*type))
        note_rights(n, input);
    switch (*type) {
    case DATAGRAM_ANNOUNCE: hand_on(n, input, announce); break;
    case DATAGRAM_CANCEL_ANNOUNCE: hand_on(n, input, cancel_announcement); break;
    case DATAGRAM_ATTACH_RESPONSE: hand_on(n, input, attach_response); break;
    case DATAGRAM_REGISTER_CPIC: hand_on(n, input, register_name); break;
    case DATAGRAM_UNREGISTER_CPIC: hand_on(n, input, unregister_name); break;
    case TPS_MSG_UPDATE_TP_INFO: hand_on(n, input, update_definition); break;
    case TPS_MSG_QUERY_DLOAD: hand_on(n, input, query_start); break;
    case TPS_MSG_START_APPL_RSP: hand_on(n, input, start_answered); break;
    case TPS_MSG_APPL_FAILED: hand_on(n, input, program_failed); break;
    default: break;
    }
}

void take_returned(node& n, const frame& input)
{
    if (type_of(input) == TPS_MSG_START_APPL_REQ)
        hand_on(n, input, take_back);
}

}  // namespace tessaly::node
