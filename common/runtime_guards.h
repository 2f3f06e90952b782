// Scoped use of runtime resources.
#pragma once

#include "common/types.h"
#include "runtime/node_runtime.h"

namespace tessaly {

// Holds the process lock for a scope.
class process_lock {
public:
    process_lock() noexcept : token_(vpm_lock()) {}
    process_lock(const process_lock&) = delete;
    process_lock& operator=(const process_lock&) = delete;
    ~process_lock() { vpm_unlock(token_); }

private:
    u16 token_;
};

inline constexpr u32 MEMORY_CLASS = 770;

// Uninitialised room for one plain record, or null.
template <typename Record>
Record* allocate_record() noexcept
{
    return static_cast<Record*>(nba_mm_alloc(sizeof(Record), MEMORY_CLASS, &nba_blank_name, 0, 0));
}

}  // namespace tessaly
