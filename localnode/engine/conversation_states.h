// What a conversation verb does in each state of its own side of the conversation. conversation_verbs asks before it acts.
#pragma once

#include "common/types.h"

#include <tessaly/appc.h>

namespace tessaly::node {

// The states that GET_STATE reports, and two of our own for a side that has a verb waiting.
enum class conv_state : u8 {
    reset = APPC_STATE_RESET,  // the conversation is over for this side
    send = APPC_STATE_SEND,
    receive = APPC_STATE_RECEIVE,
    send_pending = APPC_STATE_SEND_PENDING,
    confirm = APPC_STATE_CONFIRM,
    confirm_send = APPC_STATE_CONFIRM_SEND,
    confirm_deallocate = APPC_STATE_CONFIRM_DEALLOCATE,
    receiving,  // a receive verb waits
    asking,     // a verb waits for the partner's confirmation, or for room in its queue
};

// The verbs as states tell them apart: DEALLOCATE and PREPARE_TO_RECEIVE by what they do.
enum class conv_verb : u8 {
    send_data,
    flush,
    confirm,
    prepare_flush,
    prepare_confirm,
    deallocate_flush,
    deallocate_confirm,
    deallocate_abend,
    confirmed,
    receive_and_wait,
    receive_and_post,
    receive_immediate,
    send_error,
    request_to_send,
    test_rts,  // and TEST_RTS_AND_POST
    send_expedited_data,
    receive_expedited_data,
    inquire,  // GET_TYPE, GET_STATE, GET_ATTRIBUTES
};

enum class action : u8 {
    refuse,         // STATE_CHECK
    pass_on,        // data or an indication goes to the partner, and the verb completes
    ask,            // the same, but the verb completes with the partner's confirmation
    finish,         // the partner is told that the conversation is over
    abend,          // the same, abnormally; a verb that waits is cancelled
    turn_and_wait,  // the partner gets the turn, then as wait
    wait,           // completes with the next thing that arrives
    look,           // completes with what is there
    reply,          // the partner's verb completes
    error,          // what is on its way to this side is dropped, and the partner is told
    signal,         // passes the ordinary flow by
    tell,           // answers from the side's own record
};

struct step {
    action act;
    conv_state next;  // of the side, once the verb has completed with OK
};

step conversation_step(conv_verb verb, conv_state state) noexcept;

// The secondary code of STATE_CHECK when the verb is refused.
u32 bad_state_code(conv_verb verb) noexcept;

// The same when the sender of a basic conversation is in the middle of a record; 0 for a verb that may be issued there.
u32 inside_record_code(conv_verb verb) noexcept;

}  // namespace tessaly::node
