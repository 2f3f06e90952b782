// What a conversation verb's block asks for. conversation_verbs reads it here before it looks at states.
#pragma once

#include "localnode/engine/node.h"

namespace tessaly::node {

struct reading {
    conv_verb verb;
    conv_verb then = conv_verb::flush;  // SEND_DATA: the verb that follows the data
    u32 wrong = 0;                      // secondary code of PARAMETER_CHECK, 0 for none
    u16 abend = OK;                     // what an abnormal DEALLOCATE tells the partner
};

// None for a verb that the engine does not do.
std::optional<reading> read_block(const request& verb, const conv_side& side) noexcept;

}  // namespace tessaly::node
