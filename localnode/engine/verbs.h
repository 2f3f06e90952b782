// Verb messages as they come from paths: checked, narrowed and handed to whoever does the verb.
#pragma once

#include "localnode/engine/node.h"

namespace tessaly::node {

// What is malformed fails the path; every sound verb is answered once, now or later.
void take_verb(node& n, const frame& input);

}  // namespace tessaly::node
