/* runtime/node_runtime.h - the node runtime contract.
 *
 * The verb library reaches the node, the process lock, wait objects, handle tables, memory, logs, code conversion and
 * the trace file only through the operations and data objects declared here. Whoever implements them all, as
 * described, has a runtime that the library can live on: the stand-in runtime in localnode/runtime is one, the tests'
 * scripted runtime is another.
 *
 * Conventions
 *   Binary     i386, cdecl, extern "C". Handles, paths, path users, tables and wait objects are opaque 32-bit
 *              numbers; 0 means none or failed. Status results are 16-bit; 0 is success, any other number is the
 *              runtime's own error code.
 *   Lock       There is one process-wide lock. Unless a comment says otherwise an operation is called with the lock
 *              held by the calling thread, and must not release it. Data objects are read under it.
 *   Exempt     v0_assert, the EBCDIC and the trace operations may be called without the lock.
 *   Errors     Nothing throws. An operation that fails leaves nothing half done behind.
 *   Ownership  What the library makes with one operation it releases with its counterpart, once. It passes 0 as
 *              a handle only where a comment allows that. */
#ifndef TESSALY_NODE_RUNTIME_H
#define TESSALY_NODE_RUNTIME_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- What the runtime delivers --------------------------------------------------------------------------------- */

enum node_event {
    NODE_EVENT_IPS = 0x0001,          /* an IPS message: a verb's answer or an indication */
    NODE_EVENT_DATAGRAM = 0x0002,     /* a datagram from the node's control point */
    NODE_EVENT_PATH_FAILURE = 0x8000, /* the path is gone; the library does not close it any more */
    NODE_EVENT_FORKED = 0x8001,       /* this process is a fork's child: paths, verbs and path users are the parent's */
    NODE_EVENT_TERMINATED = 0x8002    /* the node's services end */
};

enum node_event_result {
    NODE_RESULT_DONE = 0,    /* handled; the runtime frees the buffer */
    NODE_RESULT_DELIVER = 1, /* copy data_len bytes of the message's data to data_buf, then call data_callback */
    NODE_RESULT_FREED = 2    /* handled; the library has freed the buffer with nba_mm_free */
};

struct rcv_info;
typedef uint16_t (*node_receive_routine)(uint32_t path, struct rcv_info *info);

/* The receive record, owned by the runtime and valid during the call.
 *
 * Events of a path user are delivered one after the other in the order of their arrival, under the lock, from
 * whatever thread the runtime chooses, but never from inside vpm_send_ips, vpm_send_datagram or vpm_unlock. An event
 * has left the runtime's queue before its routine is called, since that routine may (through an application's
 * callback) let further events be delivered. The buffer at rcv_ips comes from nba_mm_alloc and is writable; the
 * routine converts the block in it in place and changes buf_len and msg_len, so the runtime notes before the call
 * where the message's data starts.
 *
 * Result NODE_RESULT_DELIVER: the runtime copies at most data_len bytes of the message's data (fewer when fewer came)
 * to data_buf, and never more than the receiving verb has room for, sets data_len to what it copied, then calls
 * data_callback with the same record, and with nothing else delivered and the lock kept between the two calls. */
struct rcv_info {
    uint16_t event;  /* in: enum node_event */
    uint16_t result; /* out: enum node_event_result, also the routine's return value */
    void *rcv_ips;   /* in: the message or datagram; null for other events */
    uint32_t data_buf;
    uint32_t data_len;
    node_receive_routine data_callback;
};

/* ---- Paths and messages ---------------------------------------------------------------------------------------- */

/* Registers a receiver of events.
 *   kind     0 the verb library, 0x20 a TP server
 *   flags    0 for kind 0, 1 for kind 0x20
 *   receive  called for every event on a path of this path user; datagrams of type 0x0082 go to kind 0
 *   zero     0
 *   out      receives the path user on success and is untouched otherwise
 * Result: status. 2, 5 and 19 mean that no node is there. */
uint16_t vpm_init_path_user(uint32_t kind, uint32_t flags, node_receive_routine receive, uint32_t zero, uint32_t *out);

/* Ends a path user: its routine is not called any more. Its paths have been closed or are dropped with it. */
void vpm_terminate_path_user(uint32_t path_user);

/* The address of the next node that offers a service, or 0 when there is no further one.
 *   type    1, the verb service
 *   zero    0
 *   cursor  two words, both zero for the first call; the runtime keeps its position in them, so that each call gives
 *           the node after the one that the previous call returned */
