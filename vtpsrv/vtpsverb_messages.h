// What the TP server tells the node. Each builds its message from a verb and its block and sends it. Result: the runtime's
// status; the block says so when it is not 0.
#pragma once

#include "vtpsrv/vtpsmain_records.h"
#include "wire/tp_server_datagrams.h"

namespace tessaly {

u16 tps_send_appl_failed(verb_info* verb) noexcept;
u16 tps_send_start_appl_err(verb_info* verb) noexcept;
u16 tps_send_start_appl_ok(verb_info* verb) noexcept;
u16 tps_send_query_dload(verb_info* verb) noexcept;
u16 tps_send_update_tp_info(verb_info* verb) noexcept;

// Asks for the PIP data of an attach, on a path. Also when it could not even be built the block says why; then, false.
bool send_extract_pip(const verb_info& verb, u32 path, const start_id_words& attach) noexcept;

}  // namespace tessaly
