/* tessaly/appc.h - the LU 6.2 verb interface.
 *
 * A program describes one verb in a block of memory of its own (a verb control block, "vcb" below), passes it to an
 * entry point and reads the results back from the same block. This header has the blocks, one struct per verb, the
 * codes and the entry points. It is plain C and builds as C89, C99 and C++; the interface is that of 32-bit Linux
 * (gcc -m32).
 *
 * The life of a program, seen from the side that starts the conversation and from the side that accepts it:
 *
 *     TP_STARTED                          RECEIVE_ALLOCATE      waits for the partner's ALLOCATE
 *     ALLOCATE                            RECEIVE_AND_WAIT      what_rcvd tells data, CONFIRM, SEND ...
 *     SEND_DATA ... CONFIRM               CONFIRMED
 *     DEALLOCATE                          RECEIVE_AND_WAIT      primary_rc APPC_DEALLOC_NORMAL
 *     TP_ENDED                            TP_ENDED
 *
 * How to fill a block: set it to zeros (memset), then opcode, format, opext and the fields marked "in". All integers
 * are in the machine's own byte order. LU aliases and mode names handed out by the node's configuration are 8 ASCII
 * bytes (alias) or 8 EBCDIC bytes (mode); TP names, user identifiers, passwords and fully qualified LU names are
 * EBCDIC. All names are padded with blanks (ASCII 0x20, EBCDIC 0x40) to their full width and have no terminator.
 */
#ifndef TESSALY_APPC_H
#define TESSALY_APPC_H

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned char appc_u8;   /*  8 bits */
typedef unsigned short appc_u16; /* 16 bits */
typedef unsigned int appc_u32;   /* 32 bits */

/* A pointer member of a block. The node sees the same blocks with the pointers as 32-bit numbers that mean nothing to
 * it. */
#ifdef TESSALY_NODE_SIDE
#define APPC_POINTER(type) appc_u32
#else
#define APPC_POINTER(type) type
#if defined(__SIZEOF_POINTER__) && __SIZEOF_POINTER__ != 4
#error "the verb interface is 32-bit: compile with -m32"
#endif
#endif

/* ---- Callbacks -------------------------------------------------------------------------------------------------
 * All run under the library's lock, on the thread that completes the verb. A callback may issue asynchronous verbs; a
 * synchronous one is refused with APPC_STATE_CHECK / APPC_SEC_IN_CALLBACK (RECEIVE_AND_POST routines may wait). tp_id
 * points to the 8-byte identifier of the TP and is valid during the call only. */

/* Completion of a verb issued with APPC_Async: its block, its TP, its conversation (0 for verbs of the TP), and the
 * correlator given at issue. */
typedef void (*appc_completion)(void *vcb, appc_u8 *tp_id, appc_u32 conv_id, appc_u32 corr);

/* The routine that a RECEIVE_AND_POST or TEST_RTS_AND_POST block names itself. */
typedef void (*appc_post)(void *vcb, appc_u8 *tp_id, appc_u32 conv_id);

/* Implied forget of a deallocated conversation: the DEALLOCATE block, how the news came (APPC_FORGET_...), and the
 * block's own forget_value. */
typedef void (*appc_implied_forget)(void *vcb, appc_u8 *tp_id, appc_u32 conv_id, appc_u16 type, appc_u32 value);

#define APPC_FORGET_DATA_FLOW 0
#define APPC_FORGET_UNBIND 1
#define APPC_FORGET_FAILURE 2

/* ---- Opcodes --------------------------------------------------------------------------------------------------- */

#define APPC_OP_ALLOCATE 0x0001
#define APPC_OP_CONFIRM 0x0003
#define APPC_OP_CONFIRMED 0x0004
#define APPC_OP_DEALLOCATE 0x0005
#define APPC_OP_FLUSH 0x0006
#define APPC_OP_GET_ATTRIBUTES 0x0007
#define APPC_OP_GET_TYPE 0x0008
#define APPC_OP_GET_STATE 0x0009
#define APPC_OP_PREPARE_TO_RECEIVE 0x000A
#define APPC_OP_RECEIVE_AND_WAIT 0x000B
#define APPC_OP_RECEIVE_IMMEDIATE 0x000C
#define APPC_OP_RECEIVE_AND_POST 0x000D
#define APPC_OP_REQUEST_TO_SEND 0x000E
#define APPC_OP_SEND_DATA 0x000F
#define APPC_OP_SEND_ERROR 0x0010
#define APPC_OP_SEND_EXPEDITED_DATA 0x0011
#define APPC_OP_TEST_RTS 0x0012
#define APPC_OP_TP_ENDED 0x0013
#define APPC_OP_TP_STARTED 0x0014
#define APPC_OP_RECEIVE_ALLOCATE 0x0016
#define APPC_OP_GET_TP_PROPERTIES 0x0017
#define APPC_OP_SEND_CONVERSATION 0x0018
#define APPC_OP_CANCEL_CONV 0x0072
#define APPC_OP_SET_TP_PROPERTIES 0x007E
#define APPC_OP_GET_LU_STATUS 0x007F
#define APPC_OP_IMPLIED_FORGET 0x0080 /* the node's indication; sent by a program it travels like any verb */
#define APPC_OP_TEST_RTS_AND_POST 0x0081
#define APPC_OP_RECEIVE_EXPEDITED_DATA 0x0102
#define APPC_OP_RECEIVE_ALLOCATE_CPIC 0xF100
#define APPC_OP_REGISTER_CPIC_TP 0xF101
#define APPC_OP_UNREGISTER_CPIC_TP 0xF102
#define APPC_OP_RECEIVE_ALLOCATE_EX 0xF103

