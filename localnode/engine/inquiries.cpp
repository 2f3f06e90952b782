// They answer from the side's own record, or count the sides.
#include "localnode/engine/inquiries.h"

#include "localnode/engine/asides.h"
#include "localnode/engine/transfer.h"

#include <cstring>

namespace tessaly::node {

namespace {

void put_attributes(const lu_directory& lus, const conv_side& side, request& verb) noexcept
{
    auto& block = block_as<appc_get_attributes>(verb.block);
    block.conv_type = side.conv_type;
    block.sync_level = side.sync_level;
    put(block.mode_name, side.mode);
    put(block.net_name, lus.network_name(side.local_lu));
    put(block.lu_name, lus.lu_name(side.local_lu));
    put(block.lu_alias, side.local_lu);
    put(block.plu_alias, side.partner_lu);
    put(block.plu_un_name, lus.lu_name(side.partner_lu));
    put(block.fqplu_name, lus.full_name(side.partner_lu));
    put(block.user_id, side.user);
    block.conv_group_id = side.session;
    block.conv_corr_len = sizeof side.session;
    std::memset(block.conv_corr, 0, sizeof block.conv_corr);
    std::memcpy(block.conv_corr, &side.session, sizeof side.session);
    if (block.format == 0)
        return;
    block.luw_id = side.luw;
    std::memcpy(block.sess_id, block.conv_corr, sizeof block.sess_id);
}

}  // namespace

verdict inquire(const node& n, conv_side& side, request& verb)
{
    switch (verb.row->opcode) {
    case GET_TYPE: block_as<appc_get_type>(verb.block).conv_type = side.conv_type; break;
    case GET_STATE: block_as<appc_get_state>(verb.block).conv_state = static_cast<u8>(side.state); break;
    case GET_ATTRIBUTES: put_attributes(n.lus, side, verb); break;
    case TEST_RTS:
        if (take_turn_wanted(side) == 0)
            set_codes(verb.block, UNSUCCESSFUL, SEC_NONE);
        break;
    case TEST_RTS_AND_POST: return await_turn_request(side, verb);
    default: break;
    }
    return verdict::answer;
}

verdict get_lu_status(node& n, request& verb)
{
    auto& block = block_as<appc_get_lu_status>(verb.block);
    const auto asked = load<lu_alias>(block.plu_alias, 0);
    const bool every_partner = asked == ANY_LU || asked == lu_alias{};
    const std::optional<lu_alias> partner = n.lus.partner(asked.data());
    if (!partner)
        return refuse(verb, PARAMETER_CHECK, APPC_SEC_BAD_LU_ALIAS);
    u32 with_partner = 0;
    u32 all = 0;
    n.side_table.for_each([&](const conv_side& side) {
        if (side.local_lu != verb.user->lu)
            return;
        ++all;
        with_partner += every_partner || side.partner_lu == *partner;
    });
    block.active_sess = static_cast<u16>(std::min<u32>(with_partner, 0xFFFF));
    block.zero_sess = with_partner == 0;
    block.local_zero_sess = all == 0;
    return verdict::answer;
}

}  // namespace tessaly::node
