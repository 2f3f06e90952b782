// SEND_ERROR: the turn changes hands against the sender's will.
#pragma once

#include "localnode/engine/verdict.h"

namespace tessaly::node {

verdict send_error(node& n, conv_side& side, request& verb);

}  // namespace tessaly::node
