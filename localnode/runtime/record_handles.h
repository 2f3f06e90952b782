// What the runtime remembers about a record that the library named in a verb: how much data its answer may bring.
#pragma once

#include "common/types.h"

namespace tessaly::runtime {

struct receive_limit {
    u32 path = 0;
    u32 bytes = 0;
};

// False when there is no memory for it.
bool note_receive_limit(u32 record, receive_limit limit) noexcept;

// 0 for a record that is gone, or whose last verb went out on another path or receives nothing.
u32 receive_limit_of(u32 record, u32 path) noexcept;

}  // namespace tessaly::runtime
