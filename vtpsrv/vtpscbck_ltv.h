// Reading the length-type-value elements in which the node describes an attach. All of it is hostile.
#pragma once

#include "common/types.h"

namespace tessaly {

using ltv_routine = void (*)(u32 value_bytes, u16 type, const u8* value, u32 correlator);

// Calls the routine for each element; one that is too short or does not fit ends the reading. Result: how many were visited.
u32 tps_parse_ltv(const u8* buffer, u32 length, ltv_routine routine, u32 correlator) noexcept;

// That routine for the answer to a NAP_QUERY_ATTACH: stores what the element says into the verb's block and buffer.
void tps_parsed_ltv(u32 value_bytes, u16 type, const u8* value, u32 correlator) noexcept;

}  // namespace tessaly
