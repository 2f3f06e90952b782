// What there is in the node at the moment, for people who ask.
#pragma once

#include "localnode/engine/node.h"

namespace tessaly::node {

node_report report_on(node& n);

}  // namespace tessaly::node
