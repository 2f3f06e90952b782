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
#include "verbs/catalogue.h"
#include "wire/datagrams.h"

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

// The verb that a message answers, or null: the record must wait on this TP, the TP have a path to be answered on, and the
// message be long enough for the verb's block.
pndcb* answered_verb(const tpcb& tp, const verb_message_header& header) noexcept
{
    auto* pend = static_cast<pndcb*>(nba_validate_handle(header.pend_handle));
    if (pend == nullptr || tp.path == 0 || pend->tp_handle != tp.handle || !is_linked(pend->link) || pend->imp_forget != 0)
        return nullptr;
    if (tp.set_tp_waiter == pend)
        return nullptr;  // answered already
    if (pend->vcb == nullptr)
        return header.buf_len >= HEADER + sizeof(block_header) ? pend : nullptr;
    const verb_row* verb = find_verb(header_of(pend->vcb).opcode);
    const u32 needed = verb == nullptr ? sizeof(block_header) : verb->travelling_length(header_of(pend->vcb).format);
    return header.buf_len >= HEADER + needed ? pend : nullptr;
}

// The DEALLOCATE whose conversation is forgotten: it waits for that, or its own answer has not come yet.
pndcb* forgotten_verb(const tpcb& tp, const verb_message_header& header) noexcept
{
    auto* pend = static_cast<pndcb*>(nba_validate_handle(header.pend_handle));
    const bool waits = pend != nullptr && pend->tp_handle == tp.handle && is_linked(pend->link);
    return waits && header.buf_len > HEADER + FORGET_TYPE_AT ? pend : nullptr;
}

u16 receive_message(u32 path, rcv_info& info) noexcept
{
    if (!invariant(info.rcv_ips != nullptr, VAVSUB, "rcv_info->rcv_ips != NULL"))
        return NODE_RESULT_DONE;
    auto& header = *static_cast<verb_message_header*>(info.rcv_ips);
    u8* block = static_cast<u8*>(info.rcv_ips) + HEADER;

    tpcb* tp = find_tp(header.dest_corr);
    if (tp == nullptr)
        return drop(UNKNOWN_TP);
    if (header.buf_len < HEADER + sizeof(block_header::opcode))
        return drop(UNKNOWN_VERB);
    const u16 opcode = header_of(block).opcode;
    if (opcode == ABEND_INDICATION)
        return vav_abend(path, *tp);

    pndcb* pend = answered_verb(*tp, header);
    const bool answers_own_verb = pend != nullptr && pend->vcb != nullptr && header_of(pend->vcb).opcode == IMPLIED_FORGET;
    if (opcode == IMPLIED_FORGET && !answers_own_verb) {
        pend = forgotten_verb(*tp, header);
        if (pend == nullptr)
            return drop(UNKNOWN_VERB);
        tp->expect_data_callback = 0;
        vav_call_appl_imp_forget(*tp, *pend, block[FORGET_TYPE_AT]);
        return NODE_RESULT_DONE;
    }
    return pend == nullptr ? drop(UNKNOWN_VERB) : take_answer(*tp, *pend, info);
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
        vav_call_appl(*tp, *pend);
    }
    info->result = NODE_RESULT_DONE;
    return NODE_RESULT_DONE;
}

}  // namespace tessaly
