#include "vtpsrv/vtpscbck_receive.h"

#include "common/invariant.h"
#include "verbs/block.h"
#include "vtpsrv/modules.h"
#include "vtpsrv/vtpscbck_answers.h"
#include "vtpsrv/vtpsmain_lifecycle.h"
#include "vtpsrv/vtpsmain_records.h"
#include "vtpsrv/vtpsutil_completion.h"
#include "vtpsrv/vtpsutil_paths.h"
#include "wire/tp_server_datagrams.h"

#include <algorithm>

namespace tessaly {

namespace {

u16 handle_datagram(const void* datagram) noexcept
{
    switch (static_cast<const datagram_header*>(datagram)->type) {
    case TPS_MSG_START_APPL_REQ: return tps_rcv_start_appl_req(static_cast<const start_appl_req_datagram*>(datagram));
    case TPS_MSG_TP_FILE_STATUS: return tps_rcv_tp_file_status();
    case TPS_MSG_UPDATE_TP_RSP: return tps_rcv_update_tp_rsp(static_cast<const update_tp_rsp_datagram*>(datagram));
    case TPS_MSG_QUERY_DLOAD_RSP: return tps_rcv_query_dload_rsp(static_cast<const query_dload_rsp_datagram*>(datagram));
    default: return 0;
    }
}

u16 receive_datagram(const rcv_info& info) noexcept
{
    void* datagram = info.rcv_ips;
    if (datagram == nullptr || handle_datagram(datagram) == 0)
        return NODE_RESULT_DONE;
    nba_mm_free(datagram, 0);
    return NODE_RESULT_FREED;
}

// The request states no buf_len, so that an answer may echo 0; one that states it must reach to its last field.
bool has_its_fields(const verb_signal& signal) noexcept
{
    constexpr u32 needed = offsetof(verb_signal, block) + offsetof(extract_pip_block, pip_len) + sizeof signal.block.pip_len;
    return signal.header.buf_len == 0 || signal.header.buf_len >= needed;
}

void complete_query(verb_info* query, verb_signal* signal) noexcept
{
    nba_mm_free(signal, 0);
    tps_complete_verb_processing(query);
}

u16 receive_pip(rcv_info& info) noexcept
{
    auto* signal = static_cast<verb_signal*>(info.rcv_ips);
    if (signal == nullptr || !has_its_fields(*signal) || signal->block.opcode != NAP_EXTRACT_PIP)
        return NODE_RESULT_DONE;
    verb_info* query = find_waiting_verb(signal->header.pend_handle).verb;
    if (query == nullptr || query->opcode != NAP_QUERY_ATTACH || query->pip_announced != 0)
        return NODE_RESULT_DONE;
    if (signal->block.primary_rc != OK) {
        set_codes(query->verb, signal->block.primary_rc, signal->block.secondary_rc);
        complete_query(query, signal);
        return NODE_RESULT_DONE;
    }
    auto& block = block_as<appc_query_attach>(query->verb);
    const u16 room = block.pip_buf == nullptr ? u16{0} : block.pip_buf_len;
    block.pip_len = std::min(signal->block.pip_len, room);
    block.pip_buf_len = signal->block.pip_len;
    query->pip_announced = 1;
    info.data_buf = reinterpret_cast<uintptr_t>(block.pip_buf);
    info.data_len = block.pip_len;
    info.data_callback = tps_data_callback;
    return NODE_RESULT_DELIVER;
}

u16 receive(u32 path, rcv_info& info) noexcept
{
    switch (info.event) {
    case NODE_EVENT_IPS: return receive_pip(info);
    case NODE_EVENT_DATAGRAM: return receive_datagram(info);
    case NODE_EVENT_PATH_FAILURE: tps_path_failure(path); break;
    case NODE_EVENT_FORKED: tps_appl_forked(); break;
    case NODE_EVENT_TERMINATED: tps_terminate(); break;
    default: break;
    }
    return NODE_RESULT_DONE;
}

}  // namespace

u16 tps_receive_proc(u32 path, rcv_info* info)
{
    const u16 result = receive(path, *info);
    info->result = result;
    return result;
}

u16 tps_data_callback(u32, rcv_info* info)
{
    if (!invariant(info != nullptr, VTPSCBCK, "rcv_info != NULL", 317))
        return NODE_RESULT_DONE;
    info->result = NODE_RESULT_DONE;
    auto* signal = static_cast<verb_signal*>(info->rcv_ips);
    if (!invariant(signal != nullptr, VTPSCBCK, "verb_signal != NULL", 321))
        return NODE_RESULT_DONE;
    invariant(signal->block.opcode == NAP_EXTRACT_PIP, VTPSCBCK, "TPS_SIG_VCB(verb_signal)->opcode == NAP_EXTRACT_PIP", 322);
    verb_info* query = find_waiting_verb(signal->header.pend_handle).verb;
    if (query == nullptr)
        return NODE_RESULT_DONE;
    invariant(header_of(query->verb).opcode == NAP_QUERY_ATTACH, VTPSCBCK, "TPS_QUA(verb_info->verb)->opcode == NAP_QUERY_ATTACH",
              341);
    if (query->opcode == NAP_QUERY_ATTACH)  // another verb goes on waiting for its own answer
        complete_query(query, signal);
    return NODE_RESULT_DONE;
}

}  // namespace tessaly