/* ---- Results of the asynchronous entry points ------------------------------------------------------------------ */

#define APPC_IN_PROGRESS 0x17F0 /* accepted: the callback comes once, later; leave the block and its buffer alone */
#define APPC_COMPLETE 0x18F0    /* finished: the results are in the block and no callback follows */

/* ---- Primary return codes -------------------------------------------------------------------------------------- */

#define APPC_OK 0x0000
#define APPC_PARAMETER_CHECK 0x0100 /* a field of the block is wrong: secondary_rc says which */
#define APPC_STATE_CHECK 0x0200     /* the verb does not fit the state of the conversation or the program */
#define APPC_TP_BUSY 0x02F0         /* another synchronous verb is under way on this TP */
#define APPC_ALLOCATION_ERROR 0x0300
#define APPC_ACTIVATION_FAIL_RETRY 0x0310
#define APPC_COMMS_SUBSYSTEM_ABENDED 0x03F0    /* the path to the node is lost: end the TP, then start again */
#define APPC_ACTIVATION_FAIL_NO_RETRY 0x0410
#define APPC_COMMS_SUBSYSTEM_NOT_LOADED 0x04F0 /* no node is reachable */
#define APPC_DEALLOC_ABEND 0x0500
#define APPC_LU_SESS_LIMIT_EXCEEDED 0x0510
#define APPC_DEALLOC_ABEND_PROG 0x0600
#define APPC_FUNCTION_NOT_SUPPORTED 0x0610
#define APPC_DEALLOC_ABEND_SVC 0x0700
#define APPC_DEALLOC_ABEND_TIMER 0x0800
#define APPC_DEALLOC_NORMAL 0x0900 /* the partner ended the conversation: its conv_id is gone */
#define APPC_PROG_ERROR_NO_TRUNC 0x0C00
#define APPC_PROG_ERROR_TRUNC 0x0D00
#define APPC_PROG_ERROR_PURGING 0x0E00
#define APPC_CONV_FAILURE_RETRY 0x0F00
#define APPC_CONV_FAILURE_NO_RETRY 0x1000
#define APPC_SVC_ERROR_NO_TRUNC 0x1100
#define APPC_UNEXPECTED_SYSTEM_ERROR 0x11F0 /* a resource or the transport failed: secondary_rc has the number */
#define APPC_SVC_ERROR_TRUNC 0x1200
#define APPC_SVC_ERROR_PURGING 0x1300
#define APPC_UNSUCCESSFUL 0x1400 /* nothing was there to receive or report */
#define APPC_CNOS_PARTNER_LU_REJECT 0x1800
#define APPC_CONVERSATION_TYPE_MIXED 0x1900
#define APPC_CANCELLED 0x2100 /* ended by CANCEL_CONV or TP_ENDED */
#define APPC_BACKED_OUT 0x2200
#define APPC_DUPLEX_TYPE_MIXED 0x2300
#define APPC_INVALID_VERB_SEGMENT 0xF008
#define APPC_STACK_TOO_SMALL 0xF015
#define APPC_INVALID_VERB 0xFFFF /* no such verb: secondary_rc is untouched */

/* ---- Secondary return codes ------------------------------------------------------------------------------------
 * From the library itself: */

#define APPC_SEC_NO_MEMORY 0x0000000C          /* UNEXPECTED_SYSTEM_ERROR: memory, a handle or a path could not be had */
#define APPC_SEC_IN_CALLBACK 0x0000551A        /* STATE_CHECK: a synchronous verb inside a callback */
#define APPC_SEC_BAD_FORMAT 0x00005530         /* PARAMETER_CHECK: the verb has no such format */
#define APPC_SEC_NO_POST_CALLBACK 0x000000D6   /* PARAMETER_CHECK: a post verb that waits needs its own callback */
#define APPC_SEC_BAD_TP_ID 0x01000000          /* PARAMETER_CHECK: no such TP */
#define APPC_SEC_NO_ALLOCATE_PENDING 0x02000000 /* PARAMETER_CHECK: CANCEL_CONV found nothing to cancel */
#define APPC_SEC_LU_ALIAS_BARRED 0x03000000    /* PARAMETER_CHECK: the LU alias map forbids this local LU */
#define APPC_SEC_NODE_NOT_FOUND 0x29100000     /* PARAMETER_CHECK: no further node offers the service */
#define APPC_SEC_ALLOCATE_FAILED 0x09050000    /* STATE_CHECK: the node gave up waiting for a conversation */

/* From the node: PARAMETER_CHECK and STATE_CHECK of the conversation verbs. */

