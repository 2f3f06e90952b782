// How far a sender may be ahead of its partner. One that is too far ahead has its SEND_DATA answered later.
#pragma once

#include "localnode/engine/verdict.h"

namespace tessaly::node {

// Whether the side that receives has so much unread that the sender must wait. One that waits for more must get it.
inline bool is_full(const conv_side& to) noexcept
{
    return to.inbound.bytes() > to.most_unread && to.waiting != waits_for::data;
}

// Keeps a SEND_DATA until its partner has read enough or, unless it is far ahead, for a moment.
verdict hold_sender(node& n, conv_side& sender, const conv_side& to, const request& verb) noexcept;

// Answers the sender that this side's partner has waiting, if any.
void free_sender(node& n, const conv_side& side);

// Looks at what is left unread after a receive verb: the sender may go on when that is half of what it may be ahead, so that it
// does not wait again for every record.
void has_read(node& n, conv_side& side);

// Nothing is unread any more, by whatever way.
inline void resume_pacing(const node& n, conv_side& side) noexcept
{
    side.most_unread = n.unread_bytes;
}

// Whose waiting verb is answered or whose conversation is over waits for time no more.
inline void forget_hold(conv_side& side) noexcept
{
    if (is_linked(side.hold.link))
        unlink(side.hold.link);
}

// Answers those that have waited long enough.
void free_patient_senders(node& n);

}  // namespace tessaly::node
