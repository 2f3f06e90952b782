// The ends of verbs. A completion calls the application, so afterwards nothing that was held before may be trusted.
#pragma once

#include "vtpsrv/vtpsmain_records.h"

namespace tessaly {

// Ends a verb; its codes stand in its block already. An asynchronous verb's record is released first, a synchronous one's stays
// its sleeping caller's.
void tps_complete_verb_processing(verb_info* verb) noexcept;

// Completes what waits on a server with COMMS_SUBSYSTEM_ABENDED. False: the TP server was torn down meanwhile.
bool complete_waiting_verbs(const tp_server& server) noexcept;

// Completes with COMMS_SUBSYSTEM_ABENDED the queries whose path for PIP data is lost. False: as above.
bool complete_lost_queries() noexcept;

}  // namespace tessaly
