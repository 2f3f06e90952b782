#include "v6/records/tpcb.h"

#include "common/runtime_guards.h"
#include "common/runtime_log.h"
#include "v6/records/main_cb.h"
#include "v6/records/pend_cache.h"
#include "verbs/catalogue.h"

#include <cstring>

namespace tessaly {

namespace {

constexpr u32 CLOSE_PATH_FLAGS = 0xC000;

}  // namespace

u16 vav_alloc_tpcb(tpcb** out) noexcept
{
    tpcb* tp = allocate_record<tpcb>();
    if (tp == nullptr) {
        log_exception(LOG_SHORTAGE, 204, "");
        return 0;
    }
    *tp = {};
    tp->verb_q.init();
    tp->forget_q.init();
    tp->state = TP_ACTIVE;
    tp->serial = ++main_cb.last_serial;
    tp->handle = vtm_get_free_entry(main_cb.tp_table, tp);
    if (tp->handle == 0) {
        log_problem(LOG_TP_TABLE_FULL, 205, "");
        nba_mm_free(tp, 0);
        return 0;
    }
    store(tp->tp_id, 4, tp->handle);
    *out = tp;
    return 1;
}

void vav_free_tpcb(tpcb* tp) noexcept
{
    if (tp == nullptr)
        return;
    drop_path(*tp);
    if (tp->handle != 0)
        vtm_release_entry(main_cb.tp_table, tp->handle);
    while (pndcb* pend = tp->forget_q.first())
        vav_free_pend(pend);
    if (pndcb* reserved = tp->set_tp_pndcb) {
        if (reserved->vcb != nullptr)
            nba_mm_free(reserved->vcb, 0);
        reserved->vcb = nullptr;
        vav_free_pend(reserved);
    }
    forget_delivery_to(*tp);
    nba_mm_free(tp, 0);
}

void queue_verb(tpcb& tp, pndcb& pend, const verb_row& verb, void* vcb, u32 corr) noexcept
{
    pend.verb = &verb;
    pend.format = header_of(vcb).format;
    pend.corr = corr;
    pend.vcb = vcb;
    pend.tp_handle = tp.handle;
    tp.verb_q.append(pend);
}

void take_node_names(tpcb& tp, const u8* node_tp_id, u32 node_corr) noexcept
{
    std::memcpy(tp.node_tp_id, node_tp_id, TP_ID_BYTES);
    tp.node_corr = node_corr;
    tp.node_known = 1;
}

void forget_node_names(tpcb& tp) noexcept
{
    std::memset(tp.node_tp_id, 0, TP_ID_BYTES);
    tp.node_corr = 0;
    tp.node_known = 0;
}

void drop_path(tpcb& tp) noexcept
{
    if (tp.path == 0)
        return;
    vpm_close_path(tp.path, CLOSE_PATH_FLAGS);
    tp.path = 0;
}

tpcb* tp_ref::find() const noexcept
{
    tpcb* tp = find_tp(handle);
    return tp != nullptr && tp->serial == serial ? tp : nullptr;
}

void end_tp(const tp_ref& ended) noexcept
{
    tpcb* tp = ended.find();
    if (tp == nullptr)
        return;
    if (tp->sync_waiters != 0 || tp->sweeps != 0) {
        forget_delivery_to(*tp);
        tp->state = TP_GONE;
    } else {
        vav_free_tpcb(tp);
    }
}

void recover_set_tp(tpcb& tp) noexcept
{
    if (tp.set_tp_waiter == nullptr)
        return;
    tp.set_tp_waiter = nullptr;
    for (pndcb* pend = tp.verb_q.first(); pend != nullptr; pend = tp.verb_q.after(*pend)) {
        if (is_internal(*pend)) {
            unlink(pend->link);
            tp.set_tp_pndcb = pend;
            return;
        }
    }
}

void restore_opcode(tpcb& tp, const pndcb& pend) noexcept
{
    if (tp.saved_opcode == 0 || pend.vcb == nullptr || pend.verb->opcode != RECEIVE_ALLOCATE)
        return;
    header_of(pend.vcb).opcode = tp.saved_opcode;
    tp.saved_opcode = 0;
}

}  // namespace tessaly
