// The paths for PIP data: one for each node address, kept for the next query.
#pragma once

#include "common/types.h"

namespace tessaly {

extern const u16 tps_appc_caps[4];  // the TP server's own capability record, whatever version the program has chosen

// The path to a node: the one that is kept, or a new one of that path user. one: 1. caps: as tps_appc_caps. Result: 0 when there
// is none; errno is the runtime's then.
u32 tps_create_path(u32 path_user, u32 target, u32 one, const void* caps) noexcept;

// Forgets a path that failed, and completes the queries that wait on it.
void tps_path_failure(u32 path) noexcept;

// The path user ends and its paths with it: forgets them. Queries that wait on one are marked for complete_lost_queries.
void forget_paths_of(u32 path_user) noexcept;

void forget_all_paths() noexcept;

}  // namespace tessaly
