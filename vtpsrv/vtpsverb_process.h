// What each TP server verb does once it has been accepted.
#pragma once

#include "vtpsrv/vtpsmain_records.h"

namespace tessaly {

// server: null for START_APPL_ERR and APPL_FAILED of a process without one. Result: VAV_COMPLETE, the codes stand in the block;
// or VAV_IN_PROGRESS, the verb waits for the node's answer. Unregistering calls back: the records may be gone afterwards.
u16 tps_process(verb_info* verb, tp_server* server) noexcept;

}  // namespace tessaly
