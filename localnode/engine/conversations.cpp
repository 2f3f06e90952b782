// Makes, binds and ends the sides of conversations.
#include "localnode/engine/conversations.h"

#include "localnode/engine/asides.h"
#include "localnode/engine/attaches.h"
#include "localnode/engine/pacing.h"
#include "localnode/engine/replies.h"
#include "localnode/engine/transfer.h"

namespace tessaly::node {

namespace {

conv_side* new_side(node& n, conv_state state)
{
    conv_side* const side = n.side_table.take();
    if (side == nullptr)
        return nullptr;
    init_link(*side);
    init_link(side->hold);
    side->most_unread = n.unread_bytes;
    side->owner = nullptr;
    side->partner = 0;
    side->arrival = nullptr;
    side->state = side->after_reply = state;
    side->waiting = waits_for::nothing;
    side->behind = indication::none;
    side->error = OK;
    side->ending = {};
    side->turn_wanted = 0;
    side->sent = {};
    for (aside_verb& each : side->asides)
        each.waits = false;
    side->expedited.bytes = 0;
    return side;
}

}  // namespace

conv_side* begin_conversation(node& n, tp& allocator)
{
    conv_side* const out = new_side(n, conv_state::send);
    if (out == nullptr)
        return nullptr;
    conv_side* const in = new_side(n, conv_state::receive);
    if (in == nullptr) {
        n.side_table.give_back(*out);
        return nullptr;
    }
    out->partner = in->id;
    in->partner = out->id;
    out->session = in->session = out->id;
    bind(*out, allocator);
    return out;
}

conv_side* partner_of(node& n, const conv_side& side) noexcept
{
    return n.side_table.find(side.partner);
}

void bind(conv_side& side, tp& acceptor)
{
    side.owner = &acceptor;
    acceptor.sides.append(side);
}

void unbind(conv_side& side)
{
    side.owner = nullptr;
    unlink(side.link);
}

void release(node& n, conv_side& side)
{
    if (side.arrival != nullptr)
        drop_attach(n, *side.arrival);
    if (is_linked(side.link))
        unlink(side.link);
    forget_hold(side);
    side.inbound.clear();
    n.side_table.give_back(side);
}

void leave(node& n, conv_side& side)
{
    end_asides(n, side, {CANCELLED, SEC_NONE});
    release(n, side);
}

void end_by_partner(node& n, conv_side& side, return_codes codes)
{
    if (side.arrival != nullptr && is_to_be_started(*side.arrival) && codes.primary != DEALLOC_NORMAL) {
        release(n, side);  // no program is started to be told of a failure
        return;
    }
    side.behind = indication::none;
    side.ending = codes;
    end_asides(n, side, codes);
    switch (side.waiting) {
    case waits_for::nothing: return;
    case waits_for::data: serve_receiver(n, side); return;
    case waits_for::next_arrival: answer_waiter(n, side, {}); return;
    case waits_for::confirmation:
    case waits_for::room:
        answer_waiter(n, side, codes);
        release(n, side);
        return;
    }
}

void end_side(node& n, conv_side& side, return_codes for_partner)
{
    if (conv_side* const partner = partner_of(n, side))
        end_by_partner(n, *partner, for_partner);
    release(n, side);
}

verdict lose_conversation(node& n, conv_side& side, request& verb)
{
    end_asides(n, side, {CANCELLED, SEC_NONE});
    end_side(n, side, NO_MEMORY);
    return refuse(verb, NO_MEMORY);
}

return_codes abended(const conv_side& side) noexcept
{
    return {side.conv_type == APPC_MAPPED ? DEALLOC_ABEND : DEALLOC_ABEND_PROG, SEC_NONE};
}

}  // namespace tessaly::node
