#include "v6/vav/send.h"

#include "common/copy_block.h"
#include "common/ebcdic.h"
#include "common/invariant.h"
#include "v6/records/main_cb.h"
#include "v6/records/modules.h"
#include "v6/vav3264/convert.h"
#include "verbs/catalogue.h"

#include <cstring>

namespace tessaly {

namespace {

// The 184-byte layout of an application, rebuilt in the 188 bytes that travel.
void widen_allocate(u8* dest, const u8* vcb) noexcept
{
    using before = appc_allocate_format_0;
    using after = appc_allocate;
    constexpr u32 names = offsetof(before, pip_dptr) - offsetof(before, plu_alias);
    constexpr u32 tail = sizeof(before) - offsetof(before, pip_dptr);
    static_assert(offsetof(after, plu_alias) + names == offsetof(after, reserved_154));
    static_assert(offsetof(after, pip_dptr) + tail == sizeof(after));

    std::memset(dest, 0, sizeof(after));
    std::memcpy(dest, vcb, offsetof(before, rtn_ctl) + 1);
    std::memcpy(dest + offsetof(after, plu_alias), vcb + offsetof(before, plu_alias), names);
    std::memcpy(dest + offsetof(after, pip_dptr), vcb + offsetof(before, pip_dptr), tail);
}

u16 copy_allocate(u8* dest, const void* vcb) noexcept
{
    if (header_of(vcb).format == 0)
        widen_allocate(dest, static_cast<const u8*>(vcb));
    else
        std::memcpy(dest, vcb, sizeof(appc_allocate));
    header_of(dest).format = 0;
    return sizeof(appc_allocate);
}

// Travels in format 1, with room for what the node returns and without the application's attach identifier.
u16 copy_receive_allocate(u8* dest, const void* vcb) noexcept
{
    const u32 given = header_of(vcb).format == 0 ? offsetof(appc_receive_allocate, conv_group_id)
                                                 : offsetof(appc_receive_allocate, reserved_164);
    std::memset(dest, 0, sizeof(appc_receive_allocate));
    std::memcpy(dest, vcb, given);
    header_of(dest).format = 1;
    block_as<appc_receive_allocate>(dest).reserved_164[0] = 1;
    return sizeof(appc_receive_allocate);
}

// The node learns whether there is an implied-forget callback, not where.
u16 copy_deallocate(u8* dest, const void* vcb) noexcept
{
    constexpr u16 format_0_length = find_verb(DEALLOCATE)->format[0].length;
    std::memcpy(dest, vcb, format_0_length);
    if (header_of(vcb).format == 0)
        return format_0_length;
    invariant(header_of(dest).format == 1, VAV, "((DEALLOCATE_FMT1 *)dest)->format == 1");
    store<u32>(dest, format_0_length, block_as<appc_deallocate>(vcb).forget_callback != nullptr);
    return find_verb(DEALLOCATE)->format[1].length;
}

u16 copy_tp_started(u8* dest, const void* vcb) noexcept
{
    std::memset(dest, 0, sizeof(appc_tp_started));
    std::memcpy(dest, vcb, offsetof(appc_tp_started, reserved_92));
    header_of(dest).format = 1;
    u8* flags = block_as<appc_tp_started>(dest).reserved_92;
    flags[0] = 0;
    flags[1] = 1;
    flags[2] = 1;
    return sizeof(appc_tp_started);
}

// The node takes a logical unit of work identifier without gap between the name and what follows it.
void pack_luwid(appc_luw_id& luwid, const char* text, u32 line) noexcept
{
    u32 used = luwid.fq_lu_name_len;
    if (!invariant(used <= sizeof luwid.fq_lu_name, VAV, text, line))
        used = sizeof luwid.fq_lu_name;
    constexpr u32 tail_bytes = sizeof luwid.instance + sizeof luwid.sequence;
    u8* name = luwid.fq_lu_name;
    std::memmove(name + used, luwid.instance, tail_bytes);
    std::memset(name + used + tail_bytes, EBCDIC_BLANK, sizeof luwid.fq_lu_name - used);
}

u16 copy_set_tp_properties(u8* dest, const void* vcb) noexcept
{
    auto& sent = block_as<appc_set_tp_properties>(dest);
    sent = block_as<appc_set_tp_properties>(vcb);
    if (sent.set_prot_id == 1)
        pack_luwid(sent.prot_id, "17 >= stp->prot_id.fq_lu_name_len", __LINE__);
    if (sent.set_unprot_id == 1)
        pack_luwid(sent.unprot_id, "17 >= stp->unprot_id.fq_lu_name_len", __LINE__);
    return sizeof(appc_set_tp_properties);
}

u16 copy_whole(u8* dest, const void* vcb, const block_format& format) noexcept
{
    copy_block(dest, vcb, format.length);
    return format.length;
}

// Copies an application's block as the node expects it; dest has room for it. Result: bytes that it takes there, in the
// caller's layout.
u16 vav_copy_verb_send(u8* dest, const void* vcb, const verb_row& verb, const block_format& format) noexcept
{
    switch (verb.send) {
    case send_rule::whole_block: return copy_whole(dest, vcb, format);
    case send_rule::allocate: return copy_allocate(dest, vcb);
    case send_rule::receive_allocate: return copy_receive_allocate(dest, vcb);
    case send_rule::deallocate: return copy_deallocate(dest, vcb);
    case send_rule::tp_started: return copy_tp_started(dest, vcb);
    case send_rule::set_tp_properties: return copy_set_tp_properties(dest, vcb);
    case send_rule::never: return 0;
    }
    return 0;
}

struct sent_data {
    const void* address;
    u32 bytes;
};

// Takes one buffer out of the copied block: an address means nothing to the node.
sent_data take_buffer(u8* block, const data_buffer& at) noexcept
{
    const auto* address = load<const void*>(block, at.address_at);
    const u32 bytes = load<u16>(block, at.length_at);
    store<u32>(block, at.address_at, 0);
    return address == nullptr || bytes == 0 ? sent_data{} : sent_data{address, bytes};
}

void fill_header(verb_message_header& header, const tpcb& tp, const pndcb& pend) noexcept
{
    clear_object(header);
    header.owner_link = static_cast<u32>(reinterpret_cast<std::uintptr_t>(&main_cb.message));
    header.dest_corr = tp.node_corr;
    header.kind = VERB_MESSAGE_KIND;
    header.src_corr = tp.handle;
    header.code = VERB_MESSAGE_CODE;
    header.pend_handle = pend.handle;
}

// Two buffers are two sends: the first carries the message and a buffer, the second the other buffer alone.
u16 send_with_data(u32 path, verb_message& message, const sent_data& first, const sent_data& second) noexcept
{
    const u32 contig_length = message.header.buf_len;
    message.header.msg_len = contig_length + first.bytes + second.bytes;
    const sent_data& behind = first.bytes != 0 ? first : second;
    const u16 status = vpm_send_ips(path, &message, contig_length, behind.address, behind.bytes);
    if (status != 0 || first.bytes == 0 || second.bytes == 0)
        return status;
    return vpm_send_ips(path, nullptr, 0, second.address, second.bytes);
}

// Widens the block where it lies. Result: bytes of header and block together.
u32 finish_block(verb_message& message, const verb_row& verb, const block_format& format, u32 length) noexcept
{
    if (verb.received_into != 0)
        store<u32>(message.block, verb.received_into, 0);
    for (u32 at = length; at < format.node_length; at += sizeof(u32))  // where padding comes to lie
        store<u32>(message.block, at, 0);
    return sizeof message.header + length + vav_make_vcb_64bit(message.block, format);
}

}  // namespace

u16 vav_send_verb(tpcb& tp, pndcb& pend) noexcept
{
    verb_message& message = main_cb.message;
    const verb_row& verb = *pend.verb;
    const block_format& format = verb.layout(pend.format);
    static_assert(longest_travelling_block() <= sizeof message.block);

    fill_header(message.header, tp, pend);
    const u32 length = vav_copy_verb_send(message.block, pend.vcb, verb, format);
    if (verb.names_tp())
        std::memcpy(header_of(message.block).tp_id, tp.node_tp_id, TP_ID_BYTES);
    if (format.pointer_1 == 0) {
        message.header.buf_len = sizeof message.header + length;
        return send_with_data(tp.path, message, {}, {});
    }

    sent_data data[2] = {};
    for (u32 i = 0; i < 2 && verb.sent[i].address_at != 0; ++i)
        data[i] = take_buffer(message.block, verb.sent[i]);
    message.header.buf_len = finish_block(message, verb, format, length);
    return send_with_data(tp.path, message, data[0], data[1]);
}

}  // namespace tessaly
