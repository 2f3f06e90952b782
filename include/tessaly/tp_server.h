/* tessaly/tp_server.h - the TP server: a privileged program that starts other programs when the node asks for them.
 *
 * A launcher registers itself as a TP server, tells the node which TPs it can start, is asked through a callback to start
 * one when a conversation arrives for it, and reports what came of it:
 *
 *     NAP_REGISTER_TP_SERVER              its callback; gives server_handle
 *     NAP_REGISTER_TP ...                 one for each TP that it can start
 *     server callback                     APPC_TPS_EVENT_START_APPL: start a program for the conversation start_id
 *     NAP_QUERY_ATTACH                    who asks for what, with its attach header and PIP data (if it wants to know)
 *     NAP_START_APPL_OK                   the program runs, with APPC_ATTACH_ID in its environment (below), or
 *     NAP_START_APPL_ERR                  it could not be started, or, after the former,
 *     NAP_APPL_FAILED                     it ended without having taken the conversation
 *     NAP_UNREGISTER_TP_SERVER
 *
 * The verbs are issued like those of tessaly/appc.h, but through appc_async_int alone:
 *
 *     appc_u16 appc_async_int(void *vcb, appc_completion callback, appc_u32 corr);
 *
 * With a callback the verb is asynchronous: APPC_IN_PROGRESS means that the callback comes once, later, with a tp_id of
 * 8 zero bytes, conv_id 0 and corr; APPC_COMPLETE that the results are in the block and no callback follows. Without a
 * callback the call returns when the verb is complete; one such verb at a time for each server. A block stays untouched
 * by the application while its verb is outstanding. Any thread may issue verbs; opext and format are not read.
 *
 * APPC_ATTACH_ID of a started program: the two words of start_id, as sixteen hexadecimal digits, eight a word; each group
 * of eight is four bytes, most significant digit first, in the order in which the word lies in memory.
 */
#ifndef TESSALY_TP_SERVER_H
#define TESSALY_TP_SERVER_H

#include <tessaly/appc.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Opcodes --------------------------------------------------------------------------------------------------- */

#define APPC_OP_NAP_REGISTER_TP_SERVER 0xF104
#define APPC_OP_NAP_UNREGISTER_TP_SERVER 0xF105
#define APPC_OP_NAP_REGISTER_TP 0xF106
#define APPC_OP_NAP_UNREGISTER_TP 0xF107
#define APPC_OP_NAP_QUERY_ATTACH 0xF108
#define APPC_OP_NAP_START_APPL_OK 0xF109
#define APPC_OP_NAP_START_APPL_ERR 0xF10A
#define APPC_OP_NAP_APPL_FAILED 0xF10B

/* ---- Return codes ----------------------------------------------------------------------------------------------
 * Primary codes are those of tessaly/appc.h, and: */

#define APPC_TPS_SERVER_BUSY 0x5541 /* another synchronous verb of this server is under way */

/* With APPC_PARAMETER_CHECK: */
#define APPC_SEC_BAD_SERVER_HANDLE 0x01FF0000 /* no such server */
#define APPC_SEC_NO_SERVER_CALLBACK 0x04FF0000
#define APPC_SEC_BAD_EVENTS_FLAG 0x37100000   /* file_status_events is neither 0 nor 1 */
#define APPC_SEC_BAD_TP_TYPE 0x05FF0000
#define APPC_SEC_BAD_TP_LU_ALIAS 0xB1020000   /* lu_alias has a character that cannot be printed, or one behind a blank */
#define APPC_SEC_BAD_PLU_NAME 0xFD010000      /* fqplu_name is neither a name, nor a pattern, nor blank */
#define APPC_SEC_BAD_ATTACH_ID 0x03000001     /* NAP_QUERY_ATTACH, NAP_START_APPL_OK: no such start request */

/* With APPC_STATE_CHECK: */
#define APPC_SEC_TP_NOT_DEFINED 0x02FF0000     /* tp_reg_id names no definition of this server */
#define APPC_SEC_TP_ALREADY_DEFINED 0x06FF0000 /* another server defines the same TP for the same LU and partner */
#define APPC_SEC_ATTACH_GONE 0x15000000        /* the conversation ended, or another program took it, meanwhile */

/* APPC_COMMS_SUBSYSTEM_ABENDED / 0: the node ended, or the server was unregistered, while the verb waited.
 * APPC_UNEXPECTED_SYSTEM_ERROR: secondary_rc is an errno value, or a status of the node runtime. */

/* ---- Values of fields ------------------------------------------------------------------------------------------ */

/* tp_type */
#define APPC_TP_QUEUED 1         /* one program at a time: a conversation waits until the one before is taken or failed */
#define APPC_TP_QUEUED_MANUAL 2  /* never started: conversations wait for a program that runs already */
#define APPC_TP_NONQUEUED 3      /* a program of its own for each conversation */

/* error_code of NAP_START_APPL_ERR and NAP_APPL_FAILED: what the partner's ALLOCATE gets as ALLOCATION_ERROR. */
#define APPC_TPS_ERROR_RETRY 1    /* APPC_SEC_TRANS_PGM_NOT_AVAIL_RETRY: it may work later */
#define APPC_TPS_ERROR_NO_RETRY 2 /* APPC_SEC_TRANS_PGM_NOT_AVAIL_NO_RETRY, as every value not named here */
#define APPC_TPS_ERROR_SECURITY 3 /* APPC_SEC_SECURITY_NOT_VALID */

