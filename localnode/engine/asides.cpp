// Expedited data: one message lies on the receiving side, one more waits with the SEND_EXPEDITED_DATA that brought it.
#include "localnode/engine/asides.h"

#include "localnode/engine/conversations.h"
#include "localnode/engine/replies.h"
#include "localnode/engine/transfer.h"

#include <cstring>

namespace tessaly::node {

namespace {

aside_verb& slot_of(conv_side& side, aside what) noexcept
{
    return side.asides[static_cast<u32>(what)];
}

void answer_aside(node& n, conv_side& side, aside what, return_codes codes)
{
    aside_verb& slot = slot_of(side, what);
    slot.waits = false;
    set_codes(slot.verb.block, codes.primary, codes.secondary);
    put_status(side, slot.verb.block);
    answer(n, *side.owner->path, slot.verb);
}

verdict keep_aside(conv_side& side, const request& verb, aside what) noexcept
{
    slot_of(side, what).verb.keep(verb);
    slot_of(side, what).waits = true;
    return verdict::waits;
}

void store(expedited_data& to, std::span<const u8> data) noexcept
{
    to.bytes = static_cast<u8>(data.size());
    std::memcpy(to.data, data.data(), data.size());
}

// A message longer than the buffer comes in pieces: nothing that a program has sent is lost.
std::span<const u8> take_part(expedited_data& from, expedited_data& part, u32 max_len) noexcept
{
    const u32 bytes = std::min<u32>(from.bytes, max_len);
    store(part, {from.data, bytes});
    from.bytes = static_cast<u8>(from.bytes - bytes);
    std::memmove(from.data, from.data + bytes, from.bytes);
    return {part.data, bytes};
}

// The partner's next message takes the place of the one that was received.
void let_next_in(node& n, conv_side& side)
{
    conv_side* const partner = partner_of(n, side);
    if (partner == nullptr || !slot_of(*partner, aside::expedited_room).waits)
        return;
    side.expedited = partner->held;
    answer_aside(n, *partner, aside::expedited_room, {});
}

void hand_over(node& n, conv_side& side, verb_ref verb)
{
    auto& block = block_as<appc_receive_expedited_data>(verb.block);
    expedited_data part;
    const std::span<const u8> data = take_part(side.expedited, part, block.max_len);
    if (side.expedited.bytes == 0)
        let_next_in(n, side);
    block.dlen = static_cast<u16>(data.size());
    set_codes(verb.block, OK, SEC_NONE);
    put_status(side, verb.block);
    answer(n, *side.owner->path, verb, data);
}

verdict send_expedited(node& n, conv_side& side, request& verb)
{
    conv_side* const partner = partner_of(n, side);
    if (partner == nullptr)
        return refuse(verb, side.ending);
    if (slot_of(side, aside::expedited_room).waits)
        return refuse(verb, UNSUCCESSFUL, SEC_NONE);
    if (partner->expedited.bytes != 0) {
        store(side.held, verb.data);
        return keep_aside(side, verb, aside::expedited_room);
    }
    store(partner->expedited, verb.data);
    if (aside_verb& receiver = slot_of(*partner, aside::expedited_data); receiver.waits) {
        receiver.waits = false;
        hand_over(n, *partner, receiver.verb);
    }
    put_status(side, verb.block);
    return verdict::answer;
}

verdict receive_expedited(node& n, conv_side& side, request& verb)
{
    auto& block = block_as<appc_receive_expedited_data>(verb.block);
    if (side.expedited.bytes != 0) {
        hand_over(n, side, verb);
        return verdict::answered;
    }
    block.dlen = 0;
    if (side.ending.primary != OK)
        return refuse(verb, side.ending);
    if (block.rtn_ctl != APPC_IMMEDIATE && !slot_of(side, aside::expedited_data).waits)
        return keep_aside(side, verb, aside::expedited_data);
    put_status(side, verb.block);
    return refuse(verb, UNSUCCESSFUL, SEC_NONE);
}

verdict ask_for_turn(node& n, conv_side& side)
{
    conv_side* const partner = partner_of(n, side);
    if (partner == nullptr)
        return verdict::answer;
    partner->turn_wanted = 1;
    if (slot_of(*partner, aside::turn_request).waits) {
        take_turn_wanted(*partner);
        answer_aside(n, *partner, aside::turn_request, {});
    }
    return verdict::answer;
}

}  // namespace

verdict signal(node& n, conv_side& side, request& verb)
{
    switch (verb.row->opcode) {
    case REQUEST_TO_SEND: return ask_for_turn(n, side);
    case SEND_EXPEDITED_DATA: return send_expedited(n, side, verb);
    case RECEIVE_EXPEDITED_DATA: return receive_expedited(n, side, verb);
    default: return not_supported(verb);
    }
}

verdict await_turn_request(conv_side& side, request& verb)
{
    if (take_turn_wanted(side) != 0)
        return verdict::answer;
    if (side.ending.primary != OK)
        return refuse(verb, side.ending);
    if (slot_of(side, aside::turn_request).waits)
        return refuse(verb, STATE_CHECK, bad_state_code(conv_verb::test_rts));
    return keep_aside(side, verb, aside::turn_request);
}

void end_asides(node& n, conv_side& side, return_codes codes)
{
    for (const aside what : {aside::turn_request, aside::expedited_data, aside::expedited_room})
        if (slot_of(side, what).waits)
            answer_aside(n, side, what, codes);
}

}  // namespace tessaly::node
