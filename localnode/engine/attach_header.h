// What a TP server may learn of an attach, as elements behind a query's answer; among them the attach header, an FMH-5, made from
// what ALLOCATE said.
#pragma once

#include "localnode/engine/node.h"
#include "wire/ltv.h"

namespace tessaly::node {

inline constexpr u32 MOST_HEADER_BYTES = 0xFF;  // its length is in one byte
inline constexpr u32 MOST_ELEMENT_BYTES = 4 * LTV_HEADER_BYTES + LU_ALIAS_BYTES + FQ_LU_NAME_BYTES + 8 + MOST_HEADER_BYTES;

// Result: how many bytes they are. Without `security` the header does not tell who asks.
u32 put_elements(u8 (&to)[MOST_ELEMENT_BYTES], const node& n, const attach& about, bool security) noexcept;

}  // namespace tessaly::node
