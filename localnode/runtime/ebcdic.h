// EBCDIC to ASCII, for the runtime's own logs and dumps.
#pragma once

#include "common/types.h"

#include <array>

namespace tessaly::runtime {

// Code page 037; what has no ASCII character is a period.
extern const std::array<u8, 256> ascii_of_ebcdic;

}  // namespace tessaly::runtime
