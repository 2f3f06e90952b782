#include "v6/records/pndcb.h"

#include "common/invariant.h"
#include "v6/records/main_cb.h"
#include "v6/records/modules.h"
#include "verbs/block.h"

namespace tessaly {

void vav_sync_callback(void*, appc_u8* tp_id, appc_u32, appc_u32 corr)
{
    if (invariant(find_tp(tp_handle_in(tp_id)) != nullptr, VAV, "FALSE"))
        vpm_wakeup(corr);
}

}  // namespace tessaly
