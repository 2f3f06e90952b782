// The widths of names, and how long one is.
#pragma once

#include "common/types.h"

#include <tessaly/names.h>

namespace tessaly::names {

inline constexpr u32 PROC_ID_BYTES = 4;
inline constexpr u32 NAME_BYTES = 8;
inline constexpr u32 FQ_NAME_BYTES = 17;
inline constexpr u32 LONG_NAME_BYTES = 64;  // of TPs
static_assert(sizeof(ntl_lfsid) == 4 && sizeof(ntl_fqpcid) == 8 + FQ_NAME_BYTES);

// The number of bytes before the first one of that value; the width when there is none.
u32 length_before(const u8* field, u32 width, u8 end) noexcept;

}  // namespace tessaly::names
