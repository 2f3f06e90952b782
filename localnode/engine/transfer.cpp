// Moves data between the sides. A byte is copied into the receiver's queue and from there into its answer; a mapped record goes
// straight into the answer when a receive verb waits already.
#include "localnode/engine/transfer.h"

#include "localnode/engine/conversations.h"
#include "localnode/engine/pacing.h"
#include "localnode/engine/replies.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tessaly::node {

namespace {

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

// What a receive verb gets of the records that have come.
struct portion {
    u32 bytes;
    u16 what;
    bool last;  // no record is left behind it
};

// Fill buffer: all that there is; less than was asked for only where something other than data follows.
std::optional<portion> buffer_portion(const conv_side& side, const appc_receive& block, bool now) noexcept
{
    const record_queue& queue = side.inbound;
    const u32 there = queue.record_bytes();
    const bool ends = now || queue.has_errors() || side.behind != indication::none || side.ending.primary != OK;
    if (there < block.max_len && !ends)
        return std::nullopt;
    const u32 bytes = std::min<u32>(there, block.max_len);
    return portion{bytes, APPC_WR_DATA, bytes == there && !queue.has_errors()};
}

// One record, or as much of it as there is room for. For the end of one that is still on its way a verb waits.
std::optional<portion> record_portion(const conv_side& side, const appc_receive& block, bool now) noexcept
{
    const record_queue::item first = side.inbound.front();
    const u32 there = static_cast<u32>(first.content.size());
    const bool only_one = side.inbound.holds_only_one();
    if (first.what == record_queue::kind::record && there <= block.max_len)
        return portion{there, APPC_WR_DATA_COMPLETE, only_one};
    if (there < block.max_len && only_one && !now && side.ending.primary == OK)
        return std::nullopt;
    return portion{std::min<u32>(there, block.max_len), APPC_WR_DATA_INCOMPLETE, false};
}

// Answers a receive verb with that many bytes. Result: where they go; null when no answer leaves.
u8* answer_with_data(node& n, conv_side& side, verb_ref verb, const portion& got)
{
    auto& block = block_as<appc_receive>(verb.block);
    block.dlen = static_cast<u16>(got.bytes);
    block.what_rcvd = got.what;
    if (got.last && block.rtn_status != 0)
        block.what_rcvd = static_cast<u16>(block.what_rcvd | take_indication(side, true));
    put_status(side, verb.block);
    set_codes(verb.block, OK, SEC_NONE);
    return begin_answer(n, *side.owner->path, verb, got.bytes);
}

// Hands a mapped record over to the receive verb that waits, straight into its answer. Result: what found no room there.
std::span<const u8> hand_over(node& n, conv_side& side, std::span<const u8> record)
{
    const u32 max_len = block_as<appc_receive>(side.waiter.block).max_len;
    const u32 bytes = std::min<u32>(static_cast<u32>(record.size()), max_len);
    const bool complete = bytes == record.size();
    side.waiting = waits_for::nothing;
    u8* const to = answer_with_data(n, side, side.waiter,
                                    {bytes, complete ? u16{APPC_WR_DATA_COMPLETE} : u16{APPC_WR_DATA_INCOMPLETE}, complete});
    if (to != nullptr && bytes != 0)
        std::memcpy(to, record.data(), bytes);
    return record.subspan(bytes);
}

// False when a verb that waits needs more than has come.
bool receive_records(node& n, conv_side& side, verb_ref verb, bool now)
{
    const auto& block = block_as<appc_receive>(verb.block);
    const bool buffer = side.conv_type == APPC_BASIC && block.fill == APPC_FILL_BUFFER;
    const std::optional<portion> got = buffer ? buffer_portion(side, block, now) : record_portion(side, block, now);
    if (!got)
        return false;
    u8* const to = answer_with_data(n, side, verb, *got);
    side.inbound.take(to, got->bytes);
    has_read(n, side);
    return true;
}

void receive_codes(node& n, conv_side& side, verb_ref verb, return_codes codes)
{
    put_status(side, verb.block);
    set_codes(verb.block, codes.primary, codes.secondary);
    answer(n, *side.owner->path, verb);
}

// Completes a receive verb with the first thing that is there. False when there is nothing, or too little to wait no longer.
// The side may be over afterwards.
bool receive_first(node& n, conv_side& side, verb_ref verb, bool now)
{
    auto& block = block_as<appc_receive>(verb.block);
    block.what_rcvd = APPC_WR_NONE;
    block.dlen = 0;

    if (!side.inbound.empty()) {
        const record_queue::item first = side.inbound.front();
        if (first.what != record_queue::kind::error)
            return receive_records(n, side, verb, now);
        const u16 code = load<u16>(first.content.data(), 0);
        side.inbound.take(nullptr, sizeof code);
        receive_codes(n, side, verb, {code, SEC_NONE});
    } else if (side.behind != indication::none) {
        block.what_rcvd = take_indication(side, false);
        receive_codes(n, side, verb, {});
    } else if (side.ending.primary != OK) {
        receive_codes(n, side, verb, side.ending);
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

    // On a mapped conversation a receive verb waits only while the queue is empty, so it gets this record.
    to.behind = behind;
    if (record != nullptr) {
        const bool at_once = to.waiting == waits_for::data;
        const std::span<const u8> kept = at_once ? hand_over(n, to, *record) : *record;
        if ((!at_once || !kept.empty()) && !to.inbound.push(record_queue::kind::record, kept))
            return false;
    }
    if (ending.primary != OK)
        end_by_partner(n, to, ending);
    else if (to.waiting == waits_for::data)
        serve_receiver(n, to);
    return true;
}

bool pass_records(conv_side& from, conv_side& to, std::span<const u8> data)
{
    while (!data.empty()) {
        const u32 bytes = from.sent.step(data).value_or(0);
        if (bytes == 0 || !to.inbound.push_piece(data.first(bytes), !from.sent.in_record()))
            return false;
        data = data.subspan(bytes);
    }
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
    to.behind = indication::none;  // a turn that has not been taken yet goes back with the error
    if (to.waiting == waits_for::data)
        serve_receiver(n, to);
    return true;
}

verdict receive(node& n, conv_side& side, request& verb, bool wait)
{
    if (receive_first(n, side, verb, !wait))
        return verdict::answered;
    if (wait) {
        if (!side.inbound.empty())  // too little, which only the sender can change
            free_sender(n, side);
        return keep_waiting(side, verb, waits_for::data);
    }
    put_status(side, verb.block);
    return refuse(verb, UNSUCCESSFUL, SEC_NONE);
}

void serve_receiver(node& n, conv_side& side)
{
    side.waiting = waits_for::nothing;
    if (!receive_first(n, side, side.waiter, false))
        side.waiting = waits_for::data;
}

u8 take_turn_wanted(conv_side& side) noexcept
{
    return std::exchange(side.turn_wanted, u8{0});
}

verdict keep_waiting(conv_side& side, const request& verb, waits_for what) noexcept
{
    side.waiter.keep(verb);
    side.waiting = what;
    return verdict::waits;
}

}  // namespace tessaly::node