#define APPC_SEC_BAD_CONV_ID 0x02000000
#define APPC_SEC_BAD_LU_ALIAS 0x03000000
#define APPC_SEC_ALLOCATION_FAILURE_NO_RETRY 0x04000000
#define APPC_SEC_ALLOCATION_FAILURE_RETRY 0x05000000
#define APPC_SEC_INVALID_DATA_SEGMENT 0x06000000
#define APPC_SEC_BAD_CONV_TYPE 0x11000000
#define APPC_SEC_BAD_SYNC_LEVEL 0x12000000
#define APPC_SEC_BAD_SECURITY 0x13000000
#define APPC_SEC_BAD_RETURN_CONTROL 0x14000000
#define APPC_SEC_PIP_LEN_INCORRECT 0x16000000
#define APPC_SEC_UNKNOWN_PARTNER_MODE 0x18000000
#define APPC_SEC_CONFIRM_ON_SYNC_LEVEL_NONE 0x31000000
#define APPC_SEC_CONFIRM_BAD_STATE 0x32000000
#define APPC_SEC_CONFIRM_NOT_LL_BDY 0x33000000
#define APPC_SEC_CONFIRMED_BAD_STATE 0x41000000
#define APPC_SEC_DEALLOC_BAD_TYPE 0x51000000
#define APPC_SEC_DEALLOC_FLUSH_BAD_STATE 0x52000000
#define APPC_SEC_DEALLOC_CONFIRM_BAD_STATE 0x53000000
#define APPC_SEC_DEALLOC_NOT_LL_BDY 0x55000000
#define APPC_SEC_DEALLOC_LOG_LL_WRONG 0x57000000
#define APPC_SEC_FLUSH_NOT_SEND_STATE 0x61000000
#define APPC_SEC_P_TO_R_INVALID_TYPE 0xA1000000
#define APPC_SEC_P_TO_R_NOT_LL_BDY 0xA2000000
#define APPC_SEC_P_TO_R_NOT_SEND_STATE 0xA3000000
#define APPC_SEC_RCV_AND_WAIT_BAD_STATE 0xB1000000
#define APPC_SEC_RCV_AND_WAIT_NOT_LL_BDY 0xB2000000
#define APPC_SEC_RCV_AND_WAIT_BAD_FILL 0xB5000000
#define APPC_SEC_RCV_IMMD_BAD_STATE 0xC1000000
#define APPC_SEC_RCV_IMMD_BAD_FILL 0xC4000000
#define APPC_SEC_RCV_AND_POST_BAD_STATE 0xD1000000
#define APPC_SEC_RCV_AND_POST_NOT_LL_BDY 0xD2000000
#define APPC_SEC_RCV_AND_POST_BAD_FILL 0xD5000000
#define APPC_SEC_R_T_S_BAD_STATE 0xE1000000
#define APPC_SEC_BAD_LL 0xF1000000
#define APPC_SEC_SEND_DATA_NOT_SEND_STATE 0xF2000000
#define APPC_SEC_SEND_DATA_INVALID_TYPE 0xF4000000
#define APPC_SEC_SEND_DATA_CONFIRM_ON_SYNC_LEVEL_NONE 0xF5000000
#define APPC_SEC_SEND_ERROR_BAD_TYPE 0x03010000
#define APPC_SEC_SEND_ERROR_BAD_STATE 0x04010000
#define APPC_SEC_SEND_ERROR_LOG_LL_WRONG 0x02010000
#define APPC_SEC_TEST_RTS_BAD_STATE 0x05010000

/* From the node: causes of ALLOCATION_ERROR (the sense data of the refusal). */

#define APPC_SEC_TRANS_PGM_NOT_AVAIL_RETRY 0x31604B08
#define APPC_SEC_TRANS_PGM_NOT_AVAIL_NO_RETRY 0x00004C08
#define APPC_SEC_TP_NAME_NOT_RECOGNIZED 0x21600810
#define APPC_SEC_PIP_NOT_ALLOWED 0x31600810
#define APPC_SEC_PIP_NOT_SPECIFIED_CORRECTLY 0x32600810
#define APPC_SEC_CONVERSATION_TYPE_MISMATCH 0x34600810
#define APPC_SEC_SYNC_LEVEL_NOT_SUPPORTED 0x41600810
#define APPC_SEC_SECURITY_NOT_VALID 0x51600F08

/* ---- Values of fields ------------------------------------------------------------------------------------------ */

#define APPC_MAPPED_CONVERSATION 0x01 /* opext: the mapped form of the verb (set it on every verb of a mapped conversation) */

#define APPC_BASIC 0 /* conv_type */
#define APPC_MAPPED 1

#define APPC_SYNC_NONE 0 /* sync_level */
#define APPC_SYNC_CONFIRM 1

#define APPC_WHEN_SESSION_ALLOCATED 0 /* rtn_ctl of ALLOCATE: when the verb completes */
#define APPC_IMMEDIATE 1
#define APPC_WHEN_SESSION_FREE 2

#define APPC_SECURITY_NONE 0 /* security of ALLOCATE */
#define APPC_SECURITY_SAME 1
#define APPC_SECURITY_PGM 2 /* user_id and pwd are carried to the partner */

