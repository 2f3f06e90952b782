// Questions between the two sides: the answer to a request for confirmation, and the request for the turn.
#pragma once

#include "localnode/engine/verdict.h"

namespace tessaly::node {

// CONFIRMED: completes the verb that asked. next: this side's state afterwards.
verdict confirm_partner(node& n, conv_side& side, conv_state next);

// REQUEST_TO_SEND: the partner learns it with its next answer that can tell.
verdict ask_for_turn(node& n, conv_side& side);

}  // namespace tessaly::node
