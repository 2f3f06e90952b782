// What goes wrong in the stress test: made inside the stand-in runtime, as the node or a broken link would. The caller holds the
// process lock.
#pragma once

#include "common/types.h"

namespace tessaly::stress {

void lose_path(u32 path) noexcept;
void abend(u32 path, u32 tp_handle) noexcept;
void terminate_node() noexcept;

}  // namespace tessaly::stress
