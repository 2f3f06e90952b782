// Verbs that only ask what the node knows about a conversation, or about all of an LU.
#pragma once

#include "localnode/engine/verdict.h"

namespace tessaly::node {

// GET_TYPE, GET_STATE, GET_ATTRIBUTES, TEST_RTS and TEST_RTS_AND_POST.
verdict inquire(const node& n, conv_side& side, request& verb);

// GET_LU_STATUS. An LU that converses with itself has both ends.
verdict get_lu_status(node& n, request& verb);

}  // namespace tessaly::node
