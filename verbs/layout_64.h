// From the caller's layout of a block to the node's and back, in place. Pure functions over a row's format; pointer
// values do not survive.
#pragma once

#include "verbs/catalogue.h"

namespace tessaly {

// Where the pointer that the caller has at this offset ends at the node: it has 8 bytes there, aligned.
constexpr u32 end_of_slot(u32 pointer) noexcept
{
    return (pointer + 7) / 8 * 8 + 8;
}

// Widens a block, whose buffer must have room for format.node_length bytes. Result: by how many bytes it grew.
u16 widen_block(u8* block, const block_format& format) noexcept;

// Narrows a block of format.node_length bytes. Result: by how many bytes it shrank.
u16 narrow_block(u8* block, const block_format& format) noexcept;

}  // namespace tessaly
