// Registration of the TP names for which a process accepts CPI-C conversations: one datagram each, no answer.
#pragma once

#include "common/types.h"

namespace tessaly {

// Result: the runtime's status; when it is not 0 the codes in the block say so.
u16 vav_register_cpic_tp(void* vcb) noexcept;
u16 vav_unregister_cpic_tp(void* vcb) noexcept;

}  // namespace tessaly
