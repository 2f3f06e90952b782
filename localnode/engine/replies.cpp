// Builds what the node sends, straight into the frame that goes out.
#include "localnode/engine/replies.h"

#include "common/ebcdic.h"
#include "localnode/engine/layouts.h"
#include "localnode/engine/pacing.h"
#include "localnode/engine/transfer.h"
#include "wire/datagrams.h"

#include <cstring>

namespace tessaly::node {

namespace {

constexpr u32 HEADER_BYTES = sizeof(verb_message_header);
constexpr u32 FORGET_BYTES = find_verb(IMPLIED_FORGET)->format[0].length;
constexpr u32 FORGET_TYPE_AT = 24;

// Where the verb tells that the partner wants the turn, and that expedited data wait; zeros: nowhere.
constexpr status_bytes status_of(u16 opcode) noexcept
{
    switch (opcode) {
    case SEND_DATA: return {offsetof(appc_send_data, rts_rcvd), offsetof(appc_send_data, expd_rcvd)};
    case CONFIRM: return {offsetof(appc_confirm, rts_rcvd), offsetof(appc_confirm, expd_rcvd)};
    case SEND_ERROR: return {offsetof(appc_send_error, rts_rcvd), offsetof(appc_send_error, expd_rcvd)};
    case RECEIVE_AND_WAIT:
    case RECEIVE_AND_POST:
    case RECEIVE_IMMEDIATE: return {offsetof(appc_receive, rts_rcvd), offsetof(appc_receive, expd_rcvd)};
    case SEND_EXPEDITED_DATA:
        return {offsetof(appc_send_expedited_data, rts_rcvd), offsetof(appc_send_expedited_data, expd_rcvd)};
    case RECEIVE_EXPEDITED_DATA:
        return {offsetof(appc_receive_expedited_data, rts_rcvd), offsetof(appc_receive_expedited_data, expd_rcvd)};
    default: return {};
    }
}

// Whatever is still sent on the path stops at send_verb.
void lose(node& n, path_record& path) noexcept
{
    path.failed = true;
    n.lost.append(path);
}

// Whether the library keeps the DEALLOCATE for an implied forget: byte 32 tells that the program wants one.
bool expects_forget(const verb_ref& verb) noexcept
{
    const block_header& header = header_of(verb.block);
    return header.opcode == DEALLOCATE && header.format == 1 && header.primary_rc == OK &&
           block_as<appc_deallocate>(verb.block).forget_callback != 0;
}

// Every answer copies one; unrolled it costs a third.
void copy_header(verb_message_header& to, const verb_message_header& from) noexcept
{
    auto* dest = reinterpret_cast<u8*>(&to);
    const auto* source = reinterpret_cast<const u8*>(&from);
    static_assert(HEADER_BYTES % BLOCK_STEP == 0);
#pragma GCC unroll 8
    for (u32 at = 0; at < HEADER_BYTES; at += BLOCK_STEP)
        std::memcpy(dest + at, source + at, BLOCK_STEP);
}

// Result: where the data go; null when the path has failed or there is no memory.
u8* send_verb(node& n, path_record& path, verb_ref verb, u32 data_bytes)
{
    const block_format& layout = verb.layout;
    const u32 buf_len = HEADER_BYTES + layout.node_length;
    u8* const frame = begin_message(n, path, buf_len + data_bytes);
    if (frame == nullptr)
        return nullptr;

    auto& header = *reinterpret_cast<verb_message_header*>(frame);
    copy_header(header, verb.header);
    header.dest_corr = verb.header.src_corr;
    header.src_corr = path.user != nullptr ? path.user->id : 0;
    header.buf_len = buf_len;
    header.msg_len = buf_len + data_bytes;

    copy_widened(frame + HEADER_BYTES, verb.block, layout);
    return frame + buf_len;
}

// Each conversation has a session of its own, which is unbound with it.
void send_forget(node& n, path_record& path, verb_ref deallocate)
{
    alignas(block_header) u8 block[FORGET_BYTES] = {};
    std::memcpy(block, deallocate.block, sizeof(block_header));
    header_of(block).opcode = IMPLIED_FORGET;
    header_of(block).format = 0;
    block[FORGET_TYPE_AT] = APPC_FORGET_UNBIND;
    send_verb(n, path, {deallocate.header, find_verb(IMPLIED_FORGET)->format[0], block}, 0);
}

}  // namespace

u8* begin_message(node& n, path_record& path, u32 bytes)
{
    if (path.failed)
        return nullptr;
    u8* const frame = n.output->add(path.client, frame_kind::message, path.number, bytes);
    if (frame == nullptr)
        lose(n, path);
    return frame;
}

bool send_datagram(node& n, client_id client, std::span<const u8> datagram)
{
    u8* const frame = n.output->add(client, frame_kind::datagram, 0, static_cast<u32>(datagram.size()));
    if (frame != nullptr)
        std::memcpy(frame, datagram.data(), datagram.size());
    return frame != nullptr;
}

u8* begin_answer(node& n, path_record& path, verb_ref verb, u32 data_bytes)
{
    u8* const data = send_verb(n, path, verb, data_bytes);
    if (expects_forget(verb))
        send_forget(n, path, verb);
    return data;
}

void answer(node& n, path_record& path, verb_ref verb, std::span<const u8> data)
{
    u8* const to = begin_answer(n, path, verb, static_cast<u32>(data.size()));
    if (to != nullptr && !data.empty())
        std::memcpy(to, data.data(), data.size());
}

void answer_waiter(node& n, conv_side& side, return_codes codes)
{
    set_codes(side.waiter.block, codes.primary, codes.secondary);
    put_status(side, side.waiter.block);
    side.waiting = waits_for::nothing;
    forget_hold(side);
    answer(n, *side.owner->path, side.waiter);
}

void put_status(conv_side& side, u8* block) noexcept
{
    const status_bytes at = status_of(header_of(block).opcode);
    if (at.first_at == 0)
        return;
    block[at.first_at] = take_turn_wanted(side);
    block[at.second_at] = side.expedited.bytes != 0;
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

bool send_start_program(node& n, const attach& arrived)
{
    program_to_start asked;
    put(asked.tp_name, arrived.side->program);
    put(asked.lu_alias, arrived.side->local_lu);
    u8* const frame = n.output->add(0, frame_kind::start_program, arrived.id, sizeof asked);
    if (frame != nullptr)
        std::memcpy(frame, &asked, sizeof asked);
    return frame != nullptr;
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
