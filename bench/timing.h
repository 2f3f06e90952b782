// How the rivals of bench/compare are timed, in 32 and 64 bits alike, and what they exchange.
#pragma once

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace tessaly::bench {

inline constexpr unsigned RECORD_BYTES = 256;

// Nanoseconds per call, after a warm-up of a tenth of the calls.
template <typename Action>
double ns_per_call(unsigned calls, Action action)
{
    using clock = std::chrono::steady_clock;
    for (unsigned i = 0; i < calls / 10 + 1; ++i)
        action();
    const auto start = clock::now();
    for (unsigned i = 0; i < calls; ++i)
        action();
    return std::chrono::duration<double, std::nano>(clock::now() - start).count() / calls;
}

[[noreturn]] inline void fail(const char* what)
{
    std::perror(what);
    std::exit(1);
}

}  // namespace tessaly::bench
