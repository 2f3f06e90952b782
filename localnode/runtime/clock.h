// Time as the runtime counts it: milliseconds of CLOCK_MONOTONIC. Neither reading is a system call where the kernel offers its
// clocks to processes.
#pragma once

#include "common/types.h"

#include <ctime>

namespace tessaly::runtime {

inline constexpr u64 NEVER = ~u64{0};

inline u64 read_clock_ms(clockid_t clock) noexcept
{
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<u64>(now.tv_sec) * 1000 + static_cast<u32>(now.tv_nsec) / 1'000'000;  // which needs no division of 64 bits
}

inline u64 precise_now_ms() noexcept { return read_clock_ms(CLOCK_MONOTONIC); }
inline u64 cheap_now_ms() noexcept { return read_clock_ms(CLOCK_MONOTONIC_COARSE); }  // some milliseconds behind at most

inline timespec time_at_ms(u64 ms) noexcept
{
    timespec at{};
    at.tv_sec = static_cast<time_t>(ms / 1000);
    at.tv_nsec = static_cast<long>(ms % 1000) * 1'000'000;
    return at;
}

}  // namespace tessaly::runtime
