#include "v6/vavsub/path_callback.h"

#include "common/invariant.h"
#include "common/runtime_log.h"
#include "v6/records/main_cb.h"
#include "v6/records/modules.h"
#include "v6/vav/lifecycle.h"
#include "v6/vavsub/answers.h"
#include "v6/vavsub/completion.h"
#include "v6/vavsub/failure.h"
#include "v6/vavsub/status.h"
#include "verbs/block.h"
#include "wire/datagrams.h"

#include <algorithm>

namespace tessaly {

namespace {

constexpr u32 HEADER = sizeof(verb_message_header);
constexpr u32 FORGET_TYPE_AT = 0x18;

enum log_point : u16 { UNKNOWN_TP = 210, UNKNOWN_VERB = 211, UNKNOWN_EVENT = 216 };

u16 drop(log_point point) noexcept
{
    log_exception(LOG_UNEXPECTED_MESSAGE, point, "");
    return NODE_RESULT_DONE;
}

// The verb that a message names, if it waits on this TP.
pndcb* waiting_verb(const tpcb& tp, const verb_message_header& header) noexcept
{
    auto* pend = static_cast<pndcb*>(nba_validate_handle(header.pend_handle));
    return pend != nullptr && pend->tp_handle == tp.handle && is_linked(pend->link) ? pend : nullptr;
}

// Whether the verb still waits for an answer, on a path, and this one is long enough for its block. verb: its row, null
// when nobody waits for its results.
bool can_be_answered(const tpcb& tp, const pndcb& pend, const verb_row* verb, const verb_message_header& header) noexcept
{
    if (tp.path == 0 || pend.imp_forget != 0 || tp.set_tp_waiter == &pend)
        return false;
    const u32 needed = verb == nullptr ? sizeof(block_header) : verb->travelling_length(pend.format);
    return header.buf_len >= HEADER + needed;
}

u16 receive_message(u32 path, rcv_info& info) noexcept
{
    if (!invariant(info.rcv_ips != nullptr, VAVSUB, "rcv_info->rcv_ips != NULL"))
        return NODE_RESULT_DONE;
    const auto& header = *static_cast<const verb_message_header*>(info.rcv_ips);
    const u8* block = static_cast<const u8*>(info.rcv_ips) + HEADER;

    tpcb* tp = find_tp(header.dest_corr);
    if (tp == nullptr)
        return drop(UNKNOWN_TP);
    if (header.buf_len < HEADER + sizeof(block_header::opcode))
        return drop(UNKNOWN_VERB);
    const u16 opcode = header_of(block).opcode;
    if (opcode == ABEND_INDICATION)
        return vav_abend(path, *tp);

    pndcb* pend = waiting_verb(*tp, header);
    if (pend == nullptr)
        return drop(UNKNOWN_VERB);
    const verb_row* verb = pend->vcb == nullptr ? nullptr : pend->verb;
    if (opcode == IMPLIED_FORGET && (verb == nullptr || verb->opcode != IMPLIED_FORGET)) {
        if (header.buf_len <= HEADER + FORGET_TYPE_AT)
            return drop(UNKNOWN_VERB);
        tp->expect_data_callback = 0;
        vav_call_appl_imp_forget(*tp, *pend, block[FORGET_TYPE_AT]);
        return NODE_RESULT_DONE;
    }
    return can_be_answered(*tp, *pend, verb, header) ? take_answer(*tp, *pend, verb, info) : drop(UNKNOWN_VERB);
}

u16 receive_datagram(rcv_info& info) noexcept
{
    if (!invariant(info.rcv_ips != nullptr, VAVSUB, "rcv_info->rcv_ips != NULL"))
        return NODE_RESULT_DONE;
    const auto& datagram = *static_cast<const appl_ready_datagram*>(info.rcv_ips);
    if (datagram.header.type != DATAGRAM_APPL_READY || datagram.header.length < sizeof datagram)
        return NODE_RESULT_DONE;
    vav_appl_ready(datagram);
    nba_mm_free(info.rcv_ips, 0);
    return NODE_RESULT_FREED;
}

u16 receive(u32 path, rcv_info& info) noexcept
{
    switch (info.event) {
    case NODE_EVENT_IPS: return receive_message(path, info);
    case NODE_EVENT_DATAGRAM: return receive_datagram(info);
    case NODE_EVENT_PATH_FAILURE: vav_path_failure(path); return NODE_RESULT_DONE;
    case NODE_EVENT_FORKED: vav_appl_forked(); return NODE_RESULT_DONE;
    case NODE_EVENT_TERMINATED: vav_sys_term(); return NODE_RESULT_DONE;
    default: return drop(UNKNOWN_EVENT);
    }
}

}  // namespace

u16 vav_path_callback(u32 path, rcv_info* info)
{
    const u16 result = receive(path, *info);
    stop_after_last_tp();
    info->result = result;
    return result;
}

u16 vav_data_callback(u32, rcv_info* info)
{
    tpcb* tp = main_cb.tpcb;
    pndcb* pend = main_cb.data_pndcb;
    if (tp != nullptr && pend != nullptr) {  // else the TP has ended meanwhile
        invariant(tp->expect_data_callback != 0, VAVSUB, "main_cb.tpcb->expect_data_callback");
        tp->expect_data_callback = 0;
        if (api_trace_on() && pend->data_room == 0)  // a block that does not say what its buffer holds
            pend->data_room = static_cast<u16>(std::min<u32>(info->data_len, 0xFFFF));
        vav_call_appl(*tp, *pend);
    }
    info->result = NODE_RESULT_DONE;
    return NODE_RESULT_DONE;
}

}  // namespace tessaly
