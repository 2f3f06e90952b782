// ALLOCATE sends an attach to the partner LU and completes at once; what becomes of the attach is told by later verbs.
// RECEIVE_ALLOCATE takes the attach that it names. SEND_CONVERSATION goes the whole way at once.
#include "localnode/engine/allocate.h"

#include "localnode/engine/attaches.h"
#include "localnode/engine/conversations.h"
#include "localnode/engine/tps.h"
#include "localnode/engine/transfer.h"

#include <cstring>

namespace tessaly::node {

namespace {

// SEND_CONVERSATION is read by the struct of ALLOCATE; what ALLOCATE alone has is reserved in it.
#define SAME_PLACE(field) static_assert(offsetof(appc_allocate, field) == offsetof(appc_send_conversation, field))
SAME_PLACE(conv_type);
SAME_PLACE(rtn_ctl);
SAME_PLACE(plu_alias);
SAME_PLACE(mode_name);
SAME_PLACE(tp_name);
SAME_PLACE(security);
SAME_PLACE(pwd);
SAME_PLACE(user_id);
SAME_PLACE(pip_dlen);
SAME_PLACE(fqplu_name);
#undef SAME_PLACE

constexpr u16 MOST_PIP_BYTES = 0x7FFF;

u32 wrong_parameter(const appc_allocate& block) noexcept
{
    const u8 type_of_verb = (block.opext & APPC_MAPPED_CONVERSATION) != 0 ? APPC_MAPPED : APPC_BASIC;
    if (block.conv_type != type_of_verb)
        return APPC_SEC_BAD_CONV_TYPE;
    if (block.sync_level > APPC_SYNC_CONFIRM)
        return APPC_SEC_BAD_SYNC_LEVEL;
    if (block.rtn_ctl > APPC_WHEN_SESSION_FREE)
        return APPC_SEC_BAD_RETURN_CONTROL;
    if (block.security > APPC_SECURITY_PGM)
        return APPC_SEC_BAD_SECURITY;
    if (block.pip_dlen > MOST_PIP_BYTES)
        return APPC_SEC_PIP_LEN_INCORRECT;
    return 0;
}

bool all_zero(const u8* bytes, u32 count) noexcept
{
    return std::all_of(bytes, bytes + count, [](u8 byte) { return byte == 0; });
}

struct destination {
    std::optional<lu_alias> lu;
    return_codes refusal;  // without an LU
};

destination find_partner_lu(const node& n, const appc_allocate& block) noexcept
{
    constexpr return_codes bad_alias{PARAMETER_CHECK, APPC_SEC_BAD_LU_ALIAS};
    if (!all_zero(block.plu_alias, sizeof block.plu_alias))
        return {n.lus.partner(block.plu_alias), bad_alias};
    if (is_blank(name_in<fq_lu_name>(block.fqplu_name)))
        return {std::nullopt, bad_alias};
    return {n.lus.of_full_name(block.fqplu_name), {ALLOCATION_ERROR, APPC_SEC_ALLOCATION_FAILURE_NO_RETRY}};
}

user_name user_for(const appc_allocate& block, const tp& allocator) noexcept
{
    switch (block.security) {
    case APPC_SECURITY_SAME: return allocator.user;
    case APPC_SECURITY_PGM: return name_in<user_name>(block.user_id);
    default: break;
    }
    user_name nobody;
    nobody.fill(EBCDIC_BLANK);
    return nobody;
}

void describe(conv_side& side, const request& verb, const lu_alias& local, const lu_alias& partner) noexcept
{
    const auto& block = block_as<appc_allocate>(verb.block);
    side.conv_type = block.conv_type;
    side.sync_level = block.sync_level;
    side.local_lu = local;
    side.partner_lu = partner;
    side.program = name_in<tp_name>(block.tp_name);
    side.mode = name_in<mode_name>(block.mode_name);
    side.user = user_for(block, *verb.user);
    side.luw = verb.user->protected_luw;
    side.pip_bytes = block.pip_dlen;
}

void fill_answer(const node& n, appc_receive_allocate& block, const conv_side& side) noexcept
{
    put(block.tp_name, side.program);
    put_tp_id(block.tp_id, *side.owner);
    block.conv_id = side.id;
    block.sync_level = side.sync_level;
    block.conv_type = side.conv_type;
    put(block.user_id, side.user);
    put(block.lu_alias, side.local_lu);
    put(block.plu_alias, side.partner_lu);
    put(block.mode_name, side.mode);
    block.conv_group_id = side.session;
    put(block.fqplu_name, n.lus.full_name(side.partner_lu));
    block.pip_incoming = side.pip_bytes != 0;
    block.duplex_type = 0;
    std::memset(block.security_profile, EBCDIC_BLANK, sizeof block.security_profile);
    block.pip_dlen = side.pip_bytes;
    put(block.fq_lu_name, n.lus.full_name(side.local_lu));
}

struct established {
    conv_side* side;
    return_codes refusal;  // without a side
};

// A new conversation as the block describes it; its attach is on its way.
established establish(node& n, const request& verb)
{
    const auto& block = block_as<appc_allocate>(verb.block);
    if (const u32 wrong = wrong_parameter(block); wrong != 0)
        return {nullptr, {PARAMETER_CHECK, wrong}};
    const destination to = find_partner_lu(n, block);
    if (!to.lu)
        return {nullptr, to.refusal};
    if (is_blank(name_in<tp_name>(block.tp_name)))
        return {nullptr, {ALLOCATION_ERROR, APPC_SEC_TP_NAME_NOT_RECOGNIZED}};
    conv_side* const side = begin_conversation(n, *verb.user);
    if (side == nullptr)
        return {nullptr, {ALLOCATION_ERROR, APPC_SEC_ALLOCATION_FAILURE_RETRY}};
    conv_side& incoming = *partner_of(n, *side);
    describe(*side, verb, verb.user->lu, *to.lu);
    describe(incoming, verb, *to.lu, verb.user->lu);
    if (!send_attach(n, incoming, verb)) {
        release(n, incoming);
        release(n, *side);
        return {nullptr, NOBODY_TAKES_IT};
    }
    return {side, {}};
}

bool are_whole_records(std::span<const u8> data) noexcept
{
    record_border border;
    return border.follow(data) && !border.in_record();
}

// False when there is no memory.
bool send_all(node& n, conv_side& side, std::span<const u8> data)
{
    conv_side* const partner = partner_of(n, side);
    if (partner == nullptr)
        return true;
    const bool basic = side.conv_type == APPC_BASIC;
    return (!basic || pass_records(side, *partner, data)) &&
           pass_on(n, *partner, basic ? nullptr : &data, indication::none, NORMAL_END);
}

}  // namespace

verdict allocate(node& n, request& verb)
{
    auto& block = block_as<appc_allocate>(verb.block);
    const established made = establish(n, verb);
    if (made.side == nullptr)
        return refuse(verb, made.refusal);
    block.conv_id = made.side->id;
    block.conv_group_id = made.side->session;
    return verdict::answer;
}

verdict send_conversation(node& n, request& verb)
{
    auto& block = block_as<appc_send_conversation>(verb.block);
    block_as<appc_allocate>(verb.block).sync_level = APPC_SYNC_NONE;
    const std::span<const u8> data = verb.data.subspan(block.pip_dlen);
    if (block.conv_type == APPC_BASIC && !are_whole_records(data))
        return refuse(verb, PARAMETER_CHECK, APPC_SEC_BAD_LL);
    const established made = establish(n, verb);
    if (made.side == nullptr)
        return refuse(verb, made.refusal);
    block.conv_group_id = made.side->session;
    if (!send_all(n, *made.side, data))
        return lose_conversation(n, *made.side, verb);
    release(n, *made.side);
    return verdict::answer;
}

verdict receive_allocate(node& n, request& verb)
{
    auto& block = block_as<appc_receive_allocate>(verb.block);
    attach* const taken = take_attach(n, block.conv_id, verb.path->client, verb.header->src_corr);
    if (taken == nullptr)
        return refuse(verb, {STATE_CHECK, SEC_ALLOCATE_FAILED});
    conv_side& side = *taken->side;
    tp* const acceptor = begin_tp(n, *verb.path, verb.header->src_corr);
    if (acceptor == nullptr) {
        refuse_attach(n, *taken);
        return refuse(verb, {UNEXPECTED_SYSTEM_ERROR, SEC_NO_MEMORY});
    }
    acceptor->lu = side.local_lu;
    acceptor->name = side.program;
    acceptor->user = side.user;
    acceptor->protected_luw = acceptor->unprotected_luw = side.luw;
    bind(side, *acceptor);
    fill_answer(n, block, side);
    return verdict::answer;
}

}  // namespace tessaly::node
