// The blocks of a program: how long, with what in them, and what they point to.
#include "fuzz/player.h"

#include <tessaly/tp_server.h>

namespace tessaly::fuzz {

namespace {

constexpr u32 HEADER_BYTES = offsetof(appc_header, tp_id);  // all that is read or written of a block that is no verb's

// Whether it turns an ALLOCATE of format 0 into one of format 1, which is longer.
constexpr bool promotes(entry through)
{
    return through != entry::async && through > entry::appc_p;
}

constexpr u32 TP_SERVER_BLOCKS[] = {
    sizeof(appc_register_tp_server), sizeof(appc_unregister_tp_server), sizeof(appc_register_tp), sizeof(appc_register_tp),
    sizeof(appc_query_attach),       sizeof(appc_start_appl),           sizeof(appc_start_appl),  sizeof(appc_start_appl),
};

u32 bytes_of(entry through, u16 opcode, u8 format)
{
    if (is_tp_servers(opcode))
        return TP_SERVER_BLOCKS[opcode - FIRST_TP_SERVER_OPCODE];
    const test::published_verb* row = test::published(opcode);
    if (row == nullptr)
        return HEADER_BYTES;
    return row->block_bytes[format != 0 || (opcode == ALLOCATE && promotes(through)) ? 1 : 0];
}

}  // namespace

// One that the verb has, unless it is wild.
u8 player::format_for(u16 opcode, bool wild)
{
    const test::published_verb* row = test::published(opcode);
    const u8 any = static_cast<u8>(in_.below(4));
    if (wild || row == nullptr)
        return any;
    if (row->format[0].length == 0 || row->format[1].length == 0)
        return row->format[0].length == 0;
    return any % 2;
}

// The server's handle, and mostly a definition that passes.
void player::fill_tp_server_block(u8* block, u16 opcode)
{
    constexpr u32 first_server = 1;
    store(block, offsetof(appc_unregister_tp_server, server_handle), in_.below(4) != 3 ? first_server : some_tp());
    if (opcode == NAP_REGISTER_TP && in_.below(4) != 0) {
        auto& fields = block_as<appc_register_tp>(block);
        std::memset(fields.lu_alias, ' ', sizeof fields.lu_alias);
        std::memset(fields.fqplu_name, 0x40, sizeof fields.fqplu_name);
        fields.tp_type = static_cast<u8>(1 + in_.below(3));
    }
    if (opcode == NAP_QUERY_ATTACH || (opcode >= NAP_START_APPL_OK && in_.below(2) == 0))
        store(block, offsetof(appc_start_appl, start_id), start_id_);
}

played_verb player::make(entry through, u16 opcode, bool wild)
{
    const u8 format = format_for(opcode, wild);
    const u32 bytes = bytes_of(through, opcode, format);
    played_verb verb{.opcode = opcode, .number = ++issued_, .block_bytes = bytes, .block = std::unique_ptr<u8[]>(new u8[bytes])};
    u8* block = verb.block.get();
    std::memset(block, 0, bytes);
    if (wild)
        in_.fill(block, bytes);
    for (u32 runs = wild ? 0 : in_.below(4); runs != 0; --runs) {
        const u32 from = in_.below(bytes), to = std::min(from + in_.below(66), bytes);
        std::fill(block + from, block + to, in_.number<u8>());
    }
    store(block, 0, opcode);
    block[3] = format;
    if (is_tp_servers(opcode)) {
        fill_tp_server_block(block, opcode);
    } else if (bytes >= sizeof(appc_header) && opcode != TP_STARTED) {
        if (!wild || in_.below(2) == 0)
            store(block, 16, some_tp());
        if (test::published(opcode)->conv_verb)
            store(block, 20, in_.below(4) == 0 ? 0u : 6 + in_.below(4));
        if (opcode == CANCEL_CONV && in_.below(2) == 0)
            std::memset(block + 12, 0, 8);
    }
    if (opcode == SET_TP_PROPERTIES) {
        auto& fields = block_as<appc_set_tp_properties>(block);
        fields.set_prot_id = static_cast<u16>(in_.below(3));
        fields.set_unprot_id = static_cast<u16>(in_.below(3));
        fields.prot_id.fq_lu_name_len = in_.number<u8>();
        fields.unprot_id.fq_lu_name_len = in_.number<u8>();
    }
    return verb;
}

// Each buffer is exactly as long as the block says.
void player::address_data(played_verb& verb, entry through)
{
    // clang-format off
    static constexpr data_place places[] = {
        {ALLOCATE, 152, 156},          {DEALLOCATE, 26, 28},          {SEND_DATA, 26, 28},
        {SEND_EXPEDITED_DATA, 26, 28}, {SEND_ERROR, 28, 32},          {SEND_CONVERSATION, 152, 156},
        {SEND_CONVERSATION, 186, 188}, {RECEIVE_AND_WAIT, 30, 36},    {RECEIVE_IMMEDIATE, 30, 36},
        {NAP_QUERY_ATTACH, 122, 128},  {NAP_QUERY_ATTACH, 132, 136},
        {RECEIVE_AND_POST, 30, 36},    {RECEIVE_EXPEDITED_DATA, 30, 36}, {RECEIVE_ALLOCATE_CPIC, 192, 196},
    };
    // clang-format on
    u8* block = verb.block.get();
    for (const auto& place : places) {
        if (place.opcode != verb.opcode)
            continue;
        const bool short_allocate = verb.block_bytes == sizeof(appc_allocate_format_0);
        const u32 before = place.opcode == ALLOCATE && short_allocate ? 1 : 0;  // two bytes further in front, and four
        const u32 bytes = in_.below(16) == 0 ? in_.number<u16>() : in_.below(40);
        const bool receives = place.length_at == 30;
        const bool nowhere = !receives && in_.below(8) == 0;
        u8* buffer = nowhere ? nullptr : verb.data.emplace_back(new u8[bytes]).get();
        if (buffer != nullptr)
            std::memset(buffer, 0xDA, bytes);
        if (place.opcode == RECEIVE_ALLOCATE_CPIC)
            store<u32>(block, place.length_at, bytes / TP_NAME_BYTES);
        else
            store(block, place.length_at - 2 * before, static_cast<u16>(bytes));
        store(block, place.address_at - 4 * before, buffer);
        if (receives)  // a trace shows so much of the buffer even before anything has come
            store(block, offsetof(appc_receive, dlen), static_cast<u16>(bytes / 2));
    }
    // Format 1 reads an ALLOCATE in the longer layout, whatever the entry.
    demand(verb.opcode != ALLOCATE || !promotes(through) || verb.block_bytes == sizeof(appc_allocate), "the block is long");
}

void player::address_routines(played_verb& verb, u32 version)
{
    u8* block = verb.block.get();
    const bool given = in_.below(4) != 0;
    if (verb.opcode == RECEIVE_AND_POST || verb.opcode == TEST_RTS_AND_POST) {
        store<appc_post>(block, verb.opcode == RECEIVE_AND_POST ? 40 : 28, given ? on_post : nullptr);
        verb.posts = given;
    }
    if (verb.opcode == NAP_REGISTER_TP_SERVER) {
        auto& fields = block_as<appc_register_tp_server>(block);
        fields.server_callback = given ? on_server_event : nullptr;
        fields.file_status_events %= 3;
    }
    if (verb.opcode == DEALLOCATE) {
        auto& fields = block_as<appc_deallocate>(block);
        fields.forget_callback = given ? on_forget : nullptr;
        fields.forget_value = FORGET_VALUE + verb.number;
        verb.may_forget = given && (fields.format == 1 || version == 1 || version == 2);
    }
}

}  // namespace tessaly::fuzz
