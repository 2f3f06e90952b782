// Copying and clearing blocks of 16 to 350 bytes. A verb's block is too short for the set-up of a library call to pay, and
// too long for the compiler to know what to do without one.
#pragma once

#include "common/types.h"

#include <cstring>

namespace tessaly {

inline constexpr u32 BLOCK_STEP = 16;

// bytes: at least BLOCK_STEP. The last step overlaps the one before it.
inline void copy_block(void* dest, const void* source, u32 bytes) noexcept
{
    auto* to = static_cast<u8*>(dest);
    const auto* from = static_cast<const u8*>(source);
    for (u32 at = 0; at < bytes - BLOCK_STEP; at += BLOCK_STEP)
        std::memcpy(to + at, from + at, BLOCK_STEP);
    std::memcpy(to + bytes - BLOCK_STEP, from + bytes - BLOCK_STEP, BLOCK_STEP);
}

// Clears an object whose size is a multiple of BLOCK_STEP, without a loop.
template <typename Object>
inline void clear_object(Object& object) noexcept
{
    static_assert(sizeof(Object) % BLOCK_STEP == 0);
    auto* to = reinterpret_cast<u8*>(&object);
#pragma GCC unroll 16
    for (u32 at = 0; at < sizeof(Object); at += BLOCK_STEP)
        std::memset(to + at, 0, BLOCK_STEP);
}

}  // namespace tessaly
