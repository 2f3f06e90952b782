// The library's receive routines: everything that the node sends comes in here, under the process lock.
#pragma once

#include "common/types.h"
#include "runtime/node_runtime.h"

namespace tessaly {

// One event on a path of the library's path user. Result: enum node_event_result, also stored in the record.
u16 vav_path_callback(u32 path, rcv_info* info);

// The data of a receive verb is in the application's buffer: completes the verb. Result: NODE_RESULT_DONE.
u16 vav_data_callback(u32 path, rcv_info* info);

}  // namespace tessaly
