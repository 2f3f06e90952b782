// The two sides of a conversation from ALLOCATE to their end: made together, they end one by one. Verbs of both sides, TPs
// that end and attaches that nobody takes come here.
#pragma once

#include "localnode/engine/verdict.h"

namespace tessaly::node {

// A new conversation: the side of the TP that allocates it, and the one that has no TP yet. Null when there is no room.
conv_side* begin_conversation(node& n, tp& allocator);

// The other side; null when the conversation is over for it.
conv_side* partner_of(node& n, const conv_side& side) noexcept;

// Gives an incoming side to the TP that takes it, and back.
void bind(conv_side& side, tp& acceptor);
void unbind(conv_side& side);

// The conversation is over for this side: its number names nothing any more. A verb that waits on it is not answered.
void release(node& n, conv_side& side);

// The same by the will of its own program: verbs that wait beside the ordinary flow are cancelled.
void leave(node& n, conv_side& side);

// Tells a side that its partner has ended the conversation. A verb that cannot complete otherwise ends with these codes, and
// the side with it.
void end_by_partner(node& n, conv_side& side, return_codes codes);

// Ends the conversation on this side, and tells the partner.
void end_side(node& n, conv_side& side, return_codes for_partner);

// A verb that found no memory ends the conversation for both sides.
verdict lose_conversation(node& n, conv_side& side, request& verb);

// What the partner is told when the end is no DEALLOCATE's.
return_codes abended(const conv_side& side) noexcept;

inline constexpr return_codes NORMAL_END{DEALLOC_NORMAL, SEC_NONE};
inline constexpr return_codes PARTNER_LOST{CONV_FAILURE_NO_RETRY, SEC_NONE};
inline constexpr return_codes NO_MEMORY{CONV_FAILURE_RETRY, SEC_NONE};
inline constexpr return_codes NOBODY_TAKES_IT{ALLOCATION_ERROR, APPC_SEC_TRANS_PGM_NOT_AVAIL_RETRY};

}  // namespace tessaly::node
