// The verb catalogue: one row per verb. Whoever sends, returns, converts or names a verb looks its row up once and follows it.
// A reader who knows a row knows the verb's whole life.
#pragma once

#include "common/types.h"
#include "verbs/codes.h"

#include <algorithm>
#include <array>

namespace tessaly {

// One format of a verb's block, in bytes; offsets in the caller's layout, 0 for none. {} = the verb has no such format.
struct block_format {
    u16 length;
    u16 node_length;
    u16 pointer_1;
    u16 pointer_2;

    constexpr bool exists() const noexcept { return length != 0; }
};

// What issuing the verb means. One case each in v6/vav/dispatch.
enum class issue_rule : u8 {
    on_tp,      // queued on its TP and sent
    starts_tp,  // makes a TP, and starts the library
    registers,  // told to the node by datagram, complete at once
    cancels,    // on its TP, or of a start that has no TP identifier yet
};

// How the block travels to the node. One case each in v6/vav/send.
enum class send_rule : u8 {
    whole_block,  // as it is
    allocate,     // always in the 188-byte layout, as format 0
    receive_allocate,
    deallocate,
    tp_started,
    set_tp_properties,  // logical unit of work identifiers are packed
    never,              // handled here, or sent under another opcode
};

// What of the answer reaches the application's block. One case each in v6/vavsub/results.
enum class result_rule : u8 {
    whole_block,
    send_status,   // the codes and at most two status bytes
    group_id,      // the codes and the conversation group
    receive,       // all but the data pointer and the callback
    own_pointer,   // all but the verb's one pointer field
    allocate,
    deallocate,
    tp_started,
    receive_allocate,
    get_attributes,
    get_tp_properties,
    set_tp_properties,
};

// A data buffer that the block names: where its length (u16) and its address lie in the block as it travels, before widening.
struct data_buffer {
    u16 length_at;
    u16 address_at;
};

// Where the status bytes of result_rule::send_status lie.
struct status_bytes {
    u16 first_at;
    u16 second_at;
};

// What the verb trace shows of a verb in this block, by offsets as the application has it.
struct trace_rule {
    u16 bytes = 0;               // of the block; 0: the trace does not know the verb
    u16 bytes_1 = bytes;         // in any format but 0
    u16 bytes_mapped = bytes;    // in format 0, when its opext says mapped and nothing else
    data_buffer data = {};
    data_buffer data_1 = data;   // in any format but 0
    u16 entry_bytes = 0;         // if any, the length is no u16 in bytes but a u32 that counts entries of so many
    bool in_responses = false;   // whether these show the data too

    constexpr u16 block_bytes(u8 opext, u8 format) const noexcept
    {
        if (format != 0)
            return bytes_1;
        return opext == APPC_MAPPED_CONVERSATION ? bytes_mapped : bytes;
    }

    constexpr const data_buffer& buffer(u8 format) const noexcept { return format == 0 ? data : data_1; }
};

struct verb_row {
    u16 opcode;
    const char* name;
    block_format format[2];
    bool conv_verb;  // carries a conversation identifier at offset 20
    issue_rule issue = issue_rule::on_tp;
    send_rule send = send_rule::whole_block;
    data_buffer sent[2] = {};   // sent behind the block
    u16 received_into = 0;      // address of the buffer that the answer's data goes to
    result_rule result = result_rule::whole_block;
    status_bytes status = {};
    u16 post_callback = 0;      // address of the routine that the block itself names for completion
    u16 travels = 0;            // node length of both formats where they travel alike; 0: as the format says
    trace_rule trace = {};

    // By what a block of this format is converted. A format that no verb has counts as 1.
    constexpr const block_format& layout(u8 of_format) const noexcept { return format[of_format == 0 ? 0 : 1]; }

    // Length of the block on its way to the node and back, in the node's layout.
    constexpr u16 travelling_length(u8 of_format) const noexcept
    {
        return travels != 0 ? travels : layout(of_format).node_length;
    }