/* ---- The server's callback -------------------------------------------------------------------------------------
 * Runs under the library's lock, on whichever thread delivers what came from the node. It may issue asynchronous verbs;
 * it must not issue synchronous ones and must not wait. Its result is not used. */

#define APPC_TPS_EVENT_START_APPL 1     /* data: the 8-byte start_id, valid during the call; value: start_value */
#define APPC_TPS_EVENT_TP_FILE_STATUS 2 /* the node's TP definitions changed. data: null; value: this server's handle */

typedef void (*appc_server_callback)(appc_u32 event, void *data, appc_u32 value);

/* ---- Blocks ---------------------------------------------------------------------------------------------------- */

#define APPC_TPS_HEADER \
    appc_u16 opcode; \
    appc_u8 opext;  /* not read */ \
    appc_u8 format; /* not read */ \
    appc_u16 primary_rc; \
    appc_u8 reserved_6[2]; \
    appc_u32 secondary_rc; \
    appc_u32 server_handle /* offset 12 */

/* Which conversation a start request is about: the attach, and the node that holds it. */
typedef struct appc_start_id {
    appc_u32 attach;
    appc_u32 node;
} appc_start_id;

/* NAP_REGISTER_TP_SERVER - becomes a TP server. server_handle is an output. The node admits only those whom its
 * settings allow: the verbs of others that reach it get UNEXPECTED_SYSTEM_ERROR / 1 (EPERM). */
typedef struct appc_register_tp_server {
    APPC_TPS_HEADER;
    appc_u8 file_status_events; /* 16  in: 1 to be told of changes of the node's TP definitions, else 0 */
    appc_u8 reserved_17[3];
    APPC_POINTER(appc_server_callback) server_callback; /* 20  in: not null */
} appc_register_tp_server;

/* NAP_UNREGISTER_TP_SERVER - ends a server. Its verbs that still wait complete first, with COMMS_SUBSYSTEM_ABENDED. */
typedef struct appc_unregister_tp_server {
    APPC_TPS_HEADER;
} appc_unregister_tp_server;

/* NAP_REGISTER_TP, NAP_UNREGISTER_TP - defines a TP that this server starts; deletes the definition tp_reg_id, for which
 * only server_handle, tp_reg_id and node_options are read. */
typedef struct appc_register_tp {
    APPC_TPS_HEADER;
    appc_u32 tp_reg_id;      /*  16  out: names the definition. In: the one to replace or to delete */
    appc_u8 tp_name[64];     /*  20  in: EBCDIC, padded with blanks */
    appc_u8 lu_alias[8];     /*  84  in: local LU, ASCII, padded with blanks; blanks: any */
    appc_u8 fqplu_name[17];  /*  92  in: partner LU, EBCDIC, padded with blanks: NETA.LUX, NETA.LU*, LU*; blanks: any */
    appc_u8 tp_type;         /* 109  in: APPC_TP_... */
    appc_u8 reserved_110[2];
    appc_u32 start_value;    /* 112  in: the value that the server's callback gets with each start request for this TP */
    appc_u16 replace;        /* 116  in: 1 replaces the definition tp_reg_id, any other value adds one */
    appc_u8 reserved_118[2];
    appc_u32 node_options;   /* 120  in: passed to the node as it is; 0 */
} appc_register_tp;

/* NAP_QUERY_ATTACH - what a start request is about. Outputs that the node has nothing for stay as they were. */
typedef struct appc_query_attach {
    APPC_TPS_HEADER;
    appc_start_id start_id; /*  16  in: as the callback received it */
    appc_u8 tp_name[64];    /*  24  out: EBCDIC, padded with blanks; needs an attach_buf of at least 10 bytes */
    appc_u8 lu_alias[8];    /*  88  out: local LU, ASCII */
    appc_u8 fqplu_name[17]; /*  96  out: partner LU, EBCDIC */
    appc_u8 mode_name[8];   /* 113  out: EBCDIC */
    appc_u8 reserved_121;
    appc_u16 pip_buf_len;          /* 122  in: size of pip_buf, bytes; 0 for no PIP data. Out: what the node holds */
    appc_u16 pip_len;              /* 124  out: bytes in pip_buf */
    appc_u8 reserved_126[2];
    APPC_POINTER(void *) pip_buf;  /* 128  in */
    appc_u16 attach_buf_len;       /* 132  in: size of attach_buf, bytes; 0 for no attach header */
    appc_u16 attach_len;           /* 134  out: bytes in attach_buf */
    APPC_POINTER(void *) attach_buf; /* 136  in: room for the attach header (FMH-5, up to 255 bytes). Unless the server
                                      *      runs as root its security subfield comes as a single 0 */
} appc_query_attach;

/* NAP_START_APPL_OK, NAP_START_APPL_ERR, NAP_APPL_FAILED - what became of a start request. Asynchronously the latter two
 * may be issued by a process that has no server; then server_handle does not matter. */
typedef struct appc_start_appl {
    APPC_TPS_HEADER;
    appc_start_id start_id; /*  16  in */
    appc_u32 error_code;    /*  24  in: APPC_TPS_ERROR_...; not read by NAP_START_APPL_OK */
} appc_start_appl;

#ifdef __cplusplus
}
#endif

#endif
