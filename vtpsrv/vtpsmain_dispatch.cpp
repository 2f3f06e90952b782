#include "vtpsrv/vtpsmain_dispatch.h"

#include "common/invariant.h"
#include "common/runtime_guards.h"
#include "verbs/block.h"
#include "vtpsrv/modules.h"
#include "vtpsrv/vtpsmain_lifecycle.h"
#include "vtpsrv/vtpsmain_records.h"
#include "vtpsrv/vtpsmain_validation.h"
#include "vtpsrv/vtpsverb_process.h"

#include <cerrno>

namespace tessaly {

namespace {

constexpr u32 NO_TIME_LIMIT = 0xFFFFFFFF;

// One verb on its way.
struct tps_call {
    void* vcb;
    appc_completion callback;
    u32 corr;
    u32 api_type;
    u16 opcode;
    u32 teardowns = 0;  // another number than tps_teardowns: its records are gone
    tp_server* server = nullptr;

    bool is_synchronous() const noexcept { return api_type == VAV_SYNCBCK_VERB; }
    bool is_orphaned() const noexcept { return teardowns != tps_teardowns; }
    void refuse(u16 primary, u32 secondary) const noexcept { set_codes(vcb, primary, secondary); }
};

bool open_tp_server(const tps_call& call) noexcept
{
    if (tps_main_cb == nullptr) {
        if (const u32 status = tps_load(); status != 0) {
            call.refuse(UNEXPECTED_SYSTEM_ERROR, status);
            return false;
        }
        tps_initialise();
    }
    if (tps_main_cb->state == TPS_STATE_ACTIVE)
        return true;
    call.refuse(COMMS_SUBSYSTEM_ABENDED, SEC_NONE);
    return false;
}

// True: the verb goes on, with its server or, for a report of a process that has none, without.
bool find_its_server(tps_call& call) noexcept
{
    if (call.opcode == NAP_REGISTER_TP_SERVER) {
        call.server = tps_alloc_server();
        if (call.server == nullptr)
            call.refuse(UNEXPECTED_SYSTEM_ERROR, static_cast<u32>(errno));
        return call.server != nullptr;
    }
    call.server = find_server(block_as<appc_unregister_tp_server>(call.vcb).server_handle);
    const bool reports = call.opcode == NAP_START_APPL_ERR || call.opcode == NAP_APPL_FAILED;
    if (call.server != nullptr || (reports && !call.is_synchronous()))
        return true;
    call.refuse(PARAMETER_CHECK, SEC_BAD_SERVER_HANDLE);
    return false;
}

// One synchronous verb at a time for each server.
bool enter_server(const tps_call& call) noexcept
{
    if (call.server == nullptr)
        return true;
    if (call.is_synchronous()) {
        if (call.server->sync_busy != 0) {
            call.refuse(TPS_SERVER_BUSY, SEC_NONE);
            return false;
        }
        call.server->sync_busy = 1;
    }
    ++call.server->callers;
    return true;
}

u16 run(const tps_call& call) noexcept
{
    if (tps_validate(call.vcb) == 0)
        return VAV_COMPLETE;
    verb_info* verb = tps_alloc_verb(call.vcb, call.callback, call.corr, call.api_type);
    if (verb == nullptr) {
        call.refuse(UNEXPECTED_SYSTEM_ERROR, static_cast<u32>(errno));
        return VAV_COMPLETE;
    }
    u16 result = tps_process(verb, call.server);
    if (call.is_synchronous() && result == VAV_IN_PROGRESS) {
        vpm_sleep(call.server->wait_object, NO_TIME_LIMIT);
        result = VAV_COMPLETE;
    }
    if (result == VAV_COMPLETE && !call.is_orphaned())
        tps_free_verb(verb);
    return result;
}

void leave_server(const tps_call& call, u16 result) noexcept
{
    if (call.server == nullptr || call.is_orphaned())
        return;
    if (call.is_synchronous())
        call.server->sync_busy = 0;
    if (call.opcode == NAP_REGISTER_TP_SERVER && result == VAV_COMPLETE && header_of(call.vcb).primary_rc != OK)
        call.server->leaving = 1;
    if (--call.server->callers == 0 && call.server->leaving != 0)
        tps_free_server(call.server);
}

u16 dispatch(tps_call& call) noexcept
{
    if (!open_tp_server(call))
        return VAV_COMPLETE;
    call.teardowns = tps_teardowns;
    if (!find_its_server(call) || !enter_server(call))
        return VAV_COMPLETE;
    const u16 result = run(call);
    leave_server(call, result);
    return result;
}

}  // namespace

void tps_sync_callback(void*, u8*, u32, u32 corr)
{
    verb_info* verb = nullptr;
    tp_server* server = nullptr;
    if (!invariant(tps_get_verb(corr, &verb, &server) != 0, VTPSMAIN, "FALSE", 127))
        return;
    if (is_linked(verb->link))
        unlink(verb->link);
    vpm_wakeup(server->wait_object);
}

u16 tps_async_verb(void* vcb, appc_completion callback, u32 corr, u32 api_type) noexcept
{
    const process_lock lock;
    tps_call call{vcb, callback, corr, api_type, header_of(vcb).opcode};
    const u16 result = dispatch(call);
    if (tps_main_cb != nullptr && tps_main_cb->state == TPS_STATE_TERMINATING && call.is_synchronous())
        tps_terminate();
    return result;
}

u16 tps_async(void* vcb, appc_completion callback, u32 corr) noexcept
{
    return callback == nullptr ? tps_async_verb(vcb, tps_sync_callback, corr, VAV_SYNCBCK_VERB)
                               : tps_async_verb(vcb, callback, corr, VAV_ASYNCBCK_VERB);
}

}  // namespace tessaly
