// GET_TYPE, GET_STATE, GET_ATTRIBUTES and TEST_RTS answer from the side's own record.
#include "localnode/engine/inquiries.h"

#include "localnode/engine/transfer.h"

#include <cstring>

namespace tessaly::node {

namespace {

void put_attributes(const conv_side& side, request& verb) noexcept
{
    auto& block = block_as<appc_get_attributes>(verb.block);
    block.conv_type = side.conv_type;
    block.sync_level = side.sync_level;
    put(block.mode_name, side.mode);
    put(block.net_name, network_name());
    put(block.lu_name, lu_name(side.local_lu));
    put(block.lu_alias, side.local_lu);
    put(block.plu_alias, side.partner_lu);
    put(block.plu_un_name, lu_name(side.partner_lu));
    put(block.fqplu_name, full_name(side.partner_lu));
    put(block.user_id, side.user);
    block.conv_group_id = 0;
    block.conv_corr_len = 0;
    if (block.format == 0)
        return;
    block.luw_id = side.owner->protected_luw;
    std::memset(block.sess_id, 0, sizeof block.sess_id);
    std::memcpy(block.sess_id, &side.id, sizeof side.id);
}

}  // namespace

verdict inquire(conv_side& side, request& verb)
{
    switch (verb.row->opcode) {
    case GET_TYPE: block_as<appc_get_type>(verb.block).conv_type = side.conv_type; break;
    case GET_STATE: block_as<appc_get_state>(verb.block).conv_state = static_cast<u8>(side.state); break;
    case GET_ATTRIBUTES: put_attributes(side, verb); break;
    case TEST_RTS:
        if (take_turn_wanted(side) == 0)
            set_codes(verb.block, UNSUCCESSFUL, SEC_NONE);
        break;
    default: break;
    }
    return verdict::answer;
}

}  // namespace tessaly::node
