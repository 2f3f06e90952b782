// What the node's four datagrams do. Result: 1 when the datagram has been dealt with, 0 when it is left to the runtime: it names
// nothing that waits for it, or is too short for its own fields. Completions and events call the application, so a caller trusts
// no record afterwards.
#pragma once

#include "wire/tp_server_datagrams.h"

namespace tessaly {

u16 tps_rcv_start_appl_req(const start_appl_req_datagram* request) noexcept;
u16 tps_rcv_tp_file_status() noexcept;
u16 tps_rcv_update_tp_rsp(const update_tp_rsp_datagram* answer) noexcept;
u16 tps_rcv_query_dload_rsp(const query_dload_rsp_datagram* answer) noexcept;

}  // namespace tessaly