#define APPC_SEND_NONE 0 /* type of SEND_DATA: what follows the data, in the same verb */
#define APPC_SEND_CONFIRM 1
#define APPC_SEND_FLUSH 2
#define APPC_SEND_P_TO_R_FLUSH 3
#define APPC_SEND_P_TO_R_SYNC_LEVEL 4
#define APPC_SEND_DEALLOC_FLUSH 5
#define APPC_SEND_DEALLOC_SYNC_LEVEL 6
#define APPC_SEND_DEALLOC_ABEND 7

#define APPC_P_TO_R_SYNC_LEVEL 0 /* ptr_type: flush or confirm, as the conversation's sync level says */
#define APPC_P_TO_R_FLUSH 1
#define APPC_P_TO_R_CONFIRM 2

#define APPC_LOCKS_SHORT 0 /* locks of PREPARE_TO_RECEIVE with confirmation: complete at CONFIRMED ... */
#define APPC_LOCKS_LONG 1  /* ... or only when the partner sends the next data */

#define APPC_DEALLOC_SYNC_LEVEL 0 /* dealloc_type: flush or confirm, as the conversation's sync level says */
#define APPC_DEALLOC_FLUSH 1
#define APPC_DEALLOC_CONFIRM 2
#define APPC_DEALLOC_TYPE_ABEND 3 /* mapped conversations; the next three are for basic ones */
#define APPC_DEALLOC_TYPE_ABEND_PROG 4
#define APPC_DEALLOC_TYPE_ABEND_SVC 5
#define APPC_DEALLOC_TYPE_ABEND_TIMER 6

#define APPC_FILL_BUFFER 0 /* fill, basic conversations: as much as max_len holds ... */
#define APPC_FILL_LL 1     /* ... or one logical record at most */

/* what_rcvd: one data bit, one status bit, or (with rtn_status set) one of each. */
#define APPC_WR_NONE 0x0000
#define APPC_WR_DATA 0x0001                /* basic, APPC_FILL_BUFFER */
#define APPC_WR_DATA_COMPLETE 0x0002       /* the end of a record is in the buffer */
#define APPC_WR_DATA_INCOMPLETE 0x0004     /* max_len was too short: receive again for the rest of the record */
#define APPC_WR_SEND 0x0008                /* the turn is yours */
#define APPC_WR_CONFIRM 0x0010             /* answer with CONFIRMED or SEND_ERROR; you go on receiving */
#define APPC_WR_CONFIRM_SEND 0x0020        /* the same; after CONFIRMED the turn is yours */
#define APPC_WR_CONFIRM_DEALLOCATE 0x0040  /* the same; after CONFIRMED the conversation is over */

#define APPC_STATE_RESET 1 /* conv_state of GET_STATE */
#define APPC_STATE_SEND 2
#define APPC_STATE_RECEIVE 3
#define APPC_STATE_SEND_PENDING 4
#define APPC_STATE_CONFIRM 5
#define APPC_STATE_CONFIRM_SEND 6
#define APPC_STATE_CONFIRM_DEALLOCATE 7

#define APPC_PROG_ERROR 0 /* err_type of SEND_ERROR */
#define APPC_SVC_ERROR 1
#define APPC_ERROR_RECEIVE_DIRECTION 0 /* err_dir of SEND_ERROR after data and turn came together */
#define APPC_ERROR_SEND_DIRECTION 1

/* ---- The blocks ------------------------------------------------------------------------------------------------
 * Numbers at the left are byte offsets. "in" is set by the program, "out" by the library; reserved bytes are zero. A
 * block must be as long as its struct, and stay valid until the verb has completed. */

#define APPC_BLOCK_HEADER                                                                  \
    appc_u16 opcode;        /*   0  in: APPC_OP_... */                                     \
    appc_u8 opext;          /*   2  in: APPC_MAPPED_CONVERSATION or 0 */                   \
    appc_u8 format;         /*   3  in: 0 or 1 */                                          \
    appc_u16 primary_rc;    /*   4  out */                                                 \
    appc_u8 reserved_6[2];                                                                 \
    appc_u32 secondary_rc   /*   8  out */

#define APPC_TP_HEADER                                                                     \
    APPC_BLOCK_HEADER;                                                                     \
    appc_u8 tp_id[8]        /*  12  in: from TP_STARTED or RECEIVE_ALLOCATE */

#define APPC_CONVERSATION_HEADER                                                           \
    APPC_TP_HEADER;                                                                        \
    appc_u32 conv_id        /*  20  in: from ALLOCATE or RECEIVE_ALLOCATE */

/* The first 24 bytes of every block; the whole block of CONFIRMED, FLUSH, REQUEST_TO_SEND and CANCEL_CONV.
 *
 * CANCEL_CONV ends what waits: conv_id names a conversation whose verbs complete with APPC_CANCELLED; conv_id 0
 * cancels the TP's ALLOCATE. With an all-zero tp_id it cancels a start that has no identifier yet: conv_id 0 a
 * TP_STARTED, any other value a waiting RECEIVE_ALLOCATE. */
typedef struct appc_header {
    APPC_CONVERSATION_HEADER;
} appc_header;

typedef appc_header appc_confirmed;
typedef appc_header appc_flush;
typedef appc_header appc_request_to_send;
typedef appc_header appc_cancel_conv;

