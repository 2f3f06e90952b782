// The verbs of an established conversation. verbs hands them over once their TP is known.
#pragma once

#include "localnode/engine/verdict.h"

namespace tessaly::node {

verdict conversation_verb(node& n, request& verb);

// CANCEL_CONV: ends the conversation abnormally. A verb that waits on it is not answered: the library completes it itself.
verdict cancel_conversation(node& n, request& verb);

}  // namespace tessaly::node
