// Where pending verb records come from. Up to VAV_CACHE_SIZE of them stay allocated for reuse, so that a warm verb
// allocates nothing; the lowest free slot is always the next one taken. All under the process lock.
#pragma once

#include "common/types.h"
#include "v6/records/pndcb.h"

namespace tessaly {

inline constexpr u32 VAV_CACHE_SIZE = 100;

struct pend_cache {
    pndcb* pend_ptr[VAV_CACHE_SIZE + 1];          // the last slot is a sentinel, always null
    u32 free_slots[(VAV_CACHE_SIZE + 31) / 32];   // bit set: the slot is empty or its record idle
};

extern pend_cache vav_pend_cache;

// A new record with a new handle, in no queue; for vav_sync_callback also with a wait object. Null when memory, a
// handle or a wait object could not be had.
pndcb* vav_alloc_pend(appc_completion callback) noexcept;

// Takes a record out of its queue and releases it, back into its slot when it has one.
void vav_free_pend(pndcb* pend) noexcept;

void clear_pend_cache() noexcept;    // at start: every slot empty
void release_pend_cache() noexcept;  // at stop: frees the records of every slot

}  // namespace tessaly