/* A logical unit of work identifier. */
typedef struct appc_luw_id {
    appc_u8 fq_lu_name_len; /*   0  0 to 17 */
    appc_u8 fq_lu_name[17]; /*   1  EBCDIC */
    appc_u8 instance[6];    /*  18 */
    appc_u8 sequence[2];    /*  24 */
} appc_luw_id;

/* TP_STARTED: begin a transaction program on a local LU. Completes when the node knows the TP. */
typedef struct appc_tp_started {
    APPC_BLOCK_HEADER;
    appc_u8 lu_alias[8]; /*  12  in: local LU, ASCII; blanks: the default LU. out: the LU in use */
    appc_u8 tp_id[8];    /*  20  out: names the TP in every later verb */
    appc_u8 tp_name[64]; /*  28  in: EBCDIC */
    appc_u8 reserved_92[3];
    appc_u8 fq_lu_name[17]; /*  95  between library and node only */
} appc_tp_started;

/* TP_ENDED: end the TP. Its conversations are deallocated abnormally; its other verbs complete with APPC_CANCELLED. */
typedef struct appc_tp_ended {
    APPC_TP_HEADER;
    appc_u8 type; /*  20  in: 0 */
    appc_u8 reserved_21[3];
} appc_tp_ended;

/* RECEIVE_ALLOCATE, and RECEIVE_ALLOCATE_EX (format 1 only): wait for a partner's ALLOCATE. Creates the TP that
 * serves it. In a program that the node started, the attach identifier comes in the environment variable
 * APPC_ATTACH_ID and is put at attach_id by the library (format 1). */
typedef struct appc_receive_allocate {
    APPC_BLOCK_HEADER;
    appc_u8 tp_name[64]; /*  12  in: EBCDIC; blanks: any. out: the name that the partner asked for */
    appc_u8 tp_id[8];    /*  76  out */
    appc_u32 conv_id;    /*  84  out */
    appc_u8 sync_level;  /*  88  out */
    appc_u8 conv_type;   /*  89  out */
    appc_u8 user_id[10]; /*  90  out: EBCDIC, blanks when the partner gave none */
    appc_u8 lu_alias[8]; /* 100  in (_EX): local LU, ASCII, blanks: any. out: the local LU */
    appc_u8 plu_alias[8]; /* 108  out: partner LU, ASCII */
    appc_u8 mode_name[8]; /* 116  out: EBCDIC */
    appc_u32 conv_group_id; /* 124  out, format 1 */
    appc_u8 fqplu_name[17]; /* 128  out, format 1: partner LU, EBCDIC */
    appc_u8 pip_incoming;   /* 145  out, format 1: 1 when the partner sent PIP data */
    appc_u8 reserved_146[3];
    appc_u8 duplex_type; /* 149  out: 0, half-duplex */
    appc_u8 reserved_150[4];
    appc_u8 security_profile[8]; /* 154  out: EBCDIC */
    appc_u16 pip_dlen;           /* 162  out: length of the partner's PIP data */
    appc_u8 reserved_164[2];
    appc_u8 attach_id[8]; /* 166  in, format 1: two words, most significant byte first; zeros: none */
    appc_u8 fq_lu_name[17]; /* 174  between library and node only */
    appc_u8 reserved_191;
} appc_receive_allocate;

/* RECEIVE_ALLOCATE_CPIC: as RECEIVE_ALLOCATE, for whatever names the process registered with REGISTER_CPIC_TP. */
typedef struct appc_receive_allocate_cpic {
    appc_receive_allocate allocate;         /*   0 */
    appc_u32 tp_name_count;                 /* 192  in */
    APPC_POINTER(const appc_u8 *) tp_names; /* 196  in: tp_name_count names of 64 bytes */
} appc_receive_allocate_cpic;

/* REGISTER_CPIC_TP and UNREGISTER_CPIC_TP: which TP names this process accepts. Complete at once. */
typedef struct appc_cpic_tp {
    APPC_BLOCK_HEADER;
    appc_u8 tp_name[64]; /*  12  in: EBCDIC */
} appc_cpic_tp;

/* ALLOCATE, the 184-byte layout: format 0 through APPC, APPC_C, APPC_P and APPC_Async.
 *
 * The other entries (appc_c1, appc_async1, appc_async_int) turn format 0 into format 1 in the block itself, set bytes
 * 32 to 35 to zero and move nothing: programs that call them use appc_allocate below, whatever the format.
 *
 * Completes with APPC_ALLOCATION_ERROR when the partner refuses at once; a later refusal is reported by a later verb. */
typedef struct appc_allocate_format_0 {
    APPC_TP_HEADER;
    appc_u32 conv_id;   /*  20  out */
    appc_u8 conv_type;  /*  24  in: APPC_BASIC or APPC_MAPPED */
    appc_u8 sync_level; /*  25  in */
    appc_u8 reserved_26[2];
    appc_u8 rtn_ctl; /*  28  in */
    appc_u8 reserved_29[9];
    appc_u8 plu_alias[8]; /*  38  in: partner LU, ASCII; zeros: fqplu_name is used */
    appc_u8 mode_name[8]; /*  46  in: EBCDIC */
    appc_u8 tp_name[64];  /*  54  in: the partner program, EBCDIC */
    appc_u8 security;     /* 118  in */
    appc_u8 reserved_119;
    appc_u8 pwd[10];     /* 120  in: EBCDIC */
    appc_u8 user_id[10]; /* 130  in: EBCDIC */
    appc_u8 reserved_140[10];
    appc_u16 pip_dlen;                      /* 150  in: bytes at pip_dptr */
    APPC_POINTER(const void *) pip_dptr;    /* 152  in */
    appc_u8 reserved_156;
    appc_u8 fqplu_name[17]; /* 157  in: partner LU, EBCDIC, when plu_alias is zeros */
    appc_u8 reserved_174[10];
} appc_allocate_format_0;

