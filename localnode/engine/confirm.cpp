// CONFIRM, PREPARE_TO_RECEIVE, DEALLOCATE and SEND_DATA that asked for confirmation all complete here.
#include "localnode/engine/confirm.h"

#include "localnode/engine/conversations.h"
#include "localnode/engine/replies.h"

namespace tessaly::node {

namespace {

bool has_long_locks(const conv_side& side) noexcept
{
    return header_of(side.waiter.block).opcode == PREPARE_TO_RECEIVE &&
           block_as<appc_prepare_to_receive>(side.waiter.block).locks == APPC_LOCKS_LONG;
}

void complete_question(node& n, conv_side& asker)
{
    asker.state = asker.after_reply;
    if (has_long_locks(asker)) {
        asker.waiting = waits_for::next_arrival;
        return;
    }
    answer_waiter(n, asker, {});
    if (asker.state == conv_state::reset)
        leave(n, asker);
}

}  // namespace

verdict confirm_partner(node& n, conv_side& side, conv_state next)
{
    conv_side* const asker = partner_of(n, side);
    if (asker != nullptr && asker->waiting == waits_for::confirmation)
        complete_question(n, *asker);
    side.state = next;
    if (next == conv_state::reset)
        leave(n, side);
    return verdict::answer;
}

}  // namespace tessaly::node
