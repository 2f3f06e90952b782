// Who may see the security subfield of an attach header.
#pragma once

#include "common/types.h"

namespace tessaly {

// 1 when the process's effective user is root, else 0.
u16 tps_verify_privileges() noexcept;

}  // namespace tessaly
