// The receive routine of every TP server's path user: what the node delivers comes in here.
#pragma once

#include "common/types.h"
#include "runtime/node_runtime.h"

namespace tessaly {

// Safe at any time, since path users outlive the TP server.
u16 tps_receive_proc(u32 path, rcv_info* info);

// Runs after PIP data were copied to the application's buffer: completes their query.
u16 tps_data_callback(u32 path, rcv_info* info);

}  // namespace tessaly
