/* Two programs converse in one process: GREETER sends a record and asks for confirmation, LISTENER receives and confirms it.
 * Each runs in its own thread and issues its verbs one after the other. Prints what LISTENER got; exit status 1 when a verb
 * fails. */
#include "names.h"

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <tessaly/appc.h>

/* Issues one verb and leaves the program unless it succeeds. */
static void issue(const char *verb, void *vcb)
{
    const appc_header *header = (const appc_header *)vcb;
    APPC(vcb);
    if (header->primary_rc != APPC_OK) {
        fprintf(stderr, "%s failed: primary_rc 0x%04X, secondary_rc 0x%08X\n", verb, (unsigned)header->primary_rc,
                (unsigned)header->secondary_rc);
        exit(1);
    }
}

/* The fields that every verb of a mapped conversation has. */
static void set_header(void *vcb, size_t size, appc_u16 opcode, const appc_u8 *tp_id, appc_u32 conv_id)
{
    appc_header *header = (appc_header *)vcb;
    memset(vcb, 0, size);
    header->opcode = opcode;
    header->opext = APPC_MAPPED_CONVERSATION;
    memcpy(header->tp_id, tp_id, sizeof header->tp_id);
    header->conv_id = conv_id;
}

static void end_tp(const appc_u8 *tp_id)
{
    appc_tp_ended ended;
    set_header(&ended, sizeof ended, APPC_OP_TP_ENDED, tp_id, 0);
    issue("TP_ENDED", &ended);
}

static void *greet(void *unused)
{
    const char text[] = "Hello from the other side";
    appc_tp_started started;
    appc_allocate_format_0 allocate;
    appc_send_data send;
    appc_confirm confirm;
    appc_deallocate deallocate;

    memset(&started, 0, sizeof started);
    started.opcode = APPC_OP_TP_STARTED;
    set_alias(started.lu_alias, "HERE");
    set_ebcdic(started.tp_name, sizeof started.tp_name, "GREETER");
    issue("TP_STARTED", &started);

    set_header(&allocate, sizeof allocate, APPC_OP_ALLOCATE, started.tp_id, 0);
    allocate.conv_type = APPC_MAPPED;
    allocate.sync_level = APPC_SYNC_CONFIRM;
    set_alias(allocate.plu_alias, "THERE");
    set_ebcdic(allocate.mode_name, sizeof allocate.mode_name, "BATCH");
    set_ebcdic(allocate.tp_name, sizeof allocate.tp_name, "LISTENER");
    issue("ALLOCATE", &allocate);

    set_header(&send, sizeof send, APPC_OP_SEND_DATA, started.tp_id, allocate.conv_id);
    send.dptr = text;
    send.dlen = sizeof text - 1;
    issue("SEND_DATA", &send);

    set_header(&confirm, sizeof confirm, APPC_OP_CONFIRM, started.tp_id, allocate.conv_id);
    issue("CONFIRM", &confirm); /* returns when LISTENER has confirmed */

    set_header(&deallocate, sizeof deallocate, APPC_OP_DEALLOCATE, started.tp_id, allocate.conv_id);
    deallocate.dealloc_type = APPC_DEALLOC_FLUSH;
    issue("DEALLOCATE", &deallocate);
    end_tp(started.tp_id);
    return unused;
}

static void *listen_to_it(void *unused)
{
    char text[80];
    appc_receive_allocate accept;
    appc_receive_and_wait receive;
    appc_confirmed confirmed;

    memset(&accept, 0, sizeof accept);
    accept.opcode = APPC_OP_RECEIVE_ALLOCATE;
    set_ebcdic(accept.tp_name, sizeof accept.tp_name, "LISTENER");
    issue("RECEIVE_ALLOCATE", &accept); /* returns when GREETER has allocated */

    for (;;) {
        set_header(&receive, sizeof receive, APPC_OP_RECEIVE_AND_WAIT, accept.tp_id, accept.conv_id);
        receive.dptr = text;
        receive.max_len = sizeof text;
        APPC(&receive);
        if (receive.primary_rc != APPC_OK)
            break;
        if (receive.what_rcvd & APPC_WR_DATA_COMPLETE)
            printf("LISTENER received: %.*s\n", (int)receive.dlen, text);
        if (receive.what_rcvd & APPC_WR_CONFIRM) {
            set_header(&confirmed, sizeof confirmed, APPC_OP_CONFIRMED, accept.tp_id, accept.conv_id);
            issue("CONFIRMED", &confirmed);
        }
    }
    if (receive.primary_rc != APPC_DEALLOC_NORMAL) {
        fprintf(stderr, "RECEIVE_AND_WAIT failed: primary_rc 0x%04X\n", (unsigned)receive.primary_rc);
        exit(1);
    }
    puts("LISTENER: the conversation is over");
    end_tp(accept.tp_id);
    return unused;
}

int main(void)
{
    pthread_t greeter, listener;
    if (pthread_create(&listener, NULL, listen_to_it, NULL) != 0 || pthread_create(&greeter, NULL, greet, NULL) != 0) {
        fputs("no thread could be made\n", stderr);
        return 1;
    }
    pthread_join(greeter, NULL);
    pthread_join(listener, NULL);
    return 0;
}
