// Moves data between the sides. A byte is copied into the receiver's queue and from there into its answer, or straight into
// the answer when a receive verb waits already.
#include "localnode/engine/transfer.h"

#include "localnode/engine/conversations.h"
#include "localnode/engine/replies.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tessaly::node {

namespace {

// A program may well send all it has before anybody receives; this only keeps it from filling the node's memory.
constexpr u32 FULL_BYTES = 16 * 1024 * 1024;

u16 received_as(indication status) noexcept
{
    switch (status) {
    case indication::none: return APPC_WR_NONE;
    case indication::turn: return APPC_WR_SEND;
    case indication::confirm: return APPC_WR_CONFIRM;
    case indication::confirm_turn: return APPC_WR_CONFIRM_SEND;
    case indication::confirm_deallocate: return APPC_WR_CONFIRM_DEALLOCATE;
    }
    return APPC_WR_NONE;
}

// Hands the indication to the program: what_rcvd tells it, and the state follows.
u16 take_indication(conv_side& side, bool with_data) noexcept
{
    const u16 what = received_as(side.behind);
    switch (side.behind) {
    case indication::none: break;
    case indication::turn: side.state = with_data ? conv_state::send_pending : conv_state::send; break;
    case indication::confirm: side.state = conv_state::confirm; break;
    case indication::confirm_turn: side.state = conv_state::confirm_send; break;
    case indication::confirm_deallocate: side.state = conv_state::confirm_deallocate; break;
    }
    side.behind = indication::none;
    return what;
}

// Answers a receive verb with as much of a record as its buffer holds; result: how much that is.
u32 hand_over(node& n, conv_side& side, verb_ref verb, std::span<const u8> record, bool is_last)
{
    auto& block = block_as<appc_receive>(verb.block);
    const u32 bytes = std::min<u32>(static_cast<u32>(record.size()), block.max_len);
    const bool complete = bytes == record.size();
    block.rts_rcvd = take_turn_wanted(side);
    block.dlen = static_cast<u16>(bytes);
    block.what_rcvd = complete ? APPC_WR_DATA_COMPLETE : APPC_WR_DATA_INCOMPLETE;
    if (complete && is_last && block.rtn_status != 0)
        block.what_rcvd = static_cast<u16>(block.what_rcvd | take_indication(side, true));
    set_codes(verb.block, OK, SEC_NONE);
    answer(n, *side.owner->path, verb, record.first(bytes));
    return bytes;
}

// The same with the first item of the queue, which may be an error.
u32 hand_over_first(node& n, conv_side& side, verb_ref verb)
{
    const record_queue::item first = side.inbound.front();
    if (first.what == record_queue::kind::record)
        return hand_over(n, side, verb, first.content, side.inbound.holds_only_one());
    set_codes(verb.block, load<u16>(first.content.data(), 0), SEC_NONE);
    answer(n, *side.owner->path, verb);
    return static_cast<u32>(first.content.size());
}

// The sender that waits for room gets it when the queue is half empty, so that it does not wait again for every record.
void let_sender_go_on(node& n, const conv_side& side)
{
    if (side.inbound.bytes() > FULL_BYTES / 2)
        return;
    conv_side* const sender = partner_of(n, side);
    if (sender != nullptr && sender->waiting == waits_for::room)
        answer_waiter(n, *sender, {});
}

// Completes a receive verb with the first thing that is there. False when there is nothing. The side may be over afterwards.
bool receive_first(node& n, conv_side& side, verb_ref verb)
{
    auto& block = block_as<appc_receive>(verb.block);
    block.what_rcvd = APPC_WR_NONE;
    block.dlen = 0;
    block.expd_rcvd = 0;

    if (!side.inbound.empty()) {
        side.inbound.consume(hand_over_first(n, side, verb));
        let_sender_go_on(n, side);
    } else if (side.behind != indication::none) {
        block.what_rcvd = take_indication(side, false);
        block.rts_rcvd = take_turn_wanted(side);
        set_codes(verb.block, OK, SEC_NONE);
        answer(n, *side.owner->path, verb);
    } else if (side.ending.primary != OK) {
        set_codes(verb.block, side.ending.primary, side.ending.secondary);
        answer(n, *side.owner->path, verb);
        release(n, side);
    } else {
        return false;
    }
    return true;
}

}  // namespace

bool pass_on(node& n, conv_side& to, const std::span<const u8>* record, indication behind, return_codes ending)
{
    if (to.waiting == waits_for::next_arrival)
        answer_waiter(n, to, {});

    // A receive verb waits only while the queue is empty, so it gets this record, straight into its answer.
    const bool receiver_waits = to.waiting == waits_for::data;
    if (record != nullptr && !receiver_waits && !to.inbound.push(record_queue::kind::record, *record))
        return false;
    to.behind = behind;
    if (record != nullptr && receiver_waits) {
        to.waiting = waits_for::nothing;
        const std::span<const u8> rest = record->subspan(hand_over(n, to, to.waiter, *record, true));
        if (!rest.empty() && !to.inbound.push(record_queue::kind::record, rest))
            return false;
    }
    if (ending.primary != OK)
        end_by_partner(n, to, ending);
    else if (to.waiting == waits_for::data)
        serve_receiver(n, to);
    return true;
}

bool pass_error_on(node& n, conv_side& to, u16 code)
{
    u8 content[sizeof code];
    store(content, 0, code);
    if (to.waiting == waits_for::next_arrival)
        answer_waiter(n, to, {});
    if (!to.inbound.push(record_queue::kind::error, content))
        return false;
    if (to.waiting == waits_for::data)
        serve_receiver(n, to);
    return true;
}

bool is_full(const conv_side& to) noexcept
{
    return to.inbound.bytes() > FULL_BYTES;
}

verdict receive(node& n, conv_side& side, request& verb, bool wait)
{
    if (receive_first(n, side, verb))
        return verdict::answered;
    if (wait)
        return keep_waiting(side, verb, waits_for::data);
    block_as<appc_receive>(verb.block).rts_rcvd = take_turn_wanted(side);
    return refuse(verb, UNSUCCESSFUL, SEC_NONE);
}

void serve_receiver(node& n, conv_side& side)
{
    side.waiting = waits_for::nothing;
    if (!receive_first(n, side, side.waiter))
        side.waiting = waits_for::data;
}

u8 take_turn_wanted(conv_side& side) noexcept
{
    return std::exchange(side.turn_wanted, u8{0});
}

verdict keep_waiting(conv_side& side, const request& verb, waits_for what) noexcept
{
    side.waiter.header = verb.header;
    side.waiter.layout = verb.layout;
    std::memcpy(side.waiter.block, verb.block, verb.layout.length);
    side.waiting = what;
    return verdict::waits;
}

}  // namespace tessaly::node
