// A sender that stays close to its partner finds what it sends in the caches, and is the faster for it. But whoever should
// receive may be the sender's own thread, so that closeness is worth a moment and no more; only what keeps a program from
// filling the node's memory holds without a limit of time.
#include "localnode/engine/pacing.h"

#include "localnode/engine/conversations.h"
#include "localnode/engine/replies.h"
#include "localnode/engine/transfer.h"

namespace tessaly::node {

namespace {

constexpr u32 PATIENCE_MS = 20;

}  // namespace

verdict hold_sender(node& n, conv_side& sender, const conv_side& to, const request& verb) noexcept
{
    if (to.most_unread < MOST_UNREAD_BYTES) {
        sender.hold.sender = &sender;
        sender.hold.deadline_ms = n.now_ms + PATIENCE_MS;
        n.held_senders.append(sender.hold);
    }
    return keep_waiting(sender, verb, waits_for::room);
}

void free_sender(node& n, const conv_side& side)
{
    conv_side* const sender = partner_of(n, side);
    if (sender != nullptr && sender->waiting == waits_for::room)
        answer_waiter(n, *sender, {});
}

void has_read(node& n, conv_side& side)
{
    const u32 unread = side.inbound.bytes();
    if (unread > side.most_unread / 2)
        return;
    if (unread <= n.unread_bytes / 2)
        resume_pacing(n, side);
    free_sender(n, side);
}

void free_patient_senders(node& n)
{
    for (held_sender* oldest = n.held_senders.first(); oldest != nullptr && oldest->deadline_ms <= n.now_ms;
         oldest = n.held_senders.first()) {
        conv_side& sender = *oldest->sender;
        if (conv_side* const to = partner_of(n, sender))
            to->most_unread = MOST_UNREAD_BYTES;  // a burst waits once
        answer_waiter(n, sender, {});
    }
}

}  // namespace tessaly::node
