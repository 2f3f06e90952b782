// Verbs that only ask what the node knows about a conversation.
#pragma once

#include "localnode/engine/verdict.h"

namespace tessaly::node {

// GET_TYPE, GET_STATE, GET_ATTRIBUTES and TEST_RTS.
verdict inquire(conv_side& side, request& verb);

}  // namespace tessaly::node