    // Whether the block names its TP, by an identifier that the node knows by another.
    constexpr bool names_tp() const noexcept { return issue != issue_rule::starts_tp; }
};

inline constexpr verb_row verbs[] = {
    {.opcode = ALLOCATE, .name = "ALLOCATE", .format = {{188, 200, 0x9C, 0}, {188, 200, 0x9C, 0}}, .conv_verb = true,
     .send = send_rule::allocate, .sent = {{0x98, 0x9C}}, .result = result_rule::allocate,
     .trace = {.bytes = 184, .bytes_1 = 188, .data = {0x96, 0x98}, .data_1 = {0x98, 0x9C}, .in_responses = true}},
    {.opcode = CONFIRM, .name = "CONFIRM", .format = {{28, 28, 0, 0}, {28, 28, 0, 0}}, .conv_verb = true, .trace = {.bytes = 28}},
    {.opcode = CONFIRMED, .name = "CONFIRMED", .format = {{24, 24, 0, 0}, {}}, .conv_verb = true, .trace = {.bytes = 24}},
    {.opcode = DEALLOCATE, .name = "DEALLOCATE", .format = {{32, 40, 0x1C, 0}, {36, 48, 0x1C, 0}}, .conv_verb = true,
     .send = send_rule::deallocate, .sent = {{0x1A, 0x1C}}, .result = result_rule::deallocate,
     .trace = {.bytes = 32, .bytes_1 = 44, .data = {0x1A, 0x1C}, .in_responses = true}},
    {.opcode = FLUSH, .name = "FLUSH", .format = {{24, 24, 0, 0}, {}}, .conv_verb = true, .trace = {.bytes = 24}},
    {.opcode = GET_ATTRIBUTES, .name = "GET_ATTRIBUTES", .format = {{132, 132, 0, 0}, {164, 164, 0, 0}}, .conv_verb = true,
     .result = result_rule::get_attributes, .trace = {.bytes = 132, .bytes_1 = 164}},
    {.opcode = GET_TYPE, .name = "GET_TYPE", .format = {{28, 28, 0, 0}, {28, 28, 0, 0}}, .conv_verb = true,
     .trace = {.bytes = 28}},
    {.opcode = GET_STATE, .name = "GET_STATE", .format = {{28, 28, 0, 0}, {}}, .conv_verb = true, .trace = {.bytes = 28}},
    {.opcode = PREPARE_TO_RECEIVE, .name = "PREPARE_TO_RECEIVE", .format = {{28, 28, 0, 0}, {}}, .conv_verb = true,
     .trace = {.bytes = 28}},
    {.opcode = RECEIVE_AND_WAIT, .name = "RECEIVE_AND_WAIT", .format = {{48, 56, 0x24, 0}, {}}, .conv_verb = true,
     .received_into = 0x24, .result = result_rule::receive, .trace = {.bytes = 48, .data = {0x20, 0x24}, .in_responses = true}},
    {.opcode = RECEIVE_IMMEDIATE, .name = "RECEIVE_IMMEDIATE", .format = {{48, 56, 0x24, 0}, {}}, .conv_verb = true,
     .received_into = 0x24, .result = result_rule::receive, .trace = {.bytes = 48, .data = {0x20, 0x24}, .in_responses = true}},
    {.opcode = RECEIVE_AND_POST, .name = "RECEIVE_AND_POST", .format = {{48, 56, 0x24, 0}, {}}, .conv_verb = true,
     .received_into = 0x24, .result = result_rule::receive, .post_callback = 0x28,
     .trace = {.bytes = 48, .data = {0x20, 0x24}, .in_responses = true}},
    {.opcode = REQUEST_TO_SEND, .name = "REQUEST_TO_SEND", .format = {{24, 24, 0, 0}, {}}, .conv_verb = true,
     .trace = {.bytes = 24}},
    {.opcode = SEND_DATA, .name = "SEND_DATA", .format = {{36, 48, 0x1C, 0}, {36, 48, 0x1C, 0}}, .conv_verb = true,
     .sent = {{0x1A, 0x1C}}, .result = result_rule::send_status, .status = {0x18, 0x19},
     .trace = {.bytes = 44, .bytes_mapped = 36, .data = {0x1A, 0x1C}}},
    {.opcode = SEND_ERROR, .name = "SEND_ERROR", .format = {{36, 40, 0x20, 0}, {}}, .conv_verb = true,
     .sent = {{0x1C, 0x20}}, .result = result_rule::send_status, .status = {0x18, 0x1B},
     .trace = {.bytes = 36, .data = {0x1C, 0x20}}},
    {.opcode = SEND_EXPEDITED_DATA, .name = "SEND_EXPEDITED_DATA", .format = {{36, 48, 0x1C, 0}, {}}, .conv_verb = true,
     .sent = {{0x1A, 0x1C}}, .result = result_rule::send_status, .status = {0x18, 0x19},
     .trace = {.bytes = 36, .data = {0x1A, 0x1C}}},
    {.opcode = TEST_RTS, .name = "TEST_RTS", .format = {{28, 28, 0, 0}, {}}, .conv_verb = true, .trace = {.bytes = 28}},
    {.opcode = TP_ENDED, .name = "TP_ENDED", .format = {{24, 24, 0, 0}, {}}, .conv_verb = false, .trace = {.bytes = 24}},
    {.opcode = TP_STARTED, .name = "TP_STARTED", .format = {{112, 112, 0, 0}, {}}, .conv_verb = false,
     .issue = issue_rule::starts_tp, .send = send_rule::tp_started, .result = result_rule::tp_started,
     .travels = 112, .trace = {.bytes = 112}},
    {.opcode = RECEIVE_ALLOCATE, .name = "RECEIVE_ALLOCATE", .format = {{164, 164, 0, 0}, {164, 164, 0, 0}}, .conv_verb = false,
     .issue = issue_rule::starts_tp, .send = send_rule::receive_allocate,
     .result = result_rule::receive_allocate, .travels = 192, .trace = {.bytes = 164, .bytes_1 = 192}},
    {.opcode = GET_TP_PROPERTIES, .name = "GET_TP_PROPERTIES", .format = {{156, 156, 0, 0}, {184, 184, 0, 0}},
     .conv_verb = false, .result = result_rule::get_tp_properties, .trace = {.bytes = 156, .bytes_1 = 184}},
    {.opcode = SEND_CONVERSATION, .name = "SEND_CONVERSATION", .format = {{192, 208, 0x9C, 0xBC}, {}}, .conv_verb = false,
     .sent = {{0x98, 0x9C}, {0xBA, 0xBC}}, .result = result_rule::group_id, .trace = {.bytes = 192, .data = {0xBA, 0xBC}}},
    {.opcode = CANCEL_CONV, .name = "CANCEL_CONV", .format = {{24, 24, 0, 0}, {}}, .conv_verb = true,
     .issue = issue_rule::cancels, .trace = {.bytes = 24}},
    {.opcode = SET_TP_PROPERTIES, .name = "SET_TP_PROPERTIES", .format = {{100, 100, 0, 0}, {}}, .conv_verb = false,
     .send = send_rule::set_tp_properties, .result = result_rule::set_tp_properties, .trace = {.bytes = 100}},
    {.opcode = GET_LU_STATUS, .name = "GET_LU_STATUS", .format = {{40, 40, 0, 0}, {}}, .conv_verb = false,
     .trace = {.bytes = 40}},
    {.opcode = IMPLIED_FORGET, .name = "IMPLIED_FORGET", .format = {{28, 28, 0, 0}, {}}, .conv_verb = true},
    {.opcode = TEST_RTS_AND_POST, .name = "TEST_RTS_AND_POST", .format = {{32, 32, 0, 0}, {32, 32, 0, 0}}, .conv_verb = true,
     .result = result_rule::own_pointer, .post_callback = 0x1C, .trace = {.bytes = 32}},
    {.opcode = RECEIVE_EXPEDITED_DATA, .name = "RECEIVE_EXPEDITED_DATA", .format = {{40, 48, 0x24, 0}, {}}, .conv_verb = true,
     .received_into = 0x24, .result = result_rule::own_pointer,
     .trace = {.bytes = 40, .data = {0x20, 0x24}, .in_responses = true}},
    {.opcode = RECEIVE_ALLOCATE_CPIC, .name = "RECEIVE_ALLOCATE_CPIC", .format = {{200, 208, 0xC4, 0}, {200, 208, 0xC4, 0}},
     .conv_verb = false, .issue = issue_rule::starts_tp, .send = send_rule::never, .travels = 192,
     .trace = {.bytes = 200, .data = {0xC0, 0xC4}, .entry_bytes = 64}},
    {.opcode = REGISTER_CPIC_TP, .name = "REGISTER_CPIC_TP", .format = {{76, 76, 0, 0}, {}}, .conv_verb = false,
     .issue = issue_rule::registers, .send = send_rule::never, .trace = {.bytes = 76}},
    {.opcode = UNREGISTER_CPIC_TP, .name = "UNREGISTER_CPIC_TP", .format = {{76, 76, 0, 0}, {}}, .conv_verb = false,
     .issue = issue_rule::registers, .send = send_rule::never, .trace = {.bytes = 76}},
    {.opcode = RECEIVE_ALLOCATE_EX, .name = "RECEIVE_ALLOCATE_EX", .format = {{}, {192, 192, 0, 0}}, .conv_verb = false,
     .issue = issue_rule::starts_tp, .send = send_rule::never, .travels = 192, .trace = {.bytes = 192}},
};

// Opcodes lie in two ranges, each with its own exported tables.
inline constexpr u16 MAIN_OPCODES = 259;
inline constexpr u16 FIRST_2ND_OPCODE = 0xF100;
inline constexpr u16 SECOND_OPCODES = 4;

namespace catalogue_detail {

constexpr u16 slot_of(u16 opcode) noexcept
{
    if (opcode < MAIN_OPCODES)
        return opcode;
    const u16 second = static_cast<u16>(opcode - FIRST_2ND_OPCODE);
    return second < SECOND_OPCODES ? static_cast<u16>(MAIN_OPCODES + second) : 0;  // opcode 0 is no verb
}

inline constexpr auto rows = [] {
    std::array<const verb_row*, MAIN_OPCODES + SECOND_OPCODES> table{};
    for (const verb_row& verb : verbs)
        table[slot_of(verb.opcode)] = &verb;
    return table;
}();

}  // namespace catalogue_detail

// The verb's row, or null for an opcode that is no verb.
constexpr const verb_row* find_verb(u16 opcode) noexcept
{
    return catalogue_detail::rows[catalogue_detail::slot_of(opcode)];
}

static_assert(find_verb(SEND_DATA)->opcode == SEND_DATA && find_verb(RECEIVE_ALLOCATE_EX)->opcode == RECEIVE_ALLOCATE_EX);
static_assert(find_verb(0) == nullptr && find_verb(0x0015) == nullptr && find_verb(FIRST_TP_SERVER_OPCODE) == nullptr);

constexpr u16 longest_travelling_block() noexcept
{
    u16 longest = 0;
    for (const verb_row& verb : verbs)
        for (const u8 format : {u8{0}, u8{1}})
            longest = verb.send == send_rule::never ? longest : std::max(longest, verb.travelling_length(format));
    return longest;
}

// All three travel as RECEIVE_ALLOCATE.
constexpr bool is_receive_allocate(u16 opcode) noexcept
{
    return opcode == RECEIVE_ALLOCATE || opcode == RECEIVE_ALLOCATE_EX || opcode == RECEIVE_ALLOCATE_CPIC;
}

}  // namespace tessaly