uint32_t vsm_query_services(uint32_t type, uint32_t zero, uint32_t cursor[2]);

/* Makes a path to a node, for one TP.
 *   path_user  whose routine gets what arrives on the path
 *   node       an address from vsm_query_services, or from an attach
 *   one        1
 *   caps       capability block: u16 values, the first is the block's length in bytes; read during the call only
 * Result: the path, or 0 when none can be made. */
uint32_t vpm_create_path(uint32_t path_user, uint32_t node, uint32_t one, const void *caps);

/* Closes a path (flags 0xC000); nothing arrives on it any more, what was queued for it is dropped. Closing a path
 * that has failed or is unknown does nothing. */
void vpm_close_path(uint32_t path, uint32_t flags);

/* Sends one message, its contiguous part first, then the data, as one unit. With a null message the data continues
 * the previous message on this path (whose msg_len counts it). Both buffers are read during the call only.
 *   path      a path
 *   message   u32-aligned, or null with length 0
 *   data      or null with length 0
 * Result: status, which the library does not act on: a broken path must show as NODE_EVENT_PATH_FAILURE.
 * The answer is never delivered from inside this call. */
uint16_t vpm_send_ips(uint32_t path, void *message, uint32_t message_bytes, const void *data, uint32_t data_bytes);

/* Sends one datagram to the node's control point. It begins with a u16 length and a u16 type.
 *   kind   16
 *   zero   0
 * Result: status; reported to applications. May be called while no path user exists, and then sends or returns a
 * status. */
uint16_t vpm_send_datagram(uint32_t kind, uint32_t zero, void *datagram, uint32_t bytes);

/* Resolves a host name.
 *   host    NUL-terminated
 *   out     receives a pointer to an address record, whose second 32-bit word is the IPv4 address in network byte
 *           order; the record belongs to the runtime and stays valid. Untouched when there is no address.
 *   family  2, IPv4
 * Result: status; the library looks at the output only. */
uint16_t vsb_ip_get_addr(const char *host, void **out, uint32_t family);

/* ---- Lock, wait objects, events -------------------------------------------------------------------------------- */

/* Takes the process lock; the thread that has it may take it again. Result: a token for the matching vpm_unlock.
 * Called without the lock, or with it. */
uint16_t vpm_lock(void);

/* Undoes the vpm_lock that gave the token; the outermost one releases the lock. Delivers nothing. */
void vpm_unlock(uint16_t token);

/* Delivers, in the calling thread, every event that is already waiting. Called at the start of every synchronous
 * verb. */
void vpm_process_pending_events(void);

/* A wait object, or 0 when none can be had. */
uint32_t vpm_allocate_wait_object(void);
void vpm_release_wait_object(uint32_t wait_object);

/* Waits until the object is woken; a wake-up that came before the call ends it at once, and each wake-up ends one
 * wait. All levels of the lock that the thread holds are released meanwhile (or events are delivered in the waiting
 * thread), and are held again on return, so that events go on being delivered.
 *   timeout_ms  0xFFFFFFFF, no limit */
void vpm_sleep(uint32_t wait_object, uint32_t timeout_ms);

/* Wakes the thread that sleeps on the object, or the next that will. */
void vpm_wakeup(uint32_t wait_object);

/* ---- Handle tables --------------------------------------------------------------------------------------------- */

/* Makes a table and stores it at *table; leaves 0 there on failure. zero: 0. */
void vtm_table_init(uint32_t *table, uint32_t zero);

/* Frees the table at *table, not what its entries point to. */
void vtm_table_terminate(uint32_t *table);

/* A new non-zero handle for the pointer, or 0 when the table is full or memory is short. */
uint32_t vtm_get_free_entry(uint32_t table, void *pointer);

/* The pointer under a handle; null for a handle that is unknown or was released. Table 0: null. */
void *vtm_get_pointer(uint32_t table, uint32_t handle);

/* Frees a handle. */
void vtm_release_entry(uint32_t table, uint32_t handle);

/* The next used handle after the given one in handle order, 0 to start, with its pointer at *out; 0 when there is
 * none, or for table 0. Entries may be released and added between calls. */
uint32_t vtm_get_next_used(uint32_t table, uint32_t handle, void **out);

/* ---- Memory and record handles --------------------------------------------------------------------------------- */

