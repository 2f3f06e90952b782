// Nothing of a message is believed before it has been compared with what arrived.
#include "localnode/engine/verbs.h"

#include "localnode/engine/allocate.h"
#include "localnode/engine/conversation_verbs.h"
#include "localnode/engine/inquiries.h"
#include "localnode/engine/layouts.h"
#include "localnode/engine/replies.h"
#include "localnode/engine/tp_server.h"
#include "localnode/engine/tps.h"

#include <cstring>

namespace tessaly::node {

namespace {

constexpr u32 HEADER_BYTES = sizeof(verb_message_header);

constexpr block_format TP_STARTED_LAYOUT = {sizeof(appc_tp_started), sizeof(appc_tp_started), 0, 0};
constexpr block_format RECEIVE_ALLOCATE_LAYOUT = {sizeof(appc_receive_allocate), sizeof(appc_receive_allocate), 0, 0};
constexpr block_format NO_LAYOUT = {};

// The layout in which a verb travels; one that does not exist for verbs that never come here like this.
const block_format& travelling_layout(const verb_row& row, u8 format) noexcept
{
    switch (row.send) {
    case send_rule::never: return NO_LAYOUT;
    case send_rule::allocate: return format == 0 ? row.format[0] : NO_LAYOUT;
    case send_rule::tp_started: return format == 1 ? TP_STARTED_LAYOUT : NO_LAYOUT;
    case send_rule::receive_allocate: return format == 1 ? RECEIVE_ALLOCATE_LAYOUT : NO_LAYOUT;
    case send_rule::whole_block:
    case send_rule::deallocate:
    case send_rule::set_tp_properties: return format < 2 ? row.format[format] : NO_LAYOUT;
    }
    return NO_LAYOUT;
}

bool read_header(const frame& input, request& verb) noexcept
{
    if (input.block.size() < HEADER_BYTES || input.block.size() > VAV_MAX_SIZE || input.data.size() > 2 * 0xFFFF)
        return false;
    const auto& header = *reinterpret_cast<const verb_message_header*>(input.block.data());
    verb.header = &header;
    return header.buf_len == input.block.size() && header.msg_len == input.block.size() + input.data.size() &&
           header.kind == VERB_MESSAGE_KIND && header.code == VERB_MESSAGE_CODE;
}

bool read_block(const frame& input, request& verb) noexcept
{
    const std::span<const u8> block = input.block.subspan(HEADER_BYTES);
    if (block.size() < sizeof(appc_header))
        return false;
    verb.row = find_verb(load<u16>(block.data(), offsetof(appc_header, opcode)));
    if (verb.row == nullptr)
        return false;
    verb.layout = &travelling_layout(*verb.row, block[offsetof(appc_header, format)]);
    if (!verb.layout->exists() || block.size() < verb.layout->node_length)
        return false;
    copy_narrowed(verb.block, block.data(), *verb.layout);
    verb.data = input.data;
    return true;
}

// How the data that came agree with the lengths in the block. A program that gives a length but no address sends none.
enum class data_check : u8 { sound, missing, malformed };

data_check check_data(const request& verb) noexcept
{
    if (verb.row->sent[0].length_at == 0)
        return verb.data.empty() ? data_check::sound : data_check::malformed;
    const auto named = [&verb](const data_buffer& buffer) -> u32 {
        return buffer.length_at == 0 ? 0 : load<u16>(verb.block, buffer.length_at);
    };
    const u32 first = named(verb.row->sent[0]);
    const u32 second = named(verb.row->sent[1]);
    const std::size_t came = verb.data.size();
    if (came == first + second)
        return data_check::sound;
    return came == 0 || came == first || came == second ? data_check::missing : data_check::malformed;
}

bool starts_tp(u16 opcode) noexcept
{
    return opcode == TP_STARTED || opcode == RECEIVE_ALLOCATE;
}

// Every verb of the catalogue that can be done has its line here or, when it belongs to a conversation, in readings.
verdict act_on(node& n, request& verb)
{
    switch (verb.row->opcode) {
    case TP_STARTED: return tp_started(n, verb);
    case RECEIVE_ALLOCATE: return receive_allocate(n, verb);
    case TP_ENDED: return tp_ended(n, verb);
    case SET_TP_PROPERTIES: return set_tp_properties(verb);
    case GET_TP_PROPERTIES: return get_tp_properties(n, verb);
    case GET_LU_STATUS: return get_lu_status(n, verb);
    case ALLOCATE: return allocate(n, verb);
    case SEND_CONVERSATION: return send_conversation(n, verb);
    case CANCEL_CONV: return cancel_conversation(n, verb);
    default: return verb.row->conv_verb ? conversation_verb(n, verb) : not_supported(verb);
    }
}

// The path on which a verb came, and its TP by the correlator that the node gave it: no search as long as both fit.
void find_sender(node& n, const frame& input, request& verb) noexcept
{
    tp* const named = n.tp_table.find(verb.header->dest_corr);
    if (named != nullptr && named->path->client == input.client && named->path->number == input.path) {
        verb.path = named->path;
        verb.user = named;
        return;
    }
    verb.path = find_path(n, input.client, input.path);
    verb.user = nullptr;
}

// Whether the header's correlators agree with what the path carries.
bool fits_path(const request& verb) noexcept
{
    if (verb.user == nullptr)
        return verb.path->user == nullptr;
    return !starts_tp(verb.row->opcode) && verb.header->src_corr == verb.user->client_corr;
}

verdict check_and_act(node& n, request& verb, data_check data)
{
    if (!starts_tp(verb.row->opcode) && (verb.user == nullptr || !is_tp_id(header_of(verb.block).tp_id, *verb.user)))
        return refuse(verb, PARAMETER_CHECK, SEC_BAD_TP_ID);
    if (data == data_check::missing)
        return refuse(verb, PARAMETER_CHECK, APPC_SEC_INVALID_DATA_SEGMENT);
    set_codes(verb.block, OK, SEC_NONE);
    return act_on(n, verb);
}

void refuse_message(node& n, const frame& input)
{
    if (path_record* const path = find_path(n, input.client, input.path))
        fail_path(n, *path);
    else
        send_path_failed(n, input.client, input.path);
}

// What no verb of the catalogue is.
void take_other(node& n, const frame& input)
{
    path_record* const path = find_path(n, input.client, input.path);
    if (path == nullptr || path->user != nullptr || !is_pip_request(input))
        refuse_message(n, input);
    else if (!path->failed)
        extract_pip(n, *path, input);
}

}  // namespace

void take_verb(node& n, const frame& input)
{
    request verb;
    if (!read_header(input, verb) || !read_block(input, verb)) {
        take_other(n, input);
        return;
    }
    find_sender(n, input, verb);
    if (verb.path != nullptr && verb.path->failed)
        return;
    const data_check data = check_data(verb);
    if (verb.path == nullptr || data == data_check::malformed || !fits_path(verb)) {
        refuse_message(n, input);
        return;
    }
    if (check_and_act(n, verb, data) == verdict::answer)
        begin_answer(n, *verb.path, verb, 0);
}

}  // namespace tessaly::node
