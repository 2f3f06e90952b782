// What all targets share: the fuzzer's bytes read as numbers and fields, and the way in which a target fails.
#pragma once

#include "common/types.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace tessaly::fuzz {

[[noreturn]] inline void fail(const char* broken)
{
    std::fprintf(stderr, "FAILED: %s\n", broken);
    std::abort();
}

inline void demand(bool holds, const char* rule)
{
    if (!holds)
        fail(rule);
}

// Reads the bytes from their start; behind their end all are zero.
class input {
public:
    input(const u8* data, std::size_t bytes) : next_(data), end_(data + bytes) {}

    bool is_empty() const { return next_ == end_; }

    void fill(void* to, std::size_t bytes)
    {
        const std::size_t count = std::min(bytes, static_cast<std::size_t>(end_ - next_));
        std::fill_n(std::copy_n(next_, count, static_cast<u8*>(to)), bytes - count, u8{0});
        next_ += count;
    }

    template <typename Number>
    Number number()
    {
        Number value;
        fill(&value, sizeof value);
        return value;
    }

    // limit: at most 256
    u32 below(u32 limit) { return number<u8>() % limit; }

    template <typename List>
    auto& one_of(List& from)
    {
        return from[below(static_cast<u32>(std::size(from)))];
    }

    // A field of its own, so that the byte behind it is nobody's.
    std::vector<u8> field(std::size_t bytes)
    {
        std::vector<u8> taken(bytes);
        fill(taken.data(), bytes);
        return taken;
    }

    std::string text(std::size_t most)
    {
        std::string taken(std::min(most, static_cast<std::size_t>(end_ - next_)), '\0');
        fill(taken.data(), taken.size());
        return taken;
    }

private:
    const u8* next_;
    const u8* end_;
};

}  // namespace tessaly::fuzz

// What a target is: one run over one input.
extern "C" int LLVMFuzzerTestOneInput(const tessaly::u8* data, std::size_t bytes);