/* ALLOCATE, the 188-byte layout: format 1 everywhere, and the second family of entries. Fields as above. */
typedef struct appc_allocate {
    APPC_TP_HEADER;
    appc_u32 conv_id;   /*  20 */
    appc_u8 conv_type;  /*  24 */
    appc_u8 sync_level; /*  25 */
    appc_u8 reserved_26[2];
    appc_u8 rtn_ctl; /*  28 */
    appc_u8 reserved_29[3];
    appc_u32 conv_group_id; /*  32  out: the session's group; 0 in */
    appc_u8 reserved_36[4];
    appc_u8 plu_alias[8]; /*  40 */
    appc_u8 mode_name[8]; /*  48 */
    appc_u8 tp_name[64];  /*  56 */
    appc_u8 security;     /* 120 */
    appc_u8 reserved_121;
    appc_u8 pwd[10];     /* 122 */
    appc_u8 user_id[10]; /* 132 */
    appc_u8 reserved_142[10];
    appc_u16 pip_dlen; /* 152 */
    appc_u8 reserved_154[2];
    APPC_POINTER(const void *) pip_dptr; /* 156 */
    appc_u8 reserved_160;
    appc_u8 fqplu_name[17]; /* 161 */
    appc_u8 reserved_178[10];
} appc_allocate;

/* SEND_CONVERSATION: allocate, send one record, deallocate, in one verb; without sync level. Basic: whole records. */
typedef struct appc_send_conversation {
    APPC_TP_HEADER;
    appc_u32 reserved_20;
    appc_u8 conv_type; /*  24  in */
    appc_u8 reserved_25[3];
    appc_u8 rtn_ctl; /*  28  in */
    appc_u8 reserved_29[3];
    appc_u32 conv_group_id; /*  32  out */
    appc_u8 reserved_36[4];
    appc_u8 plu_alias[8]; /*  40  in */
    appc_u8 mode_name[8]; /*  48  in */
    appc_u8 tp_name[64];  /*  56  in */
    appc_u8 security;     /* 120  in */
    appc_u8 reserved_121;
    appc_u8 pwd[10];     /* 122  in */
    appc_u8 user_id[10]; /* 132  in */
    appc_u8 reserved_142[10];
    appc_u16 pip_dlen; /* 152  in */
    appc_u8 reserved_154[2];
    APPC_POINTER(const void *) pip_dptr; /* 156  in */
    appc_u8 reserved_160;
    appc_u8 fqplu_name[17]; /* 161  in */
    appc_u8 reserved_178[8];
    appc_u16 dlen;                   /* 186  in: bytes at dptr */
    APPC_POINTER(const void *) dptr; /* 188  in */
} appc_send_conversation;

/* SEND_DATA. Mapped: dptr holds one whole record. Basic: logical records, or parts of them, each record with its LL. */
typedef struct appc_send_data {
    APPC_CONVERSATION_HEADER;
    appc_u8 rts_rcvd;                /*  24  out: 1 when the partner asked for the turn */
    appc_u8 expd_rcvd;               /*  25  out: 1 when expedited data waits (not for mapped, format 0) */
    appc_u16 dlen;                   /*  26  in: bytes at dptr, 0 to 65535 */
    APPC_POINTER(const void *) dptr; /*  28  in */
    appc_u8 type;                    /*  32  in: APPC_SEND_... */
    appc_u8 reserved_33[11];
} appc_send_data;

/* SEND_EXPEDITED_DATA: 1 to 86 bytes past the ordinary flow, in any state. Waits while the partner has yet to
 * receive what was sent so before. */
typedef struct appc_send_expedited_data {
    APPC_CONVERSATION_HEADER;
    appc_u8 rts_rcvd;                /*  24  out */
    appc_u8 expd_rcvd;               /*  25  out */
    appc_u16 dlen;                   /*  26  in */
    APPC_POINTER(const void *) dptr; /*  28  in */
    appc_u8 reserved_32[4];
} appc_send_expedited_data;

/* RECEIVE_AND_WAIT, RECEIVE_IMMEDIATE (APPC_UNSUCCESSFUL when nothing is there) and RECEIVE_AND_POST, which returns
 * at once and completes through callback. In send state RECEIVE_AND_WAIT gives the turn away first. */
typedef struct appc_receive {
    APPC_CONVERSATION_HEADER;
    appc_u16 what_rcvd;        /*  24  out: APPC_WR_... */
    appc_u8 rtn_status;        /*  26  in: 1: status may come together with data */
    appc_u8 fill;              /*  27  in: basic conversations */
    appc_u8 rts_rcvd;          /*  28  out */
    appc_u8 expd_rcvd;         /*  29  out */
    appc_u16 max_len;          /*  30  in: bytes at dptr */
    appc_u16 dlen;             /*  32  out: bytes received */
    appc_u8 reserved_34[2];
    APPC_POINTER(void *) dptr; /*  36  in */
    APPC_POINTER(appc_post) callback; /*  40  in: RECEIVE_AND_POST only */
    appc_u8 reserved_44[4];
} appc_receive;

