// An error of the sender takes its place among the records. One of the receiver drops what is on its way to it, and ends the
// verb that the sender has waiting, or its next one.
#include "localnode/engine/errors.h"

#include "localnode/engine/conversations.h"
#include "localnode/engine/pacing.h"
#include "localnode/engine/replies.h"
#include "localnode/engine/transfer.h"

namespace tessaly::node {

namespace {

struct error_codes {
    u16 whole;      // the sender's, between two records
    u16 truncated;  // the sender's, inside a record
    u16 purging;    // the receiver's
};
constexpr error_codes program = {PROG_ERROR_NO_TRUNC, PROG_ERROR_TRUNC, PROG_ERROR_PURGING};
constexpr error_codes service = {APPC_SVC_ERROR_NO_TRUNC, APPC_SVC_ERROR_TRUNC, APPC_SVC_ERROR_PURGING};

// Whether the error concerns what this side sends, not what it has received.
bool in_send_direction(const conv_side& side, const appc_send_error& block) noexcept
{
    return side.state == conv_state::send ||
           (side.state == conv_state::send_pending && block.err_dir == APPC_ERROR_SEND_DIRECTION);
}

// False when there is no memory.
bool tell_error(node& n, conv_side& partner, u16 code)
{
    if (partner.waiting == waits_for::confirmation || partner.waiting == waits_for::room) {
        partner.state = conv_state::receive;
        partner.sent = {};
        answer_waiter(n, partner, {code, SEC_NONE});
        return true;
    }
    const bool sends = partner.state == conv_state::send || partner.state == conv_state::send_pending;
    if (!sends || partner.error != OK)
        return pass_error_on(n, partner, code);
    partner.error = code;
    partner.sent = {};
    return true;
}

}  // namespace

verdict send_error(node& n, conv_side& side, request& verb)
{
    const auto& block = block_as<appc_send_error>(verb.block);
    const error_codes& codes = block.err_type == APPC_SVC_ERROR ? service : program;
    const bool sends = in_send_direction(side, block);
    const u16 code = !sends ? codes.purging : side.sent.in_record() ? codes.truncated : codes.whole;
    if (side.waiting != waits_for::nothing)
        answer_waiter(n, side, {CANCELLED, SEC_NONE});
    side.inbound.clear();
    resume_pacing(n, side);
    side.behind = indication::none;
    side.state = conv_state::send;
    side.sent = {};
    conv_side* const partner = partner_of(n, side);
    if (partner != nullptr && !tell_error(n, *partner, code))
        return lose_conversation(n, side, verb);
    put_status(side, verb.block);
    return verdict::answer;
}

}  // namespace tessaly::node
