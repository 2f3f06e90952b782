// The exported verb entry points, and the synchronous call around the dispatcher.

#include "common/export.h"
#include "common/inlining.h"
#include "common/invariant.h"
#include "common/runtime_guards.h"
#include "v6/records/main_cb.h"
#include "v6/records/modules.h"
#include "v6/records/pend_cache.h"
#include "v6/vav/dispatch.h"
#include "v6/vav/lifecycle.h"
#include "v6/vav/version.h"
#include "verbs/catalogue.h"
#include "vtpsrv/vtpsmain_dispatch.h"

namespace tessaly {

namespace {

constexpr u32 NO_TIME_LIMIT = 0xFFFFFFFF;

// A woken caller gives its record back, unless a DEALLOCATE's record waits for its implied forget: that one only
// loses its wait object.
void release_record(pndcb* pend, u16 opcode) noexcept
{
    if (opcode == DEALLOCATE && pend->imp_forget != 0) {
        vpm_release_wait_object(pend->wait_obj);
        pend->wait_obj = 0;
    } else {
        vav_free_pend(pend);
    }
}

// Runs one verb and returns when it has completed. Post verbs are left to complete on their own.
TESSALY_HOT_ROAD void vav_sync_verb(void* vcb, api_type api) noexcept
{
    const process_lock lock;
    vpm_process_pending_events();

    verb_call call{vcb, vav_sync_callback, 0, api};
    if (vav_async_verb(call) != VAV_IN_PROGRESS || call.verb->post_callback != 0)
        return;

    const u32 stops = main_cb.stops;
    const u32 handle = call.pend->handle;
    vpm_sleep(call.wait_object, NO_TIME_LIMIT);
    if (main_cb.stops != stops) {
        // The process forked meanwhile. The TP is gone with the parent's verbs, and so is the record unless it had been
        // answered.
        if (nba_validate_handle(handle) == call.pend)
            vav_free_pend(call.pend);
        return;
    }
    tpcb* tp = call.tp;
    if (!invariant(tp != nullptr, VAV, "tpcb != NULL"))
        return;
    --tp->sync_waiters;
    release_record(call.pend, call.verb->opcode);
    nba_mm_refresh(2);

    if (tp->state == TP_GONE && tp->sync_waiters == 0 && tp->sweeps == 0) {
        vav_free_tpcb(tp);
        stop_after_last_tp();
    }
}

TESSALY_HOT_ROAD u16 async_verb(void* vcb, appc_completion callback, u32 corr, api_type api) noexcept
{
    const process_lock lock;
    verb_call call{vcb, callback, corr, api};
    return vav_async_verb(call);
}

void set_version(u32 version, void* vcb) noexcept
{
    const process_lock lock;
    vav_set_version(version, vcb);
}

}  // namespace

}  // namespace tessaly

extern "C" {

TESSALY_EXPORT void APPC(void* vcb)
{
    tessaly::vav_sync_verb(vcb, tessaly::VAV_SYNC_VERB);
}

TESSALY_EXPORT void APPC_C(void* vcb)
{
    tessaly::vav_sync_verb(vcb, tessaly::VAV_SYNC_VERB);
}

TESSALY_EXPORT void APPC_P(void* vcb)
{
    tessaly::vav_sync_verb(vcb, tessaly::VAV_SYNC_VERB);
}

TESSALY_EXPORT void appc_c1(void* vcb)
{
    tessaly::vav_sync_verb(vcb, tessaly::VAV_SYNCBCK_VERB);
}

TESSALY_EXPORT appc_u16 APPC_Async(void* vcb, appc_completion callback, appc_u32 corr)
{
    if (callback == nullptr) {
        tessaly::vav_sync_verb(vcb, tessaly::VAV_SYNC_VERB);
        return tessaly::VAV_COMPLETE;
    }
    return tessaly::async_verb(vcb, callback, corr, tessaly::VAV_ASYNC_VERB);
}

TESSALY_EXPORT appc_u16 appc_async_int(void* vcb, appc_completion callback, appc_u32 corr)
{
    const tessaly::u16 opcode = tessaly::header_of(vcb).opcode;
    if (opcode >= tessaly::FIRST_TP_SERVER_OPCODE && opcode <= tessaly::LAST_TP_SERVER_OPCODE)
        return tessaly::tps_async(vcb, callback, corr);
    if (callback == nullptr) {
        tessaly::vav_sync_verb(vcb, tessaly::VAV_SYNCBCK_VERB);
        return tessaly::VAV_COMPLETE;
    }
    return tessaly::async_verb(vcb, callback, corr, tessaly::VAV_ASYNCBCK_VERB);
}

TESSALY_EXPORT appc_u16 appc_async1(void* vcb, appc_completion callback, appc_u32 corr)
{
    return appc_async_int(vcb, callback, corr);
}

TESSALY_EXPORT void appc_c_version(appc_u32 version, void* vcb)
{
    tessaly::set_version(version, vcb);
    tessaly::vav_sync_verb(vcb, tessaly::VAV_SYNCBCK_VERB);
}

TESSALY_EXPORT appc_u16 appc_c_async_version(appc_u32 version, void* vcb, appc_completion callback, appc_u32 corr)
{
    tessaly::set_version(version, vcb);
    return appc_async_int(vcb, callback, corr);
}

}  // extern "C"
