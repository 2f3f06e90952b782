// Opcodes and codes by their short names. The values are those of tessaly/appc.h and tessaly/tp_server.h; nothing is listed a
// second time.
#pragma once

#include "common/types.h"

#include <tessaly/appc.h>
#include <tessaly/tp_server.h>

namespace tessaly {

enum opcode : u16 {
    ALLOCATE = APPC_OP_ALLOCATE,
    CONFIRM = APPC_OP_CONFIRM,
    CONFIRMED = APPC_OP_CONFIRMED,
    DEALLOCATE = APPC_OP_DEALLOCATE,
    FLUSH = APPC_OP_FLUSH,
    GET_ATTRIBUTES = APPC_OP_GET_ATTRIBUTES,
    GET_TYPE = APPC_OP_GET_TYPE,
    GET_STATE = APPC_OP_GET_STATE,
    PREPARE_TO_RECEIVE = APPC_OP_PREPARE_TO_RECEIVE,
    RECEIVE_AND_WAIT = APPC_OP_RECEIVE_AND_WAIT,
    RECEIVE_IMMEDIATE = APPC_OP_RECEIVE_IMMEDIATE,
    RECEIVE_AND_POST = APPC_OP_RECEIVE_AND_POST,
    REQUEST_TO_SEND = APPC_OP_REQUEST_TO_SEND,
    SEND_DATA = APPC_OP_SEND_DATA,
    SEND_ERROR = APPC_OP_SEND_ERROR,
    SEND_EXPEDITED_DATA = APPC_OP_SEND_EXPEDITED_DATA,
    TEST_RTS = APPC_OP_TEST_RTS,
    TP_ENDED = APPC_OP_TP_ENDED,
    TP_STARTED = APPC_OP_TP_STARTED,
    RECEIVE_ALLOCATE = APPC_OP_RECEIVE_ALLOCATE,
    GET_TP_PROPERTIES = APPC_OP_GET_TP_PROPERTIES,
    SEND_CONVERSATION = APPC_OP_SEND_CONVERSATION,
    ABEND_INDICATION = 0x0071,  // from the node only
    CANCEL_CONV = APPC_OP_CANCEL_CONV,
    SET_TP_PROPERTIES = APPC_OP_SET_TP_PROPERTIES,
    GET_LU_STATUS = APPC_OP_GET_LU_STATUS,
    IMPLIED_FORGET = APPC_OP_IMPLIED_FORGET,
    TEST_RTS_AND_POST = APPC_OP_TEST_RTS_AND_POST,
    RECEIVE_EXPEDITED_DATA = APPC_OP_RECEIVE_EXPEDITED_DATA,
    RECEIVE_ALLOCATE_CPIC = APPC_OP_RECEIVE_ALLOCATE_CPIC,
    REGISTER_CPIC_TP = APPC_OP_REGISTER_CPIC_TP,
    UNREGISTER_CPIC_TP = APPC_OP_UNREGISTER_CPIC_TP,
    RECEIVE_ALLOCATE_EX = APPC_OP_RECEIVE_ALLOCATE_EX,
    NAP_REGISTER_TP_SERVER = APPC_OP_NAP_REGISTER_TP_SERVER,
    NAP_UNREGISTER_TP_SERVER = APPC_OP_NAP_UNREGISTER_TP_SERVER,
    NAP_REGISTER_TP = APPC_OP_NAP_REGISTER_TP,
    NAP_UNREGISTER_TP = APPC_OP_NAP_UNREGISTER_TP,
    NAP_QUERY_ATTACH = APPC_OP_NAP_QUERY_ATTACH,
    NAP_START_APPL_OK = APPC_OP_NAP_START_APPL_OK,
    NAP_START_APPL_ERR = APPC_OP_NAP_START_APPL_ERR,
    NAP_APPL_FAILED = APPC_OP_NAP_APPL_FAILED,
};

// The verbs of the TP server, which appc_async_int hands on unchecked.
inline constexpr u16 FIRST_TP_SERVER_OPCODE = NAP_REGISTER_TP_SERVER;
inline constexpr u16 LAST_TP_SERVER_OPCODE = NAP_APPL_FAILED;

// Every return code of appc.h, in its order there, then those of tp_server.h. The enumerators and the tables of names below are
// made from these lists.
#define TESSALY_PRIMARY_CODES(code) \
    code(OK) code(PARAMETER_CHECK) code(STATE_CHECK) code(TP_BUSY) code(ALLOCATION_ERROR) code(ACTIVATION_FAIL_RETRY)        \
    code(COMMS_SUBSYSTEM_ABENDED) code(ACTIVATION_FAIL_NO_RETRY) code(COMMS_SUBSYSTEM_NOT_LOADED) code(DEALLOC_ABEND)        \
    code(LU_SESS_LIMIT_EXCEEDED) code(DEALLOC_ABEND_PROG) code(FUNCTION_NOT_SUPPORTED) code(DEALLOC_ABEND_SVC)               \
    code(DEALLOC_ABEND_TIMER) code(DEALLOC_NORMAL) code(PROG_ERROR_NO_TRUNC) code(PROG_ERROR_TRUNC)                          \
    code(PROG_ERROR_PURGING) code(CONV_FAILURE_RETRY) code(CONV_FAILURE_NO_RETRY) code(SVC_ERROR_NO_TRUNC)                   \
    code(UNEXPECTED_SYSTEM_ERROR) code(SVC_ERROR_TRUNC) code(SVC_ERROR_PURGING) code(UNSUCCESSFUL)                           \
    code(CNOS_PARTNER_LU_REJECT) code(CONVERSATION_TYPE_MIXED) code(CANCELLED) code(BACKED_OUT) code(DUPLEX_TYPE_MIXED)      \
    code(INVALID_VERB_SEGMENT) code(STACK_TOO_SMALL) code(INVALID_VERB)

// Those that only verbs of the TP server have.
#define TESSALY_TP_SERVER_PRIMARY_CODES(code) code(TPS_SERVER_BUSY)

#define TESSALY_SECONDARY_CODES(code) \
    code(NO_MEMORY) code(IN_CALLBACK) code(BAD_FORMAT) code(NO_POST_CALLBACK) code(BAD_TP_ID) code(NO_ALLOCATE_PENDING)      \
    code(LU_ALIAS_BARRED) code(NODE_NOT_FOUND) code(ALLOCATE_FAILED) code(BAD_CONV_ID) code(BAD_LU_ALIAS)                    \
    code(ALLOCATION_FAILURE_NO_RETRY) code(ALLOCATION_FAILURE_RETRY) code(INVALID_DATA_SEGMENT) code(BAD_CONV_TYPE)          \
    code(BAD_SYNC_LEVEL) code(BAD_SECURITY) code(BAD_RETURN_CONTROL) code(PIP_LEN_INCORRECT) code(UNKNOWN_PARTNER_MODE)      \
    code(CONFIRM_ON_SYNC_LEVEL_NONE) code(CONFIRM_BAD_STATE) code(CONFIRM_NOT_LL_BDY) code(CONFIRMED_BAD_STATE)              \
    code(DEALLOC_BAD_TYPE) code(DEALLOC_FLUSH_BAD_STATE) code(DEALLOC_CONFIRM_BAD_STATE) code(DEALLOC_NOT_LL_BDY)            \
    code(DEALLOC_LOG_LL_WRONG) code(FLUSH_NOT_SEND_STATE) code(P_TO_R_INVALID_TYPE) code(P_TO_R_NOT_LL_BDY)                  \
    code(P_TO_R_NOT_SEND_STATE) code(RCV_AND_WAIT_BAD_STATE) code(RCV_AND_WAIT_NOT_LL_BDY) code(RCV_AND_WAIT_BAD_FILL)       \
    code(RCV_IMMD_BAD_STATE) code(RCV_IMMD_BAD_FILL) code(RCV_AND_POST_BAD_STATE) code(RCV_AND_POST_NOT_LL_BDY)              \
    code(RCV_AND_POST_BAD_FILL) code(R_T_S_BAD_STATE) code(BAD_LL) code(SEND_DATA_NOT_SEND_STATE)                            \
    code(SEND_DATA_INVALID_TYPE) code(SEND_DATA_CONFIRM_ON_SYNC_LEVEL_NONE) code(SEND_ERROR_BAD_TYPE)                        \
    code(SEND_ERROR_BAD_STATE) code(SEND_ERROR_LOG_LL_WRONG) code(TEST_RTS_BAD_STATE) code(TRANS_PGM_NOT_AVAIL_RETRY)        \
    code(TRANS_PGM_NOT_AVAIL_NO_RETRY) code(TP_NAME_NOT_RECOGNIZED) code(PIP_NOT_ALLOWED)                                    \
    code(PIP_NOT_SPECIFIED_CORRECTLY) code(CONVERSATION_TYPE_MISMATCH) code(SYNC_LEVEL_NOT_SUPPORTED)                        \
    code(SECURITY_NOT_VALID) code(BAD_SERVER_HANDLE) code(NO_SERVER_CALLBACK) code(BAD_EVENTS_FLAG) code(BAD_TP_TYPE)        \
    code(BAD_TP_LU_ALIAS) code(BAD_PLU_NAME) code(BAD_ATTACH_ID) code(TP_NOT_DEFINED) code(TP_ALREADY_DEFINED)               \
    code(ATTACH_GONE)

enum primary_code : u16 {
#define TESSALY_ENUMERATOR(name) name = APPC_##name,
    TESSALY_PRIMARY_CODES(TESSALY_ENUMERATOR) TESSALY_TP_SERVER_PRIMARY_CODES(TESSALY_ENUMERATOR)
#undef TESSALY_ENUMERATOR
};

enum secondary_code : u32 {
    SEC_NONE = 0,
#define TESSALY_ENUMERATOR(name) SEC_##name = APPC_SEC_##name,
    TESSALY_SECONDARY_CODES(TESSALY_ENUMERATOR)
#undef TESSALY_ENUMERATOR
};

struct code_name {
    u32 value;
    const char* name;  // without APPC_ and APPC_SEC_
};

#define TESSALY_NAME(name) {APPC_##name, #name},
inline constexpr code_name verb_result_names[] = {TESSALY_PRIMARY_CODES(TESSALY_NAME)};
inline constexpr code_name primary_code_names[] = {TESSALY_PRIMARY_CODES(TESSALY_NAME)
                                                       TESSALY_TP_SERVER_PRIMARY_CODES(TESSALY_NAME)};
#undef TESSALY_NAME

// A value may have two names: what it means depends on the verb.
#define TESSALY_NAME(name) {APPC_SEC_##name, #name},
inline constexpr code_name secondary_code_names[] = {TESSALY_SECONDARY_CODES(TESSALY_NAME)};
#undef TESSALY_NAME

// Results of the asynchronous entry points.
inline constexpr u16 VAV_IN_PROGRESS = APPC_IN_PROGRESS;
inline constexpr u16 VAV_COMPLETE = APPC_COMPLETE;

// Which family of entries a verb came through.
enum api_type : u16 {
    VAV_ASYNCBCK_VERB = 1,  // asynchronous; ALLOCATE and RECEIVE_ALLOCATE of format 0 become format 1
    VAV_SYNCBCK_VERB = 2,   // synchronous, with the same promotion; may overlap other synchronous verbs of its TP
    VAV_ASYNC_VERB = 3,
    VAV_SYNC_VERB = 4,
};

}  // namespace tessaly
