// The TP server's door: appc_async_int hands it the opcodes FIRST_TP_SERVER_OPCODE to LAST_TP_SERVER_OPCODE unchecked, and
// without the lock.
#pragma once

#include "common/types.h"

#include <tessaly/appc.h>

namespace tessaly {

// Result: VAV_IN_PROGRESS or VAV_COMPLETE, as of APPC_Async.
u16 tps_async(void* vcb, appc_completion callback, u32 corr) noexcept;

}  // namespace tessaly
