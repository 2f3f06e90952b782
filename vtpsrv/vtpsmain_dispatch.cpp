#include "vtpsrv/vtpsmain_dispatch.h"

#include "verbs/block.h"

namespace tessaly {

// This library offers no TP server yet, and says so as for any verb that it does not know.
u16 tps_async(void* vcb, appc_completion, u32) noexcept
{
    header_of(vcb).primary_rc = INVALID_VERB;
    return VAV_COMPLETE;
}

}  // namespace tessaly
