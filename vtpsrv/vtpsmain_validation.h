// The checks of the fields that an application supplies. Each gives 1 for what is accepted, else 0.
#pragma once

#include "common/types.h"

namespace tessaly {

u16 tps_validate(void* vcb) noexcept;  // 0: the block says why

u16 tps_validate_tp_name(const u8* name) noexcept;  // 64 bytes; any is accepted
u16 tps_validate_tp_type(u8 type) noexcept;
u16 tps_validate_lu_alias(const u8* alias) noexcept;     // 8 bytes, ASCII
u16 tps_validate_wild_fqplu(const u8* name) noexcept;  // 17 bytes, EBCDIC: a qualified name, a pattern that ends in *, or blanks

}  // namespace tessaly
