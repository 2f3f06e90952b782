#include "v6/vav/dispatch.h"

#include "common/inlining.h"
#include "common/invariant.h"
#include "common/runtime_guards.h"
#include "common/runtime_log.h"
#include "common/scope_guard.h"
#include "v6/records/main_cb.h"
#include "v6/records/modules.h"
#include "v6/records/pend_cache.h"
#include "v6/vav/cpic.h"
#include "v6/vav/incoming.h"
#include "v6/vav/lifecycle.h"
#include "v6/vav/send.h"
#include "v6/vav/tp_start.h"
#include "v6/vavsub/completion.h"
#include "verbs/catalogue.h"
#include "vsvig/semutrap_verb_trace.h"

#include <cstring>

namespace tessaly {

namespace {

u16 complete(const verb_call& call, u16 primary, u32 secondary) noexcept
{
    set_codes(call.vcb, primary, secondary);
    return VAV_COMPLETE;
}

u16 complete(const verb_call& call, u16 primary) noexcept
{
    header_of(call.vcb).primary_rc = primary;
    return VAV_COMPLETE;
}

// Only the second family of entries promotes, and only these two verbs.
void promote_format(const verb_call& call) noexcept
{
    block_header& header = header_of(call.vcb);
    if (header.format != 0 || (call.api != VAV_ASYNCBCK_VERB && call.api != VAV_SYNCBCK_VERB))
        return;
    if (header.opcode == ALLOCATE) {
        header.format = 1;
        block_as<appc_allocate>(call.vcb).conv_group_id = 0;
    } else if (header.opcode == RECEIVE_ALLOCATE) {
        header.format = 1;
    }
}

// Result: whether the library has started; else the verb has its codes.
TESSALY_OFF_THE_ROAD bool start_library(const verb_call& call) noexcept
{
    const u16 code = vav_init();
    if (code == 0)
        return true;
    const bool no_node = code == 2 || code == 5 || code == 19;
    vav_terminate();
    complete(call, no_node ? COMMS_SUBSYSTEM_NOT_LOADED : UNEXPECTED_SYSTEM_ERROR, code);
    return false;
}

// Whether the block names a verb that exists in its format; sets the codes when it does not.
bool is_valid_verb(const verb_call& call) noexcept
{
    const verb_row* verb = call.verb;
    const u8 format = header_of(call.vcb).format;
    if (verb != nullptr && format <= 1 && verb->format[format].exists())
        return true;
    if (verb != nullptr && verb->format[0].exists())
        complete(call, PARAMETER_CHECK, SEC_BAD_FORMAT);
    else
        complete(call, INVALID_VERB);
    return false;
}

// The record and block of the SET_TP_PROPERTIES that will follow a TP_STARTED, so that it cannot fail for want of them.
// Released with the TP.
bool reserve_set_tp(tpcb& tp) noexcept
{
    tp.set_tp_pndcb = vav_alloc_pend(nullptr);
    if (tp.set_tp_pndcb == nullptr) {
        log_exception(LOG_SHORTAGE, 224, "");
        return false;
    }
    tp.set_tp_pndcb->vcb = allocate_record<appc_set_tp_properties>();
    if (tp.set_tp_pndcb->vcb == nullptr) {
        log_exception(LOG_SHORTAGE, 225, "");
        return false;
    }
    return true;
}

// TP_STARTED and the receive-allocate verbs: everything is made, or nothing.
TESSALY_OFF_THE_ROAD u16 start_tp(verb_call& call) noexcept
{
    const bool tp_started = call.verb->opcode == TP_STARTED;

    tpcb* tp = nullptr;
    if (vav_alloc_tpcb(&tp) == 0)
        return complete(call, UNEXPECTED_SYSTEM_ERROR, SEC_NO_MEMORY);
    scope_guard drop_tp{[&] { vav_free_tpcb(tp); }};

    pndcb* pend = vav_alloc_pend(call.callback);
    if (pend == nullptr) {
        log_exception(LOG_SHORTAGE, 200, "");
        return complete(call, UNEXPECTED_SYSTEM_ERROR, SEC_NO_MEMORY);
    }
    scope_guard drop_pend{[&] { vav_free_pend(pend); }};

    if (tp_started && !reserve_set_tp(*tp))
        return complete(call, UNEXPECTED_SYSTEM_ERROR, SEC_NO_MEMORY);

    queue(call, *tp, *pend);
    const u16 under_way = tp_started ? vav_tp_started(*tp, *pend, START_BY_APPLICATION) : vav_rcv_allocate(*tp, *pend);
    if (under_way != 1)
        return VAV_COMPLETE;  // the codes are in the block

    drop_pend.keep();
    drop_tp.keep();
    return VAV_IN_PROGRESS;
}

bool has_zero_tp_id(const void* vcb) noexcept
{
    static constexpr u8 zeros[TP_ID_BYTES] = {};
    return std::memcmp(header_of(vcb).tp_id, zeros, TP_ID_BYTES) == 0;
}

// CANCEL_CONV of a start that has no TP identifier yet.
TESSALY_OFF_THE_ROAD u16 cancel_start(verb_call& call) noexcept
{
    return header_of(call.vcb).conv_id == 0 ? vav_cancel_tp_started() : vav_cancel_rcv_alloc(call);
}

// CANCEL_CONV without a conversation: the TP's ALLOCATE is the one.
TESSALY_OFF_THE_ROAD u16 cancel_allocate(const verb_call& call, tpcb& tp) noexcept
{
    pndcb* pend = tp.verb_q.first();
    if (pend == nullptr)
        return complete(call, PARAMETER_CHECK, SEC_NO_ALLOCATE_PENDING);

    const auto is_allocate = [](const pndcb& queued) { return queued.vcb != nullptr && queued.verb->opcode == ALLOCATE; };
    if (!invariant(is_allocate(*pend), VAV, "VAV_HDR(tmpcb->vcb)->opcode == NAP_B_ALLOCATE"))
        while (pend != nullptr && !is_allocate(*pend))
            pend = tp.verb_q.after(*pend);
    if (pend != nullptr) {
        set_codes(pend->vcb, CANCELLED, 0);
        vav_call_appl(tp, *pend);
    }
    return VAV_COMPLETE;
}

bool lacks_post_callback(const verb_call& call) noexcept
{
    const u16 callback_at = call.verb->post_callback;
    return callback_at != 0 && is_synchronous(call.api) && load<u32>(call.vcb, callback_at) == 0;
}

// A conversation or TP verb: queue it and send it.
u16 send_on_tp(verb_call& call, tpcb& tp) noexcept
{
    if (tp.sync_waiters != 0 && call.api == VAV_SYNC_VERB)
        return complete(call, TP_BUSY, 0);
    if (lacks_post_callback(call))
        return complete(call, PARAMETER_CHECK, SEC_NO_POST_CALLBACK);
    if (!is_started(tp))
        return complete(call, PARAMETER_CHECK, SEC_BAD_TP_ID);

    pndcb* pend = vav_alloc_pend(call.callback);
    if (pend == nullptr) {
        log_exception(LOG_SHORTAGE, 201, "");
        return complete(call, UNEXPECTED_SYSTEM_ERROR, SEC_NO_MEMORY);
    }
    queue(call, tp, *pend);
    vav_send_verb(tp, *pend);  // a broken path shows as a path failure
    if (call.verb->opcode == TP_ENDED)
        tp.state = TP_ENDING;
    return VAV_IN_PROGRESS;
}

// A TP that does not take verbs. TP_ENDED on one whose path failed releases it.
TESSALY_OFF_THE_ROAD u16 refuse_on(const verb_call& call, tpcb* tp) noexcept
{
    if (tp == nullptr || tp->state == TP_ENDING || tp->state == TP_GONE)
        return complete(call, PARAMETER_CHECK, SEC_BAD_TP_ID);
    if (header_of(call.vcb).opcode == TP_ENDED)
        end_tp(tp_ref{*tp});
    return complete(call, COMMS_SUBSYSTEM_ABENDED, 0);
}

u16 issue_on_tp(verb_call& call) noexcept
{
    tpcb* tp = find_tp(tp_handle_in(header_of(call.vcb).tp_id));
    if (tp == nullptr || tp->state != TP_ACTIVE)
        return refuse_on(call, tp);
    if (call.verb->issue == issue_rule::cancels && header_of(call.vcb).conv_id == 0)
        return cancel_allocate(call, *tp);
    return send_on_tp(call, *tp);
}

TESSALY_OFF_THE_ROAD u16 issue_registration(const verb_call& call) noexcept
{
    if (call.verb->opcode == REGISTER_CPIC_TP)
        vav_register_cpic_tp(call.vcb);
    else
        vav_unregister_cpic_tp(call.vcb);
    return VAV_COMPLETE;
}

bool starts_library(const verb_row& verb) noexcept
{
    return verb.issue == issue_rule::starts_tp || verb.opcode == REGISTER_CPIC_TP;
}

u16 dispatch(verb_call& call) noexcept
{
    const verb_row* verb = call.verb;
    header_of(call.vcb).primary_rc = OK;

    if (main_cb.in_callback != 0 && call.callback == vav_sync_callback)
        return complete(call, STATE_CHECK, SEC_IN_CALLBACK);
    if (main_cb.state == NOT_STARTED && verb != nullptr && starts_library(*verb) && !start_library(call))
        return VAV_COMPLETE;
    if (main_cb.state == NODE_TERMINATED)
        return complete(call, COMMS_SUBSYSTEM_ABENDED, 0);
    if (!is_valid_verb(call))
        return VAV_COMPLETE;

    switch (verb->issue) {
    case issue_rule::on_tp: return issue_on_tp(call);
    case issue_rule::starts_tp: return start_tp(call);
    case issue_rule::registers: return issue_registration(call);
    case issue_rule::cancels: return has_zero_tp_id(call.vcb) ? cancel_start(call) : issue_on_tp(call);
    }
    return VAV_COMPLETE;
}

}  // namespace

void queue(verb_call& call, tpcb& tp, pndcb& pend) noexcept
{
    if (pend.wait_obj != 0) {
        invariant(is_synchronous(call.api), VAV, "(api_type == VAV_SYNC_VERB) || (api_type==VAV_SYNCBCK_VERB)");
        call.wait_object = pend.wait_obj;
    }
    queue_verb(tp, pend, *call.verb, call.vcb, pend.wait_obj != 0 ? pend.wait_obj : call.corr);
    if (api_trace_on())
        pend.data_room = traced_data_room(call.vcb, *call.verb);
    call.tp = &tp;
    call.pend = &pend;
}

u16 vav_async_verb(verb_call& call) noexcept
{
    const bool synchronous = call.callback == vav_sync_callback;
    if (synchronous)
        invariant(is_synchronous(call.api), VAV, "(api_type == VAV_SYNCBCK_VERB) || (api_type == VAV_SYNC_VERB)");
    promote_format(call);
    if (api_trace_on())
        seputrap(TRACE_REQUEST, call.vcb);

    call.verb = find_verb(header_of(call.vcb).opcode);
    const u16 result = dispatch(call);
    if (result == VAV_IN_PROGRESS) {
        if (synchronous && call.verb->post_callback == 0)
            ++call.tp->sync_waiters;
    } else if (api_trace_on()) {
        seputrap(TRACE_RESPONSE, call.vcb);
    }
    return result;
}

}  // namespace tessaly
