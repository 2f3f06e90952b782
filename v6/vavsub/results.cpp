#include "v6/vavsub/results.h"

#include "common/copy_block.h"
#include "common/ebcdic.h"
#include "common/export.h"
#include "common/invariant.h"
#include "v6/records/modules.h"
#include "verbs/block.h"
#include "verbs/catalogue.h"

#include <tessaly/layout.h>

#include <algorithm>
#include <cstring>

namespace tessaly {

namespace {

struct result_copy {
    void* app;
    const void* answer;
    const verb_row& verb;
    u8 format;  // the application's
};

void copy_codes(const result_copy& copy) noexcept
{
    set_codes(copy.app, header_of(copy.answer).primary_rc, header_of(copy.answer).secondary_rc);
}

void copy_byte(const result_copy& copy, u16 at) noexcept
{
    store(copy.app, at, load<u8>(copy.answer, at));
}

// The whole block, but for what belongs to the application: the fields at these offsets stay.
template <typename... Offsets>
void copy_whole(const result_copy& copy, Offsets... kept) noexcept
{
    const u16 length = copy.verb.format[copy.format].length;
    if (!invariant(length != VAV_INVALID_VERB, VAVSUB, "verb_data->length != VAV_INVALID_VERB"))
        return;
    [[maybe_unused]] const u32 own[] = {load<u32>(copy.app, kept)..., 0};
    copy_block(copy.app, copy.answer, length);
    [[maybe_unused]] u32 next = 0;
    (store<u32>(copy.app, kept, own[next++]), ...);
}

// The format-0 block of a mapped SEND_DATA has no second status byte.
void copy_send_status(const result_copy& copy) noexcept
{
    const bool short_form = copy.verb.opcode == SEND_DATA && copy.format == 0 &&
                            (header_of(copy.app).opext & APPC_MAPPED_CONVERSATION) != 0;
    copy_codes(copy);
    copy_byte(copy, copy.verb.status.first_at);
    if (!short_form)
        copy_byte(copy, copy.verb.status.second_at);
}

void copy_group_id(const result_copy& copy) noexcept
{
    copy_codes(copy);
    block_as<appc_send_conversation>(copy.app).conv_group_id =
        block_as<appc_send_conversation>(copy.answer).conv_group_id;
}

// An ALLOCATE answer has the 188-byte layout; an application's format 0 has its own.
void copy_allocate(const result_copy& copy) noexcept
{
    using before = appc_allocate_format_0;
    using after = appc_allocate;
    if (copy.format != 0) {
        copy_whole(copy, u16{offsetof(after, pip_dptr)});
        header_of(copy.app).format = copy.format;
        return;
    }
    auto* app = static_cast<u8*>(copy.app);
    const auto* answer = static_cast<const u8*>(copy.answer);
    std::memcpy(app, answer, offsetof(before, rtn_ctl) + 1);
    std::memcpy(app + offsetof(before, plu_alias), answer + offsetof(after, plu_alias),
                offsetof(before, pip_dptr) - offsetof(before, plu_alias));
    std::memcpy(app + offsetof(before, reserved_156), answer + offsetof(after, reserved_160),
                sizeof(before) - offsetof(before, reserved_156));
}

// The implied-forget fields of format 1 stay the application's own in either case.
void copy_deallocate(const result_copy& copy) noexcept
{
    if (header_of(copy.answer).format == 0)
        invariant(copy.format == 0, VAVSUB, "format == 0");
    else
        invariant(copy.format == 1, VAVSUB, "format == 1");
    const void* log_data = block_as<appc_deallocate>(copy.app).dptr;
    std::memcpy(copy.app, copy.answer, copy.verb.format[0].length);
    block_as<appc_deallocate>(copy.app).dptr = log_data;
    header_of(copy.app).format = copy.format;
}

void copy_tp_started(const result_copy& copy) noexcept
{
    std::memcpy(copy.app, copy.answer, offsetof(appc_tp_started, reserved_92));
    header_of(copy.app).format = copy.format;
}

void copy_receive_allocate(const result_copy& copy) noexcept
{
    if (copy.format == 0) {
        auto& app = block_as<appc_receive_allocate>(copy.app);
        const auto& answer = block_as<appc_receive_allocate>(copy.answer);
        std::memcpy(copy.app, copy.answer, offsetof(appc_receive_allocate, conv_group_id));
        app.duplex_type = answer.duplex_type;
        std::memcpy(app.security_profile, answer.security_profile, sizeof app.security_profile);
        app.pip_dlen = answer.pip_dlen;
    } else {
        copy_whole(copy);
    }
    header_of(copy.app).format = copy.format;
}

template <typename... Identifiers>
void copy_and_unpack(const result_copy& copy, Identifiers... at) noexcept
{
    copy_whole(copy);
    (vav_unsquidge_luwid(static_cast<u8*>(copy.app) + at), ...);
}

void copy_set_tp_properties(const result_copy& copy) noexcept
{
    copy_whole(copy);
    auto& app = block_as<appc_set_tp_properties>(copy.app);
    if (static_cast<u8>(app.set_prot_id) == 1)
        vav_unsquidge_luwid(reinterpret_cast<u8*>(&app.prot_id));
    if (static_cast<u8>(app.set_unprot_id) == 1)
        vav_unsquidge_luwid(reinterpret_cast<u8*>(&app.unprot_id));
}

void copy_by_rule(const result_copy& copy) noexcept
{
    const bool format_1 = copy.format == 1;
    switch (copy.verb.result) {
    case result_rule::whole_block: return copy_whole(copy);
    case result_rule::send_status: return copy_send_status(copy);
    case result_rule::group_id: return copy_group_id(copy);
    case result_rule::receive: return copy_whole(copy, u16{offsetof(appc_receive, dptr)}, u16{offsetof(appc_receive, callback)});
    case result_rule::own_pointer:
        return copy_whole(copy, copy.verb.post_callback != 0 ? copy.verb.post_callback : copy.verb.received_into);
    case result_rule::allocate: return copy_allocate(copy);
    case result_rule::deallocate: return copy_deallocate(copy);
    case result_rule::tp_started: return copy_tp_started(copy);
    case result_rule::receive_allocate: return copy_receive_allocate(copy);
    case result_rule::get_attributes:
        return format_1 ? copy_and_unpack(copy, offsetof(appc_get_attributes, luw_id)) : copy_whole(copy);
    case result_rule::get_tp_properties:
        return format_1 ? copy_and_unpack(copy, offsetof(appc_get_tp_properties, luw_id),
                                          offsetof(appc_get_tp_properties, unprot_luw_id))
                        : copy_and_unpack(copy, offsetof(appc_get_tp_properties, luw_id));
    case result_rule::set_tp_properties: return copy_set_tp_properties(copy);
    }
}

}  // namespace

void vav_copy_vcb(void* app_vcb, const void* answer_vcb, const verb_row& verb, u8 format) noexcept
{
    copy_by_rule({app_vcb, answer_vcb, verb, format});
    header_of(app_vcb).opcode = verb.opcode;  // decides what is called: never the node's word
}

void vav_unsquidge_luwid(u8* luwid) noexcept
{
    auto& id = *reinterpret_cast<appc_luw_id*>(luwid);
    const u32 used = std::min<u32>(id.fq_lu_name_len, sizeof id.fq_lu_name);
    std::memmove(id.instance, id.fq_lu_name + used, sizeof id.instance + sizeof id.sequence);
    std::memset(id.fq_lu_name + used, EBCDIC_BLANK, sizeof id.fq_lu_name - used);
}

}  // namespace tessaly

extern "C" TESSALY_EXPORT void vav_to_hex_string(char* out, unsigned int count, const unsigned char* bytes)
{
    constexpr char digits[] = "0123456789ABCDEF";
    for (unsigned int i = 0; i < count; ++i) {
        *out++ = digits[bytes[i] >> 4];
        *out++ = digits[bytes[i] & 0x0F];
    }
    *out = '\0';
}
