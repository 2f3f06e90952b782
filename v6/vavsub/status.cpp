#include "v6/vavsub/status.h"

#include "common/invariant.h"
#include "common/runtime_log.h"
#include "v6/records/main_cb.h"
#include "v6/records/modules.h"
#include "v6/records/pend_cache.h"
#include "v6/vav/incoming.h"
#include "v6/vav/lifecycle.h"
#include "v6/vavsub/completion.h"
#include "verbs/catalogue.h"

#include <cstring>

namespace tessaly {

namespace {

// Ends the wait of an announced receive-allocate, whose codes are set.
void end_wait(tpcb& tp, pndcb& pend) noexcept
{
    drop_path(tp);
    complete_and_end(tp, pend);
}

// The receive-allocate that a TP has announced and not yet been given a conversation for, or null.
pndcb* announced_verb(const tpcb& tp) noexcept
{
    pndcb* pend = tp.verb_q.first();
    if (pend == nullptr || tp.path != 0)
        return nullptr;
    return pend->vcb == nullptr || is_receive_allocate(pend->verb->opcode) ? pend : nullptr;
}

// Behind the receive-allocate only its CANCEL_CONV can wait.
void check_cancel(const tpcb& tp, const pndcb& pend) noexcept
{
    const pndcb* canpndcb = tp.verb_q.after(pend);
    if (canpndcb == nullptr)
        return;
    const auto is_cancel = [](const pndcb* queued) {
        return queued != nullptr && queued->verb->opcode == CANCEL_CONV;
    };
    invariant(canpndcb == tp.pnd_cncl, VAVSUB, "canpndcb == tpcb->pnd_cncl");
    invariant(is_cancel(canpndcb), VAVSUB, "VAV_HDR(canpndcb->vcb)->opcode == NAP_CANCEL_CONVERSATION");
    invariant(is_cancel(tp.pnd_cncl), VAVSUB, "VAV_HDR(tpcb->pnd_cncl->vcb)->opcode == NAP_CANCEL_CONVERSATION");
}

// A conversation has come: the verb goes to the node on the conversation's path, unless nobody wants it any more.
void take_conversation(tpcb& tp, pndcb& pend, const appl_ready_datagram& ready) noexcept
{
    const u32 attach_corr = ready.attach_corr;
    const u32 attach_addr = ready.attach_addr;
    if (tp.pnd_cncl == nullptr && pend.vcb != nullptr) {
        std::memcpy(block_as<appc_receive_allocate>(pend.vcb).tp_name, ready.tp_name, TP_NAME_BYTES);
        if (vav_send_rcv_allocate(tp, pend, attach_addr, attach_corr) == 0)
            return;
        end_wait(tp, pend);
    } else {
        if (pend.vcb != nullptr)
            set_codes(pend.vcb, CANCELLED, 0);
        end_wait(tp, pend);
    }
    answer_attach(ATTACH_REFUSED, attach_corr, attach_addr);
}

void withdraw(tpcb& tp, pndcb& pend) noexcept
{
    if (pend.vcb != nullptr)
        header_of(pend.vcb).primary_rc = CANCELLED;
    end_wait(tp, pend);
}

void fail_wait(tpcb& tp, pndcb& pend, u32 status) noexcept
{
    if (pend.vcb != nullptr) {
        if (pend.cancelled != 0)
            set_codes(pend.vcb, CANCELLED, 0);
        else
            set_codes(pend.vcb, STATE_CHECK, SEC_ALLOCATE_FAILED);
    }
    invariant(status == VSM_ST_FAILED, VAVSUB, "ready->app_rdy_status == VSM_ST_FAILED");
    end_wait(tp, pend);
}

// Completes everything that a TP has outstanding, as abended.
void abend_all(tpcb& tp) noexcept
{
    const tp_ref swept{tp};
    recover_set_tp(tp);
    while (true) {
        if (pndcb* forgotten = tp.forget_q.first()) {
            vav_call_appl_imp_forget(tp, *forgotten, APPC_FORGET_FAILURE);
        } else if (pndcb* pend = tp.verb_q.first()) {
            if (pend->vcb != nullptr)
                set_codes(pend->vcb, COMMS_SUBSYSTEM_ABENDED, 0);
            vav_call_appl(tp, *pend);
        } else {
            return;
        }
        if (swept.find() == nullptr)
            return;
    }
}

}  // namespace

void vav_appl_ready(const appl_ready_datagram& ready) noexcept
{
    tpcb* tp = find_tp(ready.tp_handle);
    if (tp == nullptr) {
        log_exception(LOG_UNEXPECTED_MESSAGE, 218, "");
        return;
    }
    pndcb* pend = announced_verb(*tp);
    if (pend == nullptr) {
        log_exception(LOG_UNEXPECTED_MESSAGE, 219, "");
        return;
    }
    check_cancel(*tp, *pend);
    switch (ready.app_rdy_status) {
    case VSM_ST_READY: return take_conversation(*tp, *pend, ready);
    case VSM_ST_WITHDRAWN: return withdraw(*tp, *pend);
    default: return fail_wait(*tp, *pend, ready.app_rdy_status);
    }
}

void vav_sys_term() noexcept
{
    log_problem(LOG_NODE_TERMINATED, 217, "");
    main_cb.state = NODE_TERMINATED;
    for_each_tp(VAVSUB, [](tpcb& tp) {
        const tp_ref ended{tp};
        abend_all(tp);
        end_tp(ended);
        return true;
    });
}

void vav_appl_forked() noexcept
{
    for_each_tp(VAVSUB, [](tpcb& tp) {
        recover_set_tp(tp);
        while (pndcb* pend = tp.verb_q.first())
            vav_free_pend(pend);
        tp.path = 0;  // the parent's
        vav_free_tpcb(&tp);
        return true;
    });
    main_cb.path_user = 0;  // the parent's, too
    vav_terminate();
}

}  // namespace tessaly
