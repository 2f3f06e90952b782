// Datagrams as they come from clients: checked and handed on.
#pragma once

#include "localnode/engine/node.h"

namespace tessaly::node {

// What is malformed or of a type that means nothing here is ignored.
void take_datagram(node& n, const frame& input);

// One of the node's own, for which nobody was there.
void take_returned(node& n, const frame& input);

}  // namespace tessaly::node
