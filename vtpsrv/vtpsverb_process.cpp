#include "vtpsrv/vtpsverb_process.h"

#include "common/invariant.h"
#include "common/runtime_guards.h"
#include "verbs/block.h"
#include "vtpsrv/modules.h"
#include "vtpsrv/vtpscbck_receive.h"
#include "vtpsrv/vtpsutil_completion.h"
#include "vtpsrv/vtpsutil_paths.h"
#include "vtpsrv/vtpsverb_messages.h"

namespace tessaly {

namespace {

u16 register_server(const verb_info& verb, tp_server& server) noexcept
{
    constexpr u32 flags = 1;
    auto& block = block_as<appc_register_tp_server>(verb.verb);
    const u16 status = vpm_init_path_user(TPS_PATH_USER_KIND, flags, tps_receive_proc, 0, &server.path_user);
    if (status != 0) {
        set_codes(verb.verb, UNEXPECTED_SYSTEM_ERROR, status);
        return VAV_COMPLETE;
    }
    block.server_handle = server.handle;
    server.server_callback = block.server_callback;
    server.file_status_events = block.file_status_events == 1;
    return VAV_COMPLETE;
}

// From here on the handle is refused; the record goes when the last of the server's callers leaves.
u16 unregister_server(tp_server& server) noexcept
{
    server.leaving = 1;
    if (server.path_user != 0)
        forget_paths_of(server.path_user);
    if (!complete_waiting_verbs(server) || !complete_lost_queries())
        return VAV_COMPLETE;  // the TP server was torn down, and the path user is not ours any more
    if (server.path_user != 0) {
        const process_lock lock;
        vpm_terminate_path_user(server.path_user);
        server.path_user = 0;
    }
    return VAV_COMPLETE;
}

u16 wait_for_answer(verb_info& verb, tp_server& server) noexcept
{
    if (header_of(verb.verb).primary_rc != OK)
        return VAV_COMPLETE;
    server.verb_list.append(verb);
    return VAV_IN_PROGRESS;
}

u16 process_with_server(verb_info& verb, tp_server& server) noexcept
{
    switch (verb.opcode) {
    case NAP_REGISTER_TP_SERVER: return register_server(verb, server);
    case NAP_UNREGISTER_TP_SERVER: return unregister_server(server);
    case NAP_REGISTER_TP:
    case NAP_UNREGISTER_TP: tps_send_update_tp_info(&verb); return wait_for_answer(verb, server);
    case NAP_QUERY_ATTACH:
    case NAP_START_APPL_OK: tps_send_query_dload(&verb); return wait_for_answer(verb, server);
    default: invariant(false, VTPSVERB, "FALSE", 202); return VAV_COMPLETE;
    }
}

}  // namespace

u16 tps_process(verb_info* verb, tp_server* server) noexcept
{
    set_codes(verb->verb, OK, SEC_NONE);
    if (verb->opcode == NAP_START_APPL_ERR) {
        tps_send_start_appl_err(verb);
        return VAV_COMPLETE;
    }
    if (verb->opcode == NAP_APPL_FAILED) {
        tps_send_appl_failed(verb);
        return VAV_COMPLETE;
    }
    if (server == nullptr) {
        set_codes(verb->verb, PARAMETER_CHECK, SEC_BAD_SERVER_HANDLE);
        return VAV_COMPLETE;
    }
    verb->server_handle = server->handle;
    return process_with_server(*verb, *server);
}

}  // namespace tessaly
