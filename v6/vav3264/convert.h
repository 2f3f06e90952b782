// Conversion of a block between the caller's and the node's layout, in place, by a format of its verb's row.
#pragma once

#include "common/types.h"
#include "verbs/layout_64.h"

namespace tessaly {

// Widens a block; its buffer must have room for the node layout, with zeros behind the block. Result: bytes by which it
// grew, 0 for a verb without pointers.
inline u16 vav_make_vcb_64bit(u8* vcb, const block_format& format) noexcept
{
    return widen_block(vcb, format);
}

// Narrows the node's answer by the format in which its verb travelled, by which its length was checked, whatever the answer
// says of itself. Result: bytes by which it shrank.
inline u16 vav_make_vcb_32bit(u8* vcb, const block_format& format) noexcept
{
    return narrow_block(vcb, format);
}

// Fills the exported pointer-offset tables. At library start.
void vav_init_ptr_offsets() noexcept;

}  // namespace tessaly
