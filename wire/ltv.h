// Length-type-value elements: what a query_dload_rsp says about an attach. An element is its length (itself included) and its
// type, both 16 bits, most significant byte first, then its value; elements follow each other without padding.
#pragma once

#include "common/types.h"

namespace tessaly {

enum ltv_type : u16 {
    LTV_LU_ALIAS = 3,      // 8 bytes, ASCII
    LTV_FQPLU_NAME = 5,    // 17 bytes, EBCDIC
    LTV_MODE_NAME = 6,     // 8 bytes, EBCDIC
    LTV_ATTACH_HEADER = 7  // FMH-5
};

inline constexpr u32 LTV_HEADER_BYTES = 4;

constexpr u16 big_endian_16(const u8* bytes) noexcept
{
    return static_cast<u16>(bytes[0] << 8 | bytes[1]);
}

constexpr void put_big_endian_16(u8* bytes, u16 value) noexcept
{
    bytes[0] = static_cast<u8>(value >> 8);
    bytes[1] = static_cast<u8>(value);
}

// The attach header (FMH-5) as far as either side looks into it. Byte 0 is the header's own length.
inline constexpr u32 FMH5_FIXED_BYTES = 9;          // then the TP name: its length byte and its bytes
inline constexpr u32 FMH5_FLAGS = 4;                // offset of the byte with
inline constexpr u8 FMH5_PIP_PRESENT = 0x08;        // PIP data follow

}  // namespace tessaly
