// Waiting for a word in memory that processes share. (What the C++ library offers for that stays within one process.)
#pragma once

#include "common/types.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tessaly::runtime {

// Sleeps unless the word has another value; may come back early.
inline void sleep_while(const u32& word, u32 value) noexcept
{
    syscall(SYS_futex, &word, FUTEX_WAIT, value, nullptr, nullptr, 0);
}

inline void wake_sleeper(const u32& word) noexcept
{
    syscall(SYS_futex, &word, FUTEX_WAKE, 1, nullptr, nullptr, 0);
}

}  // namespace tessaly::runtime
