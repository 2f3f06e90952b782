#include "verbs/layout_64.h"

#include <cstring>

namespace tessaly {

namespace {

// By how much a block grows with the pointer that the caller has at this offset.
constexpr u16 growth_at(u16 offset) noexcept
{
    return static_cast<u16>(end_of_slot(offset) - offset - sizeof(u32));
}

}  // namespace

u16 widen_block(u8* block, const block_format& format) noexcept
{
    const u16 first = format.pointer_1;
    if (first == 0)
        return 0;

    u16 end = format.length;
    const u16 first_growth = growth_at(first);
    std::memmove(block + first + first_growth, block + first, static_cast<u32>(end - first));
    std::memset(block + first, 0, 8);
    end = static_cast<u16>(end + first_growth);

    if (format.pointer_2 != 0) {
        const u16 second = static_cast<u16>(format.pointer_2 + first_growth);
        const u16 second_growth = growth_at(second);
        std::memmove(block + second + second_growth, block + second, static_cast<u32>(end - second));
        std::memset(block + second, 0, 4);
    }
    return static_cast<u16>(format.node_length - format.length);
}

u16 narrow_block(u8* block, const block_format& format) noexcept
{
    const u16 first = format.pointer_1;
    if (first == 0)
        return 0;

    u16 end = format.node_length;
    const u16 first_shrink = growth_at(first);
    std::memmove(block + first, block + first + first_shrink, static_cast<u32>(end - first - first_shrink));
    std::memset(block + first, 0, 4);
    end = static_cast<u16>(end - first_shrink);

    if (const u16 second = format.pointer_2; second != 0) {
        const u16 second_shrink = growth_at(second);
        std::memmove(block + second, block + second + second_shrink, static_cast<u32>(end - second - second_shrink));
        std::memset(block + second, 0, 4);
    }
    return static_cast<u16>(format.node_length - format.length);
}

}  // namespace tessaly