typedef appc_receive appc_receive_and_wait;
typedef appc_receive appc_receive_immediate;
typedef appc_receive appc_receive_and_post;

/* RECEIVE_EXPEDITED_DATA, in any state. A buffer that is too short takes a part; expd_rcvd tells of the rest. */
typedef struct appc_receive_expedited_data {
    APPC_CONVERSATION_HEADER;
    appc_u8 rtn_ctl;           /*  24  in: APPC_WHEN_SESSION_ALLOCATED waits, APPC_IMMEDIATE does not */
    appc_u8 rts_rcvd;          /*  25  out */
    appc_u8 expd_rcvd;         /*  26  out */
    appc_u8 reserved_27[3];
    appc_u16 max_len;          /*  30  in */
    appc_u16 dlen;             /*  32  out */
    appc_u8 reserved_34[2];
    APPC_POINTER(void *) dptr; /*  36  in */
} appc_receive_expedited_data;

/* CONFIRM: ask the partner to confirm all that was sent; completes with its answer. */
typedef struct appc_confirm {
    APPC_CONVERSATION_HEADER;
    appc_u8 rts_rcvd;  /*  24  out */
    appc_u8 expd_rcvd; /*  25  out */
    appc_u8 reserved_26[2];
} appc_confirm;

/* PREPARE_TO_RECEIVE: give the turn to the partner. */
typedef struct appc_prepare_to_receive {
    APPC_CONVERSATION_HEADER;
    appc_u8 ptr_type; /*  24  in: APPC_P_TO_R_... */
    appc_u8 locks;    /*  25  in: APPC_LOCKS_... */
    appc_u8 reserved_26[2];
} appc_prepare_to_receive;

/* SEND_ERROR: tell the partner that something is wrong; the turn is yours afterwards. */
typedef struct appc_send_error {
    APPC_CONVERSATION_HEADER;
    appc_u8 rts_rcvd;  /*  24  out */
    appc_u8 err_type;  /*  25  in */
    appc_u8 err_dir;   /*  26  in */
    appc_u8 expd_rcvd; /*  27  out */
    appc_u16 dlen;     /*  28  in: bytes of log data at dptr */
    appc_u8 reserved_30[2];
    APPC_POINTER(const void *) dptr; /*  32  in */
} appc_send_error;

/* DEALLOCATE: end the conversation. Format 1 has the last two fields: with a forget_callback, a successful DEALLOCATE
 * leaves the block in the library's hands until that routine has been called. */
typedef struct appc_deallocate {
    APPC_CONVERSATION_HEADER;
    appc_u8 dealloc_type; /*  24  in: APPC_DEALLOC_... */
    appc_u8 reserved_25;
    appc_u16 dlen;                                      /*  26  in: bytes of log data at dptr */
    APPC_POINTER(const void *) dptr;                    /*  28  in */
    APPC_POINTER(appc_implied_forget) forget_callback;  /*  32  in, format 1 */
    appc_u32 forget_value;                              /*  36  in, format 1: handed to forget_callback */
    appc_u8 reserved_40[4];
} appc_deallocate;

/* GET_TYPE, GET_STATE, TEST_RTS: one byte about the conversation. */
typedef struct appc_get_type {
    APPC_CONVERSATION_HEADER;
    appc_u8 conv_type; /*  24  out */
    appc_u8 reserved_25[3];
} appc_get_type;

typedef struct appc_get_state {
    APPC_CONVERSATION_HEADER;
    appc_u8 conv_state; /*  24  out: APPC_STATE_... */
    appc_u8 reserved_25[3];
} appc_get_state;

typedef struct appc_test_rts {
    APPC_CONVERSATION_HEADER; /* primary_rc: APPC_OK when the partner asked for the turn, else APPC_UNSUCCESSFUL */
    appc_u8 reserved_24[4];
} appc_test_rts;

/* APPC_OP_IMPLIED_FORGET. */
typedef struct appc_forget_indication {
    APPC_CONVERSATION_HEADER;
    appc_u8 forget_type; /*  24  APPC_FORGET_... */
    appc_u8 reserved_25[3];
} appc_forget_indication;

/* TEST_RTS_AND_POST: completes when the partner asks for the turn. */
typedef struct appc_test_rts_and_post {
    APPC_CONVERSATION_HEADER;
    appc_u8 reserved_24[4];
    APPC_POINTER(appc_post) callback; /*  28  in */
} appc_test_rts_and_post;

