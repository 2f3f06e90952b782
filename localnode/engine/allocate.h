// The verbs that begin a conversation for their TP.
#pragma once

#include "localnode/engine/verdict.h"

namespace tessaly::node {

verdict allocate(node& n, request& verb);

// SEND_CONVERSATION: allocate, send one record, deallocate. The record of a basic conversation may be several.
verdict send_conversation(node& n, request& verb);

// On a new path; makes the TP that serves the conversation.
verdict receive_allocate(node& n, request& verb);

}  // namespace tessaly::node
