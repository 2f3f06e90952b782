#include "v6/vavsub/completion.h"

#include "common/invariant.h"
#include "common/runtime_log.h"
#include "v6/records/main_cb.h"
#include "v6/records/modules.h"
#include "v6/records/pend_cache.h"
#include "verbs/catalogue.h"
#include "vsvig/semutrap_verb_trace.h"

#include <cstring>

// What a callback needs is copied, and its record released or put where it waits, before the call: afterwards record and TP may
// be gone.

namespace tessaly {

namespace {

// Raised while an application's callback runs, so that a synchronous verb in it is refused. Callbacks nest.
class callback_scope {
public:
    callback_scope() noexcept : outer_(main_cb.in_callback) { main_cb.in_callback = 1; }
    callback_scope(const callback_scope&) = delete;
    callback_scope& operator=(const callback_scope&) = delete;
    ~callback_scope() { main_cb.in_callback = outer_; }

private:
    u16 outer_;
};

struct tp_id_copy {
    u8 bytes[TP_ID_BYTES];
    explicit tp_id_copy(const tpcb& tp) noexcept { std::memcpy(bytes, tp.tp_id, TP_ID_BYTES); }
};

u32 conversation_of(const void* vcb, const verb_row& verb) noexcept
{
    if (verb.conv_verb)
        return header_of(vcb).conv_id;
    return is_receive_allocate(verb.opcode) ? block_as<appc_receive_allocate>(vcb).conv_id : 0;
}

// The library's own SET_TP_PROPERTIES has been answered: the TP_STARTED that waited for it completes in its place.
pndcb& release_set_tp(tpcb& tp, pndcb& pend) noexcept
{
    const block_header& result = header_of(pend.vcb);
    if (result.primary_rc != OK)
        log_exception(LOG_SET_TP_FAILED, 226, "x lx", u32{result.primary_rc}, result.secondary_rc);
    nba_mm_free(pend.vcb, 0);
    pend.vcb = nullptr;
    vav_free_pend(&pend);

    pndcb& started = *tp.set_tp_waiter;
    tp.set_tp_waiter = nullptr;
    return started;
}

void take_out(tpcb& tp, pndcb& pend) noexcept
{
    if (is_linked(pend.link))
        unlink(pend.link);
    if (tp.pnd_cncl == &pend)
        tp.pnd_cncl = nullptr;
    if (main_cb.data_pndcb == &pend)
        forget_delivery_to(tp);
    restore_opcode(tp, pend);
}

// RECEIVE_AND_POST and TEST_RTS_AND_POST complete through the routine that their block names, else as issued.
void complete_post_verb(tpcb& tp, pndcb& pend) noexcept
{
    void* vcb = pend.vcb;
    tp_id_copy tp_id{tp};
    const u32 conversation = header_of(vcb).conv_id;
    const auto post = load<appc_post>(vcb, pend.verb->post_callback);
    const appc_completion callback = pend.callback;
    const u32 corr = pend.corr;
    vav_free_pend(&pend);
    if (post != nullptr)
        post(vcb, tp_id.bytes, conversation);
    else if (callback != nullptr && callback != vav_sync_callback)  // a synchronous caller has not waited
        callback(vcb, tp_id.bytes, conversation, corr);
}

// Whether the record must stay for the implied forget that will follow its successful DEALLOCATE.
bool awaits_forget(const pndcb& pend) noexcept
{
    return pend.verb->opcode == DEALLOCATE && pend.format == 1 && header_of(pend.vcb).primary_rc == OK && pend.forgotten == 0 &&
           block_as<appc_deallocate>(pend.vcb).forget_callback != nullptr;
}

void keep_for_forget(tpcb& tp, pndcb& pend, u32 conversation) noexcept
{
    const auto& block = block_as<appc_deallocate>(pend.vcb);
    pend.imp_forget = 1;
    pend.forget_callback = block.forget_callback;
    pend.corr = block.forget_value;
    pend.forget_conv_id = conversation;
    tp.forget_q.append(pend);
}

void complete_verb(tpcb& tp, pndcb& pend) noexcept
{
    void* vcb = pend.vcb;
    tp_id_copy tp_id{tp};
    const u32 conversation = conversation_of(vcb, *pend.verb);
    const appc_completion callback = pend.callback;
    const u32 corr = pend.corr;
    if (awaits_forget(pend))
        keep_for_forget(tp, pend, conversation);
    else if (callback != vav_sync_callback)
        vav_free_pend(&pend);  // a woken synchronous caller frees its own
    if (callback != nullptr) {
        const callback_scope scope;
        callback(vcb, tp_id.bytes, conversation, corr);
    }
}

}  // namespace

void vav_call_appl(tpcb& tp, pndcb& completed) noexcept
{
    take_out(tp, completed);
    pndcb* pend = &completed;
    if (tp.set_tp_waiter != nullptr && is_internal(*pend)) {
        pend = &release_set_tp(tp, *pend);
        take_out(tp, *pend);
    }
    if (pend->vcb == nullptr) {  // nobody waits for it
        vav_free_pend(pend);
        return;
    }

    if (api_trace_on())
        trace_response(pend->vcb, pend->format, pend->data_room);
    if (pend->verb->post_callback == 0) {
        complete_verb(tp, *pend);
    } else if (pend->verb->opcode == RECEIVE_AND_POST) {
        complete_post_verb(tp, *pend);  // its routine may wait for verbs
    } else {
        const callback_scope scope;
        complete_post_verb(tp, *pend);
    }
}

void complete_and_end(tpcb& tp, pndcb& pend) noexcept
{
    const tp_ref ended{tp};
    tp.state = TP_GONE;  // what callbacks issue on it is refused
    vav_call_appl(tp, pend);
    if (ended.find() != nullptr && tp.pnd_cncl != nullptr) {
        pndcb& cancel = *tp.pnd_cncl;
        invariant(cancel.verb->opcode == CANCEL_CONV, VAVSUB, "VAV_HDR(tpcb->pnd_cncl->vcb)->opcode == NAP_CANCEL_CONVERSATION");
        if (cancel.vcb != nullptr)
            header_of(cancel.vcb).primary_rc = OK;
        vav_call_appl(tp, cancel);
    }
    end_tp(ended);
}

void vav_call_appl_imp_forget(tpcb& tp, pndcb& pend, u16 type) noexcept
{
    void* deallocate = pend.vcb;
    if (!invariant(deallocate != nullptr, VAVSUB, "deallocate != NULL"))
        return;

    tp_id_copy tp_id{tp};
    appc_implied_forget callback = nullptr;
    u32 conversation = 0;
    u32 value = 0;
    if (pend.imp_forget != 0) {
        callback = pend.forget_callback;
        conversation = pend.forget_conv_id;
        value = pend.corr;
        pend.imp_forget = 0;
        unlink(pend.link);
        if (pend.wait_obj == 0)  // else its synchronous caller, not yet awake, frees it
            vav_free_pend(&pend);
    } else {
        // It has overtaken the DEALLOCATE's own answer.
        const auto& block = block_as<appc_deallocate>(deallocate);
        if (!invariant(pend.verb->opcode == DEALLOCATE && pend.format == 1, VAVSUB,
                       "(deallocate->opcode == NAP_B_DEALLOCATE) && (deallocate->format == 1)"))
            return;
        if (pend.forgotten != 0 || block.forget_callback == nullptr)
            return;
        pend.forgotten = 1;
        callback = block.forget_callback;
        conversation = block.conv_id;
        value = block.forget_value;
    }

    if (api_trace_on())
        seputrap2(deallocate, value, conversation, tp_id.bytes, type, reinterpret_cast<void*>(callback));
    const callback_scope scope;
    callback(deallocate, tp_id.bytes, conversation, type, value);
}

}  // namespace tessaly
