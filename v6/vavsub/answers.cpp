#include "v6/vavsub/answers.h"

#include "common/inlining.h"
#include "common/invariant.h"
#include "common/runtime_log.h"
#include "v6/records/main_cb.h"
#include "v6/records/modules.h"
#include "v6/vav/incoming.h"
#include "v6/vav/tp_start.h"
#include "v6/vav3264/convert.h"
#include "v6/vavsub/completion.h"
#include "v6/vavsub/failure.h"
#include "v6/vavsub/path_callback.h"
#include "v6/vavsub/results.h"
#include "v6/vavsub/set_tp.h"
#include "verbs/catalogue.h"

#include <cstring>

namespace tessaly {

namespace {

struct answer {
    tpcb& tp;
    pndcb& pend;
    u8* block;  // in the caller's layout
    u32 src_corr;
    bool copied;  // the results are in the application's block
};

void return_tp_id(const answer& got) noexcept
{
    if (got.pend.vcb != nullptr)
        std::memcpy(header_of(got.pend.vcb).tp_id, got.tp.tp_id, TP_ID_BYTES);
}

void tp_ended(const answer& got) noexcept
{
    tpcb& tp = got.tp;
    drop_path(tp);
    return_tp_id(got);
    log_audit(LOG_TP_ENDED, 212, "ba", TP_ID_BYTES, tp.tp_id);
    const tp_ref ended{tp};
    vav_cancel_verbs_in_list(0, got.pend, tp);
    end_tp(ended);
}

void conversation_cancelled(const answer& got) noexcept
{
    const u32 conversation = header_of(got.block).conv_id;
    return_tp_id(got);
    vav_cancel_verbs_in_list(conversation, got.pend, got.tp);
}

void take_lu_names(tpcb& tp, const u8* lu_alias, const u8* fq_lu_name) noexcept
{
    std::memcpy(tp.lu_alias, lu_alias, LU_ALIAS_BYTES);
    std::memcpy(tp.fq_lu_name, fq_lu_name, FQ_LU_NAME_BYTES);
}

void audit_tp(log_id id, u16 point, const tpcb& tp, const u8* tp_name) noexcept
{
    log_audit(id, point, "ba es ca es", TP_ID_BYTES, tp.tp_id, TP_NAME_BYTES, tp_name, LU_ALIAS_BYTES, tp.lu_alias,
              FQ_LU_NAME_BYTES, tp.fq_lu_name);
}

void tp_started(const answer& got) noexcept
{
    tpcb& tp = got.tp;
    const auto& block = block_as<appc_tp_started>(got.block);
    take_lu_names(tp, block.lu_alias, block.fq_lu_name);
    if (got.pend.vcb == nullptr || header_of(got.pend.vcb).primary_rc != OK) {
        if (got.pend.vcb == nullptr || vav_tp_started(tp, got.pend, START_AFTER_ANSWER) != 1)
            complete_and_end(tp, got.pend);
        return;
    }

    take_node_names(tp, block.tp_id, got.src_corr);
    std::memcpy(block_as<appc_tp_started>(got.pend.vcb).tp_id, tp.tp_id, TP_ID_BYTES);
    audit_tp(LOG_TP_STARTED, 213, tp, block.tp_name);
    if (vav_issue_set_tp(tp, got.pend) == VAV_COMPLETE)
        vav_call_appl(tp, got.pend);
}

void conversation_accepted(const answer& got) noexcept
{
    tpcb& tp = got.tp;
    const auto& block = block_as<appc_receive_allocate>(got.block);
    take_lu_names(tp, block.lu_alias, block.fq_lu_name);
    answer_attach(ATTACH_TAKEN, got.pend.attach_corr, got.pend.attach_addr);
    if (got.pend.vcb == nullptr || header_of(got.pend.vcb).primary_rc != OK) {
        if (got.pend.vcb != nullptr) {
            const auto& issued = block_as<appc_receive_allocate>(got.pend.vcb);
            log_problem(LOG_VERB_FAILED, 215, "x lx es", u32{issued.primary_rc}, issued.secondary_rc, TP_NAME_BYTES,
                        issued.tp_name);
        }
        complete_and_end(tp, got.pend);
        return;
    }

    take_node_names(tp, block.tp_id, got.src_corr);
    std::memcpy(block_as<appc_receive_allocate>(got.pend.vcb).tp_id, tp.tp_id, TP_ID_BYTES);
    audit_tp(LOG_CONVERSATION_ACCEPTED, 214, tp, block.tp_name);
    vav_call_appl(tp, got.pend);
}

// A receive verb's data goes from the message straight into the application's buffer; the verb completes when it is
// there.
u16 deliver_data(const answer& got, rcv_info& info) noexcept
{
    const auto& receive = block_as<appc_receive>(got.pend.vcb);
    info.data_callback = vav_data_callback;
    info.data_buf = static_cast<u32>(reinterpret_cast<std::uintptr_t>(receive.dptr));
    info.data_len = receive.dlen;
    main_cb.tpcb = &got.tp;
    main_cb.data_pndcb = &got.pend;
    got.tp.expect_data_callback = 1;
    return NODE_RESULT_DELIVER;
}

TESSALY_HOT_ROAD u16 verb_answered(const answer& got, const verb_row* verb, rcv_info& info) noexcept
{
    return_tp_id(got);
    if (got.copied && verb->received_into != 0 && block_as<appc_receive>(got.pend.vcb).dlen != 0)
        return deliver_data(got, info);
    vav_call_appl(got.tp, got.pend);
    return NODE_RESULT_DONE;
}

}  // namespace

u16 take_answer(tpcb& tp, pndcb& pend, const verb_row* verb, rcv_info& info) noexcept
{
    auto& header = *static_cast<verb_message_header*>(info.rcv_ips);
    u8* block = static_cast<u8*>(info.rcv_ips) + sizeof header;
    const u16 answered = header_of(block).opcode;
    const u16 opcode = verb != nullptr ? verb->opcode : answered;
    const verb_row* answered_row = answered == opcode ? verb : find_verb(answered);
    invariant(answered < MAIN_OPCODES || answered_row != nullptr, VAV3264, "FALSE");
    tp.expect_data_callback = 0;

    // An answer that is no verb, or of no format, has nothing for anybody; any other counts as the answer to this verb.
    const bool copied = verb != nullptr && answered_row != nullptr && header_of(block).format <= 1;
    if (verb != nullptr)
        invariant(answered == opcode || answered == SEND_CONVERSATION, VAVSUB,
                  "(opcode == VAV_HDR(pndcb->vcb)->opcode) || (opcode == NAP_B_SEND_CONVERSATION)");
    if (copied) {
        const u16 shrink = vav_make_vcb_32bit(block, verb->layout(pend.format));
        header.buf_len -= shrink;
        header.msg_len -= shrink;
        vav_copy_vcb(pend.vcb, block, *verb, pend.format);
    }

    const answer got{tp, pend, block, header.src_corr, copied};
    switch (opcode) {
    case TP_ENDED: tp_ended(got); return NODE_RESULT_DONE;
    case CANCEL_CONV: conversation_cancelled(got); return NODE_RESULT_DONE;
    case TP_STARTED: tp_started(got); return NODE_RESULT_DONE;
    case RECEIVE_ALLOCATE: conversation_accepted(got); return NODE_RESULT_DONE;
    default: return verb_answered(got, verb, info);
    }
}

}  // namespace tessaly