/* GET_ATTRIBUTES: format 0 ends with reserved_117, at byte 132; luw_id and sess_id are format 1's. */
typedef struct appc_get_attributes {
    APPC_CONVERSATION_HEADER;
    appc_u8 conv_type;      /*  24  out */
    appc_u8 sync_level;     /*  25  out */
    appc_u8 mode_name[8];   /*  26  out: EBCDIC */
    appc_u8 net_name[8];    /*  34  out: network of the local LU, EBCDIC */
    appc_u8 lu_name[8];     /*  42  out: local LU, EBCDIC */
    appc_u8 lu_alias[8];    /*  50  out: ASCII */
    appc_u8 plu_alias[8];   /*  58  out: ASCII */
    appc_u8 plu_un_name[8]; /*  66  out: partner LU's uninterpreted name, EBCDIC */
    appc_u8 reserved_74[2];
    appc_u8 fqplu_name[17]; /*  76  out: EBCDIC */
    appc_u8 reserved_93;
    appc_u8 user_id[10];    /*  94  out: EBCDIC */
    appc_u32 conv_group_id; /* 104  out */
    appc_u8 conv_corr_len;  /* 108  out */
    appc_u8 conv_corr[8];   /* 109  out */
    appc_u8 reserved_117[13];
    appc_luw_id luw_id;     /* 130  out, format 1 */
    appc_u8 sess_id[8];     /* 156  out, format 1 */
} appc_get_attributes;

/* GET_TP_PROPERTIES: format 0 ends at byte 156; unprot_luw_id is format 1's. */
typedef struct appc_get_tp_properties {
    APPC_TP_HEADER;
    appc_u8 tp_name[64];  /*  20  out: EBCDIC */
    appc_u8 lu_alias[8];  /*  84  out: ASCII */
    appc_luw_id luw_id;   /*  92  out */
    appc_u8 fq_lu_name[17]; /* 118  out: EBCDIC */
    appc_u8 user_id[10];    /* 135  out: EBCDIC */
    appc_u8 reserved_145[10];
    appc_luw_id unprot_luw_id; /* 155  out, format 1 */
    appc_u8 reserved_181[3];
} appc_get_tp_properties;

/* SET_TP_PROPERTIES. */
typedef struct appc_set_tp_properties {
    APPC_TP_HEADER;
    appc_u16 set_prot_id;    /*  20  in: 1: prot_id is given */
    appc_luw_id prot_id;     /*  22  in */
    appc_u16 set_unprot_id;  /*  48  in: 1: unprot_id is given */
    appc_luw_id unprot_id;   /*  50  in */
    appc_u8 set_user_id;     /*  76  in: 1: user_id is given */
    appc_u8 reserved_77;
    appc_u8 user_id[10];     /*  78  in: EBCDIC */
    appc_u8 reserved_88[12];
} appc_set_tp_properties;

/* GET_LU_STATUS. */
typedef struct appc_get_lu_status {
    APPC_TP_HEADER;
    appc_u8 plu_alias[8];    /*  20  in: ASCII; blanks: every partner */
    appc_u16 active_sess;    /*  28  out: conversations with that partner */
    appc_u8 zero_sess;       /*  30  out: 1 when there are none */
    appc_u8 local_zero_sess; /*  31  out: 1 when the local LU has none with anybody */
    appc_u8 reserved_32[8];
} appc_get_lu_status;

/* ---- Entry points ----------------------------------------------------------------------------------------------
 *
 * Threads  Any thread, any number at once. One synchronous verb per TP at a time through APPC and its twins (the
 *          second gets APPC_TP_BUSY); appc_c1 has no such limit.
 * Results  Only in the block: primary_rc and secondary_rc. secondary_rc keeps its old value where no code is listed
 *          for it.
 * Fork     In the child, verbs of the parent complete no more: their callbacks are never called there. */

/* APPC - issue one verb and return when it has completed. RECEIVE_AND_POST and TEST_RTS_AND_POST are not waited for:
 * they complete through the callback that their own block names.
 *   vcb   in/out  the verb's block, as long as its struct above */
void APPC(void *vcb);
void APPC_C(void *vcb); /* the same */
void APPC_P(void *vcb); /* the same */

/* appc_c1 - as APPC, with ALLOCATE and RECEIVE_ALLOCATE blocks of format 0 turned into format 1 (see appc_allocate). */
void appc_c1(void *vcb);

/* APPC_Async - issue one verb and return without waiting for it.
 *   vcb       in/out  the verb's block; belongs to the library until the callback when APPC_IN_PROGRESS is returned
 *   callback  in      called once when an accepted verb completes; NULL: wait for completion, as APPC does
 *   corr      in      handed to the callback unchanged
 * Returns APPC_IN_PROGRESS or APPC_COMPLETE. */
appc_u16 APPC_Async(void *vcb, appc_completion callback, appc_u32 corr);

/* appc_async1, appc_async_int - as APPC_Async, with the format rule of appc_c1. */
appc_u16 appc_async1(void *vcb, appc_completion callback, appc_u32 corr);
appc_u16 appc_async_int(void *vcb, appc_completion callback, appc_u32 corr);

/* appc_c_version, appc_c_async_version - as appc_c1 and appc_async_int, for programs built to a level of this
 * interface: version 1 or 2 sets the block's format to the one that level uses, and what the process tells the node
 * about itself. Version 2 lets the caller choose the format of CONFIRM, GET_TYPE and SEND_DATA. */
void appc_c_version(appc_u32 version, void *vcb);
appc_u16 appc_c_async_version(appc_u32 version, void *vcb, appc_completion callback, appc_u32 corr);

#ifdef __cplusplus
}
#endif

#endif
