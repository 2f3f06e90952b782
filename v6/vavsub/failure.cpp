#include "v6/vavsub/failure.h"

#include "common/invariant.h"
#include "common/runtime_log.h"
#include "v6/records/main_cb.h"
#include "v6/records/modules.h"
#include "v6/records/pend_cache.h"
#include "v6/vav/incoming.h"
#include "v6/vav/tp_start.h"
#include "v6/vavsub/completion.h"
#include "verbs/catalogue.h"

// Each completion may call back, and a callback may do anything. So no loop keeps a record across one, and every loop
// ends when its TP is gone.

namespace tessaly {

namespace {

enum class sweep_end : u8 { tp_ends, tp_stays, tp_restarted };

// A TP that a callback has ended meanwhile stays ended.
void mark_failed(tpcb& tp) noexcept
{
    if (tp.state != TP_GONE)
        tp.state = TP_FAILED;
}

// Before a verb other than TP_STARTED completes on a failed TP: its codes, and what the node and the logs must know.
sweep_end fail_verb(tpcb& tp, pndcb& pend) noexcept
{
    set_codes(pend.vcb, COMMS_SUBSYSTEM_ABENDED, 0);
    mark_failed(tp);
    const u16 opcode = pend.verb->opcode;
    if (is_receive_allocate(opcode)) {
        log_problem(LOG_VERB_FAILED, 221, "x lx es", u32{COMMS_SUBSYSTEM_ABENDED}, u32{0}, TP_NAME_BYTES,
                    block_as<appc_receive_allocate>(pend.vcb).tp_name);
        answer_attach(ATTACH_REFUSED, pend.attach_corr, pend.attach_addr);
        return sweep_end::tp_ends;
    }
    if (opcode == TP_ENDED) {
        log_audit(LOG_TP_ENDED, 222, "ba", TP_ID_BYTES, tp.tp_id);
        return sweep_end::tp_ends;
    }
    return &pend == tp.pnd_cncl ? sweep_end::tp_ends : sweep_end::tp_stays;  // it came behind its receive-allocate
}

// Completes one verb of a failed TP, or starts it again.
sweep_end sweep_verb(tpcb& tp, pndcb& pend) noexcept
{
    sweep_end end = sweep_end::tp_ends;
    if (pend.verb->opcode != TP_STARTED) {
        end = fail_verb(tp, pend);
    } else if (pend.cancelled == 0 && vav_tp_started(tp, pend, START_AFTER_PATH_FAILURE) == 1) {
        return sweep_end::tp_restarted;
    } else {
        tp.state = TP_GONE;  // what callbacks issue on it is refused
        invariant(tp.verb_q.holds_only(pend), VAVSUB, "NB_EMPTY_LIST(tpcb->verb_q)");
    }
    vav_call_appl(tp, pend);
    return end;
}

// Every kept DEALLOCATE gets its implied forget. Result: whether the TP is still there.
bool forget_all(tpcb& tp) noexcept
{
    const tp_ref swept{tp};
    while (pndcb* pend = tp.forget_q.first()) {
        vav_call_appl_imp_forget(tp, *pend, APPC_FORGET_FAILURE);
        if (swept.find() == nullptr)
            return false;
    }
    return true;
}

// Marks what a cancelling sweep completes, so that verbs issued by callbacks stay out of it, and frees what nobody waits for.
void mark_concerned(tpcb& tp, u32 conversation, const pndcb& except) noexcept
{
    for (pndcb *pend = tp.verb_q.first(), *next = nullptr; pend != nullptr; pend = next) {
        next = tp.verb_q.after(*pend);
        if (pend->vcb == nullptr) {
            if (conversation == 0 || pend->forget_conv_id == conversation)
                vav_free_pend(pend);
            continue;
        }
        if (pend == &except)
            pend->sweep_mark = MARKED_AS_IT_IS;
        else if (conversation == 0 || (pend->verb->conv_verb && header_of(pend->vcb).conv_id == conversation))
            pend->sweep_mark = MARKED_CANCELLED;
    }
}

pndcb* first_marked(const tpcb& tp) noexcept
{
    pndcb* pend = tp.verb_q.first();
    while (pend != nullptr && pend->sweep_mark == NOT_MARKED)
        pend = tp.verb_q.after(*pend);
    return pend;
}

}  // namespace

void vav_path_failure(u32 path) noexcept
{
    for_each_tp(VAVSUB, [path](tpcb& tp) {
        if (tp.path != 0 && tp.path == path)
            vav_process_failure(tp);
        return true;
    });
}

u16 vav_abend(u32, tpcb& tp) noexcept
{
    drop_path(tp);
    vav_process_failure(tp);
    return NODE_RESULT_DONE;
}

void vav_process_failure(tpcb& tp) noexcept
{
    log_exception(LOG_TP_FAILED, 220, "ba", TP_ID_BYTES, tp.tp_id);
    const tp_ref swept{tp};
    tp.path = 0;
    recover_set_tp(tp);

    ++tp.sweeps;
    if (!is_first(tp, TP_STARTED))
        mark_failed(tp);  // what callbacks issue on it is refused
    if (!forget_all(tp))
        return;
    sweep_end end = tp.verb_q.first() == nullptr ? sweep_end::tp_stays : sweep_end::tp_ends;
    while (pndcb* pend = tp.verb_q.first()) {
        if (pend->vcb == nullptr) {
            vav_free_pend(pend);
            continue;
        }
        end = sweep_verb(tp, *pend);
        if (swept.find() == nullptr)
            return;
        if (end == sweep_end::tp_restarted)
            break;
    }
    --tp.sweeps;
    if (end == sweep_end::tp_ends || tp.state == TP_GONE)
        end_tp(swept);
}

void vav_cancel_verbs_in_list(u32 conversation, pndcb& except, tpcb& tp) noexcept
{
    if (conversation == 0)
        recover_set_tp(tp);
    mark_concerned(tp, conversation, except);

    const tp_ref swept{tp};
    while (pndcb* pend = first_marked(tp)) {
        if (pend->sweep_mark == MARKED_CANCELLED)
            header_of(pend->vcb).primary_rc = CANCELLED;
        vav_call_appl(tp, *pend);
        if (swept.find() == nullptr)
            return;
    }
}

}  // namespace tessaly
