// EBCDIC of SNA names: the blank, the table that writes names, and padding.
#pragma once

#include "common/types.h"

#include <array>

namespace tessaly {

inline constexpr u8 EBCDIC_BLANK = 0x40;
inline constexpr u8 EBCDIC_PERIOD = 0x4B;
inline constexpr u8 EBCDIC_ASTERISK = 0x5C;
inline constexpr u8 EBCDIC_HYPHEN = 0x60;
inline constexpr u8 EBCDIC_PERCENT = 0x6C;
inline constexpr u8 EBCDIC_UNDERSCORE = 0x6D;

// ASCII to EBCDIC for the characters of SNA names; 0 for every other byte.
extern const std::array<u8, 256> AE_table;

}  // namespace tessaly