/* Uninitialised memory aligned for any object, or null.
 *   bytes      size
 *   mem_class  770
 *   tag        &nba_blank_name
 *   zero_1, zero_2  0 */
void *nba_mm_alloc(uint32_t bytes, uint32_t mem_class, const void *tag, uint32_t zero_1, uint32_t zero_2);

/* Frees memory of nba_mm_alloc, a delivered buffer included. zero: 0. */
void nba_mm_free(void *pointer, uint32_t zero);

/* Housekeeping after a synchronous verb that waited. two: 2. The library relies on no effect. */
void nba_mm_refresh(uint32_t two);

/* A new non-zero handle that stands for a record in messages to the node, or 0. Handles should not be reused soon: a
 * stale one that comes back from the node must not validate. */
uint32_t nba_create_handle(void *pointer);
void nba_destroy_handle(uint32_t handle);

/* The record of a live handle; null for any other number. */
void *nba_validate_handle(uint32_t handle);

/* ---- Logs ------------------------------------------------------------------------------------------------------
 * Writes one record.
 *   id          0x20010000 to 0x2001000D for this library
 *   point       number of the call site
 *   descriptor  codes parted by single blanks, each taking arguments in order; every number is passed as 32 bits:
 *               "x"  a 16-bit value, "lx" a 32-bit value, both shown in hexadecimal; "es" length, EBCDIC string; "ca"
 *               length, character string; "ba" length, bytes shown in hexadecimal; "" takes none */
void nba_pd_print_problem(uint32_t id, uint16_t point, const char *descriptor, ...);
void nba_pd_print_exception(uint32_t id, uint16_t point, const char *descriptor, ...);
void nba_pd_print_audit(uint32_t id, uint16_t point, const char *descriptor, ...);

/* ---- EBCDIC (lock not needed) ---------------------------------------------------------------------------------- */

/* 1 when every byte belongs to the character class, else 0; an empty span passes. Class 8: A to Z, 0 to 9, $, #, @ in
 * EBCDIC. */
uint16_t nba_check_ebcdic(uint8_t char_class, const uint8_t *bytes, uint16_t count);

/* Converts bytes in place from EBCDIC to the local character set. */
void nba_ebcdic_to_local(uint8_t *bytes, uint32_t count);

/* ---- API trace file (lock not needed) -------------------------------------------------------------------------- */

/* The trace control record. */
struct trc_api_record {
    uint8_t initialised;   /* 0 until the library has called sepuapi_init and sets it to 1 */
    uint8_t unused_1[3];
    uint32_t trace_file;   /* valid after trc_lock_file; TRC_NO_FILE when no trace file is open */
};
#define TRC_NO_FILE 0xFFFFFFFFu

/* Prepares the trace; flags is the value of ptrc. Called once, before the first record. */
void sepuapi_init(uint8_t *flags);

/* Exclusive use of the trace file until trc_unlock_file. When it leaves TRC_NO_FILE in the record, nothing is locked
 * and trc_unlock_file is not called. */
void trc_lock_file(struct trc_api_record *trace);
void trc_unlock_file(struct trc_api_record *trace);

/* The separator that opens a record, a line of text, a hexadecimal dump. label: "APPC ". A program's block may name as its
 * data what is no memory, null included: a dump shows what can be read. */
void com_trc_sep(uint32_t trace_file, const char *label);
void com_trc_line(uint32_t trace_file, const char *label, const char *text);
void com_trc_dump(uint32_t trace_file, const char *label, const void *address, uint32_t bytes);

/* ---- Consistency checks (lock not needed) ---------------------------------------------------------------------- */

/* Reports a broken internal invariant. May return: the caller goes on as far as it is safe.
 *   path  module, a literal such as "../../p/v6/vav"
 *   line  source line
 *   text  the condition that did not hold */
void v0_assert(const char *path, uint32_t line, const char *text);

/* ---- Data objects ---------------------------------------------------------------------------------------------- */

/* Diagnostics flags, at least 9 bytes; may change at any time. Byte 1 bit 0x08: API trace on. Byte 8 bit 0x01: no
 * exception logs, bit 0x02: no audit logs. */
extern uint8_t *ptrc;

extern struct trc_api_record trc_api;

/* The machine's name, ASCII, NUL-terminated. */
extern char BoxName[];

/* Only its address is used, as the tag of nba_mm_alloc. */
extern const uint8_t nba_blank_name[8];

#ifdef __cplusplus
}
#endif

#endif
