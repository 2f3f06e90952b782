#include "vtpsrv/vtpscbck_answers.h"

#include "verbs/block.h"
#include "vtpsrv/vtpscbck_ltv.h"
#include "vtpsrv/vtpsmain_records.h"
#include "vtpsrv/vtpsutil_completion.h"
#include "vtpsrv/vtpsutil_paths.h"
#include "vtpsrv/vtpsverb_messages.h"
#include "wire/ltv.h"

#include <cerrno>

namespace tessaly {

namespace {

// The datagram's own length is the only bound there is.
template <typename Datagram>
bool has_its_fields(const Datagram& datagram) noexcept
{
    return datagram.header.length >= sizeof datagram;
}

void set_update_codes(void* vcb, const update_tp_rsp_datagram& answer) noexcept
{
    switch (answer.status) {
    case UPDATE_TP_DONE: block_as<appc_register_tp>(vcb).tp_reg_id = answer.tp_reg_id; break;
    case UPDATE_TP_NOT_DEFINED: set_codes(vcb, STATE_CHECK, SEC_TP_NOT_DEFINED); break;
    case UPDATE_TP_ALREADY_DEFINED: set_codes(vcb, STATE_CHECK, SEC_TP_ALREADY_DEFINED); break;
    default: set_codes(vcb, UNEXPECTED_SYSTEM_ERROR, answer.status); break;
    }
}

void set_query_codes(void* vcb, u32 status) noexcept
{
    switch (status) {
    case QUERY_DLOAD_ATTACH_GONE: set_codes(vcb, STATE_CHECK, SEC_ATTACH_GONE); break;
    case QUERY_DLOAD_BAD_ATTACH: set_codes(vcb, PARAMETER_CHECK, SEC_BAD_ATTACH_ID); break;
    default: set_codes(vcb, UNEXPECTED_SYSTEM_ERROR, status); break;
    }
}

// Only what this answer has stored counts, not what the buffer held before.
bool wants_pip(const verb_info& verb) noexcept
{
    const auto& block = block_as<appc_query_attach>(verb.verb);
    return block.pip_buf_len != 0 && verb.attach_bytes > FMH5_FLAGS &&
           (static_cast<const u8*>(block.attach_buf)[FMH5_FLAGS] & FMH5_PIP_PRESENT) != 0;
}

// True: the verb goes on waiting, for its PIP data.
bool fetch_pip(const waiting_verb& query, const start_id_words& attach) noexcept
{
    const u32 path = tps_create_path(query.server->path_user, attach.node, 1, tps_appc_caps);
    if (path == 0) {
        set_codes(query.verb->verb, UNEXPECTED_SYSTEM_ERROR, static_cast<u32>(errno));
        return false;
    }
    query.verb->pip_path = path;
    return send_extract_pip(*query.verb, path, attach);
}

// The same, for what a successful answer says.
bool take_description(const waiting_verb& query, const query_dload_rsp_datagram& answer) noexcept
{
    query.verb->attach_bytes = 0;
    tps_parse_ltv(reinterpret_cast<const u8*>(&answer) + sizeof answer, answer.header.length - u32{sizeof answer}, tps_parsed_ltv,
                  answer.correlator);
    if (wants_pip(*query.verb))
        return fetch_pip(query, answer.attach);
    block_as<appc_query_attach>(query.verb->verb).pip_len = 0;
    return false;
}

tp_server* next_due(u32 handle) noexcept
{
    tp_server* server = next_server(handle);
    while (server != nullptr && server->status_due == 0)
        server = next_server(handle);
    return server;
}

}  // namespace

u16 tps_rcv_start_appl_req(const start_appl_req_datagram* request) noexcept
{
    if (!has_its_fields(*request))
        return 0;
    const tp_server* server = find_server(request->server_handle);
    if (server == nullptr)
        return 0;
    appc_start_id start_id{request->start_id.attach, request->start_id.node};
    server->server_callback(APPC_TPS_EVENT_START_APPL, &start_id, request->start_value);
    return 1;
}

// Noted before the first callback runs, so that servers that callbacks register do not prolong the round.
u16 tps_rcv_tp_file_status() noexcept
{
    if (tps_main_cb == nullptr)
        return 1;
    u32 handle = 0;
    while (tp_server* server = next_server(handle))
        if (server->file_status_events != 0 && server->leaving == 0)
            ++server->status_due;
    const u32 teardowns = tps_teardowns;
    while (tps_teardowns == teardowns) {
        tp_server* server = next_due(0);
        if (server == nullptr)
            break;
        --server->status_due;
        if (server->leaving == 0)
            server->server_callback(APPC_TPS_EVENT_TP_FILE_STATUS, nullptr, server->handle);
    }
    return 1;
}

u16 tps_rcv_update_tp_rsp(const update_tp_rsp_datagram* answer) noexcept
{
    if (!has_its_fields(*answer))
        return 0;
    verb_info* verb = find_waiting_verb(answer->correlator).verb;
    if (verb == nullptr || (verb->opcode != NAP_REGISTER_TP && verb->opcode != NAP_UNREGISTER_TP))
        return 0;
    set_update_codes(verb->verb, *answer);
    tps_complete_verb_processing(verb);
    return 1;
}

u16 tps_rcv_query_dload_rsp(const query_dload_rsp_datagram* answer) noexcept
{
    if (!has_its_fields(*answer))
        return 0;
    const waiting_verb query = find_waiting_verb(answer->correlator);
    verb_info* verb = query.verb;
    const bool asked = verb != nullptr && (verb->opcode == NAP_QUERY_ATTACH || verb->opcode == NAP_START_APPL_OK);
    if (!asked || verb->query_answered != 0)
        return 0;
    verb->query_answered = 1;
    if (answer->status != QUERY_DLOAD_DONE)
        set_query_codes(verb->verb, answer->status);
    else if (verb->opcode == NAP_START_APPL_OK)
        tps_send_start_appl_ok(verb);
    else if (take_description(query, *answer))
        return 1;
    tps_complete_verb_processing(verb);
    return 1;
}

}  // namespace tessaly
