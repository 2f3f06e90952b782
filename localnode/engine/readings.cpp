// Types and parameters of conversation verbs, checked against the conversation's sync level.
#include "localnode/engine/readings.h"

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

reading read_deallocate(const appc_deallocate& block, u8 sync_level) noexcept
{
    switch (block.dealloc_type) {
    case APPC_DEALLOC_SYNC_LEVEL: return {confirms(sync_level) ? deallocate_confirm : deallocate_flush};
    case APPC_DEALLOC_FLUSH: return {deallocate_flush};
    case APPC_DEALLOC_CONFIRM:
        return {deallocate_confirm, flush, needs_sync_level(sync_level, APPC_SEC_DEALLOC_BAD_TYPE)};
    case APPC_DEALLOC_TYPE_ABEND: return {deallocate_abend};
    default:
        return {deallocate_abend, flush, APPC_SEC_DEALLOC_BAD_TYPE};  // the other abends are for basic conversations
    }
}

reading read_send_error(const appc_send_error& block) noexcept
{
    // Service errors are for basic conversations.
    const bool sound = block.err_type == APPC_PROG_ERROR && block.err_dir <= APPC_ERROR_SEND_DIRECTION;
    return {send_error, flush, sound ? 0u : APPC_SEC_SEND_ERROR_BAD_TYPE};
}

}  // namespace

std::optional<reading> read_block(const request& verb, u8 sync_level) noexcept
{
    switch (verb.row->opcode) {
    case SEND_DATA: return read_send_data(block_as<appc_send_data>(verb.block), sync_level);
    case FLUSH: return reading{flush};
    case CONFIRM: return reading{confirm, flush, needs_sync_level(sync_level, APPC_SEC_CONFIRM_ON_SYNC_LEVEL_NONE)};
    case CONFIRMED: return reading{confirmed};
    case PREPARE_TO_RECEIVE: return read_prepare(block_as<appc_prepare_to_receive>(verb.block), sync_level);
    case DEALLOCATE: return read_deallocate(block_as<appc_deallocate>(verb.block), sync_level);
    case SEND_ERROR: return read_send_error(block_as<appc_send_error>(verb.block));
    case RECEIVE_AND_WAIT: return reading{receive_and_wait};
    case RECEIVE_AND_POST: return reading{receive_and_post};
    case RECEIVE_IMMEDIATE: return reading{receive_immediate};
    case REQUEST_TO_SEND: return reading{request_to_send};
    case TEST_RTS: return reading{test_rts};
    case GET_TYPE:
    case GET_STATE:
    case GET_ATTRIBUTES: return reading{inquire};
    default: return std::nullopt;
    }
}

}  // namespace tessaly::node
