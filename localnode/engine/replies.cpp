// Builds what the node sends, straight into the frame that goes out.
#include "localnode/engine/replies.h"

#include "common/ebcdic.h"
#include "localnode/engine/transfer.h"
#include "verbs/layout_64.h"
#include "wire/datagrams.h"

#include <cstring>

namespace tessaly::node {

namespace {

constexpr u32 HEADER_BYTES = sizeof(verb_message_header);
constexpr u32 FORGET_BYTES = find_verb(IMPLIED_FORGET)->format[0].length;
constexpr u32 FORGET_TYPE_AT = 24;

void lose(node& n, path_record& path) noexcept
{
    if (!is_linked(path.link))
        n.lost.append(path);
}

// Whether the library keeps the DEALLOCATE for an implied forget: byte 32 tells that the program wants one.
bool expects_forget(const verb_ref& verb) noexcept
{
    const block_header& header = header_of(verb.block);
    return header.opcode == DEALLOCATE && header.format == 1 && header.primary_rc == OK &&
           block_as<appc_deallocate>(verb.block).forget_callback != 0;
}

void send_verb(node& n, path_record& path, verb_ref verb, std::span<const u8> data)
{
    const u32 buf_len = HEADER_BYTES + verb.layout.node_length;
    const u32 msg_len = buf_len + static_cast<u32>(data.size());
    u8* const frame = n.output->add(path.client, frame_kind::message, path.number, msg_len);
    if (frame == nullptr) {
        lose(n, path);
        return;
    }

    verb_message_header header = verb.header;
    header.dest_corr = verb.header.src_corr;
    header.src_corr = path.user != nullptr ? path.user->id : 0;
    header.buf_len = buf_len;
    header.msg_len = msg_len;
    std::memcpy(frame, &header, sizeof header);

    u8* const block = frame + HEADER_BYTES;
    std::memcpy(block, verb.block, verb.layout.length);
    std::memset(block + verb.layout.length, 0, static_cast<u32>(verb.layout.node_length - verb.layout.length));
    widen_block(block, verb.layout);
    if (!data.empty())
        std::memcpy(frame + buf_len, data.data(), data.size());
}

void send_datagram(node& n, client_id client, const appl_ready_datagram& datagram)
{
    if (u8* const frame = n.output->add(client, frame_kind::datagram, 0, sizeof datagram))
        std::memcpy(frame, &datagram, sizeof datagram);
}

}  // namespace

void answer(node& n, path_record& path, verb_ref verb, std::span<const u8> data)
{
    if (path.failed)
        return;
    send_verb(n, path, verb, data);
    if (!expects_forget(verb))
        return;
    // Each conversation has a session of its own, which is unbound with it.
    alignas(block_header) u8 block[FORGET_BYTES] = {};
    std::memcpy(block, verb.block, sizeof(block_header));
    header_of(block).opcode = IMPLIED_FORGET;
    header_of(block).format = 0;
    block[FORGET_TYPE_AT] = APPC_FORGET_UNBIND;
    send_verb(n, path, {verb.header, find_verb(IMPLIED_FORGET)->format[0], block}, {});
}

void answer_waiter(node& n, conv_side& side, return_codes codes)
{
    set_codes(side.waiter.block, codes.primary, codes.secondary);
    put_status(side, side.waiter.block);
    side.waiting = waits_for::nothing;
    answer(n, *side.owner->path, side.waiter);
}

void put_status(conv_side& side, u8* block) noexcept
{
    switch (header_of(block).opcode) {
    case SEND_DATA:
        block_as<appc_send_data>(block).rts_rcvd = take_turn_wanted(side);
        block_as<appc_send_data>(block).expd_rcvd = 0;
        break;
    case CONFIRM:
        block_as<appc_confirm>(block).rts_rcvd = take_turn_wanted(side);
        block_as<appc_confirm>(block).expd_rcvd = 0;
        break;
    case SEND_ERROR:
        block_as<appc_send_error>(block).rts_rcvd = take_turn_wanted(side);
        block_as<appc_send_error>(block).expd_rcvd = 0;
        break;
    default: break;
    }
}

void send_path_failed(node& n, client_id client, u32 path_number)
{
    n.output->add(client, frame_kind::path_failed, path_number, 0);
}

void send_path_failed(node& n, const path_record& path)
{
    send_path_failed(n, path.client, path.number);
}

void send_ready(node& n, const attach& offered)
{
    appl_ready_datagram datagram{};
    datagram.header = {sizeof datagram, DATAGRAM_APPL_READY};
    datagram.app_rdy_status = VSM_ST_READY;
    datagram.tp_handle = offered.tp_handle;
    datagram.attach_addr = NODE_ADDRESS;
    datagram.attach_corr = offered.id;
    std::memcpy(datagram.tp_name, offered.side->program.data(), sizeof datagram.tp_name);
    send_datagram(n, offered.offered_to, datagram);
}

void send_announcement_failed(node& n, client_id client, u32 tp_handle)
{
    appl_ready_datagram datagram{};
    datagram.header = {sizeof datagram, DATAGRAM_APPL_READY};
    datagram.app_rdy_status = VSM_ST_FAILED;
    datagram.tp_handle = tp_handle;
    std::memset(datagram.tp_name, EBCDIC_BLANK, sizeof datagram.tp_name);
    send_datagram(n, client, datagram);
}

}  // namespace tessaly::node
