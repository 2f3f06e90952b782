// Conversion of a block between the caller's and the node's layout, in place.
#pragma once

#include "common/types.h"
#include "verbs/catalogue.h"

namespace tessaly {

// Widens a block by its own opcode and format; its buffer must have room for the node layout. grow: bytes by which it grew, 0
// for a verb without pointers.
void vav_make_vcb_64bit(void* vcb, u16* grow) noexcept;

// Narrows the node's answer to a verb that travelled under this opcode and format, whatever the answer says of itself: by them
// its length was checked. shrink: bytes by which it shrank.
void vav_make_vcb_32bit(void* vcb, u16 opcode, u8 format, u16* shrink) noexcept;

// Fills the exported pointer-offset tables. At library start.
void vav_init_ptr_offsets() noexcept;

// The format in which a verb's block travels; the node's answer has it too.
constexpr u8 travelling_format(u16 opcode, u8 format) noexcept
{
    return opcode == ALLOCATE ? 0 : opcode == RECEIVE_ALLOCATE || opcode == TP_STARTED ? 1 : format;
}

// Length of the block as it travels, in the node's layout, in bytes; 0 for what is no verb in this format.
u16 travelling_length(u16 opcode, u8 format) noexcept;

}  // namespace tessaly
