// Types and parameters of conversation verbs, checked against what the conversation is.
#include "localnode/engine/readings.h"

#include "localnode/engine/asides.h"

namespace tessaly::node {

namespace {

using enum conv_verb;

bool confirms(u8 sync_level) noexcept
{
    return sync_level != APPC_SYNC_NONE;
}

// Asking for confirmation is wrong without sync level.
u32 needs_sync_level(u8 sync_level, u32 code) noexcept
{
    return confirms(sync_level) ? 0 : code;
}

reading read_send_data(const appc_send_data& block, u8 sync_level) noexcept
{
    switch (block.type) {
    case APPC_SEND_NONE:
    case APPC_SEND_FLUSH: return {send_data, flush};
    case APPC_SEND_CONFIRM:
        return {send_data, confirm, needs_sync_level(sync_level, APPC_SEC_SEND_DATA_CONFIRM_ON_SYNC_LEVEL_NONE)};
    case APPC_SEND_P_TO_R_FLUSH: return {send_data, prepare_flush};
    case APPC_SEND_P_TO_R_SYNC_LEVEL: return {send_data, confirms(sync_level) ? prepare_confirm : prepare_flush};
    case APPC_SEND_DEALLOC_FLUSH: return {send_data, deallocate_flush};
    case APPC_SEND_DEALLOC_SYNC_LEVEL: return {send_data, confirms(sync_level) ? deallocate_confirm : deallocate_flush};
    case APPC_SEND_DEALLOC_ABEND: return {send_data, deallocate_abend};
    default: return {send_data, flush, APPC_SEC_SEND_DATA_INVALID_TYPE};
    }
}

reading read_prepare(const appc_prepare_to_receive& block, u8 sync_level) noexcept
{
    const u32 wrong_locks = block.locks > APPC_LOCKS_LONG ? APPC_SEC_P_TO_R_INVALID_TYPE : 0;
    switch (block.ptr_type) {
    case APPC_P_TO_R_SYNC_LEVEL: return {confirms(sync_level) ? prepare_confirm : prepare_flush, flush, wrong_locks};
    case APPC_P_TO_R_FLUSH: return {prepare_flush, flush, wrong_locks};
    case APPC_P_TO_R_CONFIRM:
        return {prepare_confirm, flush, confirms(sync_level) ? wrong_locks : APPC_SEC_P_TO_R_INVALID_TYPE};
    default: return {prepare_flush, flush, APPC_SEC_P_TO_R_INVALID_TYPE};
    }
}

// An abnormal end is a mapped conversation's, or one of a basic one's three.
reading read_abend(bool fits, u16 code, u32 wrong_log) noexcept
{
    return {deallocate_abend, flush, fits ? wrong_log : APPC_SEC_DEALLOC_BAD_TYPE, code};
}

// Log data of a basic conversation.
u32 check_log(const request& verb, bool basic, u32 code) noexcept
{
    return basic && !verb.data.empty() && !is_log_record(verb.data) ? code : 0;
}

reading read_deallocate(const request& verb, u8 sync_level, bool basic) noexcept
{
    const u32 wrong_log = check_log(verb, basic, APPC_SEC_DEALLOC_LOG_LL_WRONG);
    switch (block_as<appc_deallocate>(verb.block).dealloc_type) {
    case APPC_DEALLOC_SYNC_LEVEL: return {confirms(sync_level) ? deallocate_confirm : deallocate_flush, flush, wrong_log};
    case APPC_DEALLOC_FLUSH: return {deallocate_flush, flush, wrong_log};
    case APPC_DEALLOC_CONFIRM:
        return {deallocate_confirm, flush, confirms(sync_level) ? wrong_log : APPC_SEC_DEALLOC_BAD_TYPE};
    case APPC_DEALLOC_TYPE_ABEND: return read_abend(!basic, DEALLOC_ABEND, wrong_log);
    case APPC_DEALLOC_TYPE_ABEND_PROG: return read_abend(basic, DEALLOC_ABEND_PROG, wrong_log);
    case APPC_DEALLOC_TYPE_ABEND_SVC: return read_abend(basic, DEALLOC_ABEND_SVC, wrong_log);
    case APPC_DEALLOC_TYPE_ABEND_TIMER: return read_abend(basic, DEALLOC_ABEND_TIMER, wrong_log);
    default: return {deallocate_abend, flush, APPC_SEC_DEALLOC_BAD_TYPE};
    }
}

reading read_send_error(const request& verb, bool basic) noexcept
{
    const auto& block = block_as<appc_send_error>(verb.block);
    const u8 last_type = basic ? APPC_SVC_ERROR : APPC_PROG_ERROR;  // services have basic conversations only
    if (block.err_type > last_type || block.err_dir > APPC_ERROR_SEND_DIRECTION)
        return {send_error, flush, APPC_SEC_SEND_ERROR_BAD_TYPE};
    return {send_error, flush, check_log(verb, basic, APPC_SEC_SEND_ERROR_LOG_LL_WRONG)};
}

reading read_receive(const request& verb, conv_verb which, bool basic, u32 bad_fill) noexcept
{
    const bool sound = !basic || block_as<appc_receive>(verb.block).fill <= APPC_FILL_LL;
    return {which, flush, sound ? 0 : bad_fill};
}

reading read_send_expedited(const request& verb) noexcept
{
    const bool sound = !verb.data.empty() && verb.data.size() <= MOST_EXPEDITED_BYTES;
    return {send_expedited_data, flush, sound ? 0u : APPC_SEC_INVALID_DATA_SEGMENT};
}

reading read_receive_expedited(const appc_receive_expedited_data& block) noexcept
{
    return {receive_expedited_data, flush, block.rtn_ctl <= APPC_IMMEDIATE ? 0u : APPC_SEC_BAD_RETURN_CONTROL};
}

}  // namespace

std::optional<reading> read_block(const request& verb, const conv_side& side) noexcept
{
    const u8 sync_level = side.sync_level;
    const bool basic = side.conv_type == APPC_BASIC;
    switch (verb.row->opcode) {
    case SEND_DATA: return read_send_data(block_as<appc_send_data>(verb.block), sync_level);
    case FLUSH: return reading{flush};
    case CONFIRM: return reading{confirm, flush, needs_sync_level(sync_level, APPC_SEC_CONFIRM_ON_SYNC_LEVEL_NONE)};
    case CONFIRMED: return reading{confirmed};
    case PREPARE_TO_RECEIVE: return read_prepare(block_as<appc_prepare_to_receive>(verb.block), sync_level);
    case DEALLOCATE: return read_deallocate(verb, sync_level, basic);
    case SEND_ERROR: return read_send_error(verb, basic);
    case RECEIVE_AND_WAIT: return read_receive(verb, receive_and_wait, basic, APPC_SEC_RCV_AND_WAIT_BAD_FILL);
    case RECEIVE_AND_POST: return read_receive(verb, receive_and_post, basic, APPC_SEC_RCV_AND_POST_BAD_FILL);
    case RECEIVE_IMMEDIATE: return read_receive(verb, receive_immediate, basic, APPC_SEC_RCV_IMMD_BAD_FILL);
    case REQUEST_TO_SEND: return reading{request_to_send};
    case SEND_EXPEDITED_DATA: return read_send_expedited(verb);
    case RECEIVE_EXPEDITED_DATA: return read_receive_expedited(block_as<appc_receive_expedited_data>(verb.block));
    case TEST_RTS:
    case TEST_RTS_AND_POST: return reading{test_rts};
    case GET_TYPE:
    case GET_STATE:
    case GET_ATTRIBUTES: return reading{inquire};
    default: return std::nullopt;
    }
}

}  // namespace tessaly::node
