// The TP server's door: appc_async_int hands it the opcodes FIRST_TP_SERVER_OPCODE to LAST_TP_SERVER_OPCODE unchecked, and
// without the lock.
#pragma once

#include "common/types.h"

#include <tessaly/tp_server.h>

namespace tessaly {

// Runs one verb; without a callback it returns when the verb has completed. Result: VAV_IN_PROGRESS or VAV_COMPLETE, as of
// APPC_Async.
u16 tps_async(void* vcb, appc_completion callback, u32 corr) noexcept;

// The same. callback: tps_sync_callback for VAV_SYNCBCK_VERB.
u16 tps_async_verb(void* vcb, appc_completion callback, u32 corr, u32 api_type) noexcept;

// The completion of a synchronous verb: wakes its caller. corr: the verb's handle.
void tps_sync_callback(void* vcb, u8* tp_id, u32 conv_id, u32 corr);

}  // namespace tessaly
