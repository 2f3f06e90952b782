// Finds the conversation, reads the block, asks the state table, and does what it says.
#include "localnode/engine/conversation_verbs.h"

#include "localnode/engine/asides.h"
#include "localnode/engine/attaches.h"
#include "localnode/engine/confirm.h"
#include "localnode/engine/conversations.h"
#include "localnode/engine/errors.h"
#include "localnode/engine/inquiries.h"
#include "localnode/engine/pacing.h"
#include "localnode/engine/readings.h"
#include "localnode/engine/replies.h"
#include "localnode/engine/transfer.h"

#include <utility>

namespace tessaly::node {

namespace {

conv_side* find_side(node& n, const request& verb) noexcept
{
    conv_side* const side = n.side_table.find(header_of(verb.block).conv_id);
    if (side == nullptr || side->owner != verb.user)
        return nullptr;
    if (side->arrival != nullptr)
        drop_attach(n, *side->arrival);  // who uses the conversation has taken it
    return side;
}

// GET_TYPE and GET_STATE are the same for both conversation types.
bool fits_type(const request& verb, const conv_side& side) noexcept
{
    if (verb.row->opcode == GET_TYPE || verb.row->opcode == GET_STATE)
        return true;
    const bool mapped_verb = (header_of(verb.block).opext & APPC_MAPPED_CONVERSATION) != 0;
    return mapped_verb == (side.conv_type == APPC_MAPPED);
}

conv_state column_of(const conv_side& side) noexcept
{
    if (side.waiting == waits_for::nothing)
        return side.state;
    return side.waiting == waits_for::data ? conv_state::receiving : conv_state::asking;
}

// What the partner is told by a verb that passes something on.
indication indication_of(conv_verb verb) noexcept
{
    switch (verb) {
    case conv_verb::confirm: return indication::confirm;
    case conv_verb::prepare_flush:
    case conv_verb::receive_and_wait:
    case conv_verb::receive_and_post: return indication::turn;
    case conv_verb::prepare_confirm: return indication::confirm_turn;
    case conv_verb::deallocate_confirm: return indication::confirm_deallocate;
    default: return indication::none;
    }
}

return_codes ending_of(action act, const conv_side& side) noexcept
{
    switch (act) {
    case action::finish: return NORMAL_END;
    case action::abend: return abended(side);
    default: return {};
    }
}

// Basic: whether the data are a sound stream of records and end where the verb may be issued that follows them.
return_codes check_records(const conv_side& side, std::span<const u8> data, conv_verb acting) noexcept
{
    record_border after = side.sent;
    if (!after.follow(data))
        return {PARAMETER_CHECK, APPC_SEC_BAD_LL};
    const u32 inside_record = inside_record_code(acting);
    if (after.in_record() && inside_record != 0)
        return {STATE_CHECK, inside_record};
    return {};
}

// Hands the data and what the verb indicates to the partner. False when there is no memory.
bool hand_to_partner(node& n, conv_side& side, const std::span<const u8>* data, conv_verb acting, return_codes ending)
{
    conv_side* const partner = partner_of(n, side);
    if (partner == nullptr)
        return true;
    if (data != nullptr && side.conv_type == APPC_BASIC) {
        if (!pass_records(side, *partner, *data))
            return false;
        data = nullptr;
    }
    return pass_on(n, *partner, data, indication_of(acting), ending);
}

// Whatever flows from the sender: the data, if the verb has some, and what the acting verb indicates.
verdict flow(node& n, conv_side& side, request& verb, conv_verb acting)
{
    const step to_do = conversation_step(acting, side.state);
    const bool has_data = verb.row->opcode == SEND_DATA;
    if (side.conv_type == APPC_BASIC)
        if (const return_codes wrong = check_records(side, has_data ? verb.data : std::span<const u8>{}, acting);
            wrong.primary != OK)
            return refuse(verb, wrong);
    if (!hand_to_partner(n, side, has_data ? &verb.data : nullptr, acting, ending_of(to_do.act, side)))
        return lose_conversation(n, side, verb);

    switch (to_do.act) {
    case action::ask: side.after_reply = to_do.next; return keep_waiting(side, verb, waits_for::confirmation);
    case action::finish:
    case action::abend:
        put_status(side, verb.block);
        leave(n, side);
        return verdict::answer;
    default: break;
    }
    side.state = to_do.next;
    if (to_do.act == action::turn_and_wait)
        return receive(n, side, verb, true);
    // The partner's queue cannot have ended or been released if it is still full.
    if (const conv_side* const to = has_data ? partner_of(n, side) : nullptr; to != nullptr && is_full(*to))
        return hold_sender(n, side, *to, verb);
    put_status(side, verb.block);
    return verdict::answer;
}

verdict abend_conversation(node& n, conv_side& side, u16 code)
{
    if (side.waiting != waits_for::nothing)
        answer_waiter(n, side, {CANCELLED, SEC_NONE});
    end_asides(n, side, {CANCELLED, SEC_NONE});
    end_side(n, side, {code, SEC_NONE});
    return verdict::answer;
}

// What the partner has done while this side could not receive, its next verb tells.
bool tells_news(action act) noexcept
{
    switch (act) {
    case action::pass_on:
    case action::ask:
    case action::finish:
    case action::turn_and_wait:
    case action::reply:
    case action::error: return true;
    case action::refuse:
    case action::abend:
    case action::wait:
    case action::look:
    case action::signal:
    case action::tell: return false;
    }
    return false;
}

verdict tell_news(node& n, conv_side& side, request& verb)
{
    if (side.error != OK) {
        side.state = conv_state::receive;
        return refuse(verb, std::exchange(side.error, u16{OK}), SEC_NONE);
    }
    const return_codes codes = side.ending;
    release(n, side);
    return refuse(verb, codes);
}

verdict act_on(node& n, conv_side& side, request& verb, const reading& read)
{
    const step to_do = conversation_step(read.verb, column_of(side));
    if (tells_news(to_do.act) && (side.error != OK || side.ending.primary != OK))
        return tell_news(n, side, verb);
    switch (to_do.act) {
    case action::refuse: return refuse(verb, STATE_CHECK, bad_state_code(read.verb));
    case action::pass_on:
    case action::ask:
    case action::finish:
    case action::turn_and_wait: return flow(n, side, verb, read.verb == conv_verb::send_data ? read.then : read.verb);
    case action::abend: return abend_conversation(n, side, read.abend);
    case action::wait: return receive(n, side, verb, true);
    case action::look: return receive(n, side, verb, false);
    case action::reply: return confirm_partner(n, side, to_do.next);
    case action::error: return send_error(n, side, verb);
    case action::signal: return signal(n, side, verb);
    case action::tell: return inquire(n, side, verb);
    }
    return not_supported(verb);
}

}  // namespace

verdict conversation_verb(node& n, request& verb)
{
    conv_side* const side = find_side(n, verb);
    if (side == nullptr)
        return refuse(verb, PARAMETER_CHECK, APPC_SEC_BAD_CONV_ID);
    const std::optional<reading> read = read_block(verb, *side);
    if (!read)
        return not_supported(verb);
    if (!fits_type(verb, *side))
        return refuse(verb, PARAMETER_CHECK, APPC_SEC_BAD_CONV_TYPE);
    if (read->wrong != 0)
        return refuse(verb, PARAMETER_CHECK, read->wrong);
    return act_on(n, *side, verb, *read);
}

verdict cancel_conversation(node& n, request& verb)
{
    conv_side* const side = find_side(n, verb);
    if (side == nullptr)
        return refuse(verb, PARAMETER_CHECK, APPC_SEC_BAD_CONV_ID);
    end_side(n, *side, abended(*side));
    return verdict::answer;
}

}  // namespace tessaly::node
