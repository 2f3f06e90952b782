// What passes the ordinary flow by: the request for the turn, and expedited data. The verbs that wait for them wait beside
// whatever else waits on their side, one of each kind.
#pragma once

#include "localnode/engine/verdict.h"

namespace tessaly::node {

inline constexpr u32 MOST_EXPEDITED_BYTES = sizeof(expedited_data::data);

// REQUEST_TO_SEND, SEND_EXPEDITED_DATA and RECEIVE_EXPEDITED_DATA.
verdict signal(node& n, conv_side& side, request& verb);

// TEST_RTS_AND_POST: completes when the partner asks for the turn.
verdict await_turn_request(conv_side& side, request& verb);

// Nothing more comes for this side: whatever waits beside the ordinary flow ends with these codes.
void end_asides(node& n, conv_side& side, return_codes codes);

}  // namespace tessaly::node
