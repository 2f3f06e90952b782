// The answer to a request for confirmation.
#pragma once

#include "localnode/engine/verdict.h"

namespace tessaly::node {

// CONFIRMED: completes the verb that asked. next: this side's state afterwards.
verdict confirm_partner(node& n, conv_side& side, conv_state next);

}  // namespace tessaly::node
