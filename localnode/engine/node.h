// What the node keeps: paths and TPs, conversations, and what waits to meet - announced TPs and attaches. Every file of this
// room works on it; each record is made and released in one place, which its comment names.
#pragma once

#include "common/copy_block.h"
#include "common/list.h"
#include "localnode/engine/conversation_states.h"
#include "localnode/engine/engine.h"
#include "localnode/engine/logical_records.h"
#include "localnode/engine/lu_names.h"
#include "localnode/engine/names.h"
#include "localnode/engine/record_queue.h"
#include "localnode/engine/slot_table.h"
#include "verbs/block.h"
#include "verbs/catalogue.h"
#include "wire/verb_message.h"

#include <map>
#include <set>
#include <vector>

namespace tessaly::node {

struct tp;
struct attach;
struct conv_side;

// A client's path; it carries the verbs of one TP. tps.
struct path_record {
    list_link link;  // in node::lost while a frame for it could not be sent
    u32 id;
    client_id client;
    u32 number;   // the client's
    bool failed;  // reported as failed, or lost; what still comes on it is ignored, and nothing is sent on it
    tp* user;     // null before the TP has started and after it has ended
};

// A verb that travelled here: its header as it came, and its block narrowed to the layout of tessaly/appc.h.
struct verb_ref {
    const verb_message_header& header;
    const block_format& layout;  // as it travels
    u8* block;
};

// The verb of the frame in hand. Whoever reads a struct of appc.h from the block stays within the verb's own length and format.
struct request {
    const verb_message_header* header;  // in the frame
    const verb_row* row;
    const block_format* layout;
    path_record* path;
    tp* user;  // null for the verbs that start one
    std::span<const u8> data;
    alignas(8) u8 block[256];

    operator verb_ref() noexcept { return {*header, *layout, block}; }
};

// A verb that waits on a side of a conversation.
struct waiting_verb {
    verb_message_header header;
    const block_format* layout;
    alignas(8) u8 block[sizeof(appc_receive)];  // the longest verb that waits

    operator verb_ref() noexcept { return {header, *layout, block}; }

    void keep(const request& verb) noexcept
    {
        copy_block(&header, verb.header, sizeof header);
        layout = verb.layout;
        copy_block(block, verb.block, verb.layout->length);
    }
};

enum class waits_for : u8 {
    nothing,
    data,          // a receive verb
    confirmation,  // of whatever the verb asked
    next_arrival,  // confirmed already, but PREPARE_TO_RECEIVE with long locks completes with what arrives next
    room,          // in the partner's queue; pacing
};

// What a verb may wait for beside the ordinary flow, whatever else waits. asides.
enum class aside : u8 {
    turn_request,    // TEST_RTS_AND_POST
    expedited_data,  // RECEIVE_EXPEDITED_DATA
    expedited_room,  // SEND_EXPEDITED_DATA: the partner has not yet received what was sent before
};
inline constexpr u32 ASIDES = 3;

struct aside_verb {
    bool waits;
    waiting_verb verb;
};

struct expedited_data {
    u8 bytes;  // 0: none
    u8 data[86];
};

// What follows the records in a queue. There is at most one: after it the partner waits for this side.
enum class indication : u8 { none, turn, confirm, confirm_turn, confirm_deallocate };

struct return_codes {
    u16 primary = OK;
    u32 secondary = SEC_NONE;
};

// A sender that is held back and may go on when its time has come. pacing.
struct held_sender {
    list_link link;  // in node::held_senders while the SEND_DATA waits
    conv_side* sender;
    u64 deadline_ms;
};

// One side of a conversation, as the verbs of its TP see it; its number is their conv_id. A side without a partner has an
// ending, so no verb waits for one that is gone. conversations.
struct conv_side {
    list_link link;  // in its TP's list of sides
    u32 id;
    tp* owner;        // null on the incoming side until a RECEIVE_ALLOCATE takes it
    u32 partner;      // number of the other side; names nothing once that is over
    attach* arrival;  // the attach that brings this side to its TP; null once it is taken, and on the allocating side

    conv_state state;
    conv_state after_reply;  // the state once the waiting verb is confirmed
    waits_for waiting;
    waiting_verb waiter;

    record_queue inbound;
    u32 most_unread;      // bytes in there above which the sender is held back; pacing
    indication behind;    // what comes behind the records
    u16 error;            // not OK: the partner took the turn with SEND_ERROR, which the next verb tells
    return_codes ending;  // not OK: the partner has ended the conversation, which comes behind all else
    u8 turn_wanted;       // 1: the partner asked for the turn, and no answer has told it yet
    record_border sent;   // basic: where the stream of records stands that this side sends

    aside_verb asides[ASIDES];
    expedited_data expedited;  // arrived
    expedited_data held;       // of the SEND_EXPEDITED_DATA that waits
    held_sender hold;

    u32 session;  // the same on both sides
    u8 conv_type;
    u8 sync_level;
    lu_alias local_lu;
    lu_alias partner_lu;
    tp_name program;  // the name that was asked for
    mode_name mode;
    user_name user;
    appc_luw_id luw;  // packed, as it travels
    u16 pip_bytes;    // of the PIP data that came with the attach
};

// A transaction program; its number is its correlator in headers and in its identifier. tps.
struct tp {
    u32 id;
    path_record* path;
    u32 client_corr;  // the client's name for the TP
    lu_alias lu;
    tp_name name;
    user_name user;
    appc_luw_id protected_luw;  // packed, as they travel
    appc_luw_id unprotected_luw;
    list_head<conv_side> sides;
};

// A TP that a TP server starts, and for whom.
struct startable_tp {
    u8 type;  // tp_start_type
    tp_name program;
    lu_alias lu;         // blanks: any
    fq_lu_name partner;  // or a pattern; blank: any
    u32 start_value;     // the server's
};

// What a TP server has told that it starts; its number is the tp_reg_id. tp_definitions.
struct tp_definition {
    list_link link;  // in node::definitions
    u32 id;
    client_id client;
    u32 server;  // the client's handle
    bool doubtful;  // that server may be gone: its client has ended one of several, and the node cannot tell which
    startable_tp starts;
    u32 under_way;  // the attach for which a queued TP is being started; 0: none
};

enum class start_phase : u8 {
    none,
    queued,   // until the definition's attach before it is taken or has failed; whoever announces itself may take it
    asked,    // a TP server was asked and has not answered
    started,  // by a TP server or by the host
};

// A program that is started for an attach, which from `asked` on is kept for it under a number that only it has been told.
struct program_start {
    start_phase phase = start_phase::none;
    bool done = false;     // one was started, and none is a second time
    client_id server = 0;  // who was asked; 0: the host, or nobody
    u32 server_handle = 0;
    u32 definition = 0;  // its number; it may be gone
};

// A conversation that was allocated and that no TP has taken yet; its number is the attach correlator. attaches.
struct attach {
    list_link link;  // in node::attaches or, asked, in node::starting, until a RECEIVE_ALLOCATE takes it
    u32 id;
    conv_side* side;
    u64 deadline_ms;
    client_id offered_to;  // 0: to nobody yet
    u32 tp_handle;
    program_start start;
    u8 security;  // as ALLOCATE has it
    user_name password;
    std::vector<u8> pip;
};

// A TP that waits for a conversation. attaches.
struct announced_tp {
    list_link link;
    u32 id;
    client_id client;
    u32 tp_handle;
    bool registered_names;  // accepts what its client has registered
    tp_name program;        // blank: any
    lu_alias lu;            // blanks: any
};

// What a client has here. In use from the first of it until the client is gone. clients.
struct client_record {
    std::map<u32, path_record*> paths;       // by the client's number
    std::map<u32, announced_tp*> announced;  // by the client's name for the TP
    std::set<tp_name> names;                 // registered for CPI-C
    std::set<u32> tp_servers;                // by the client's number
    client_rights rights;                    // as they were told last
    u32 definitions = 0;
};

struct node {
    node() noexcept
    {
        attaches.init();
        announced.init();
        lost.init();
        starting.init();
        definitions.init();
        held_senders.init();
    }

    lu_directory lus;
    std::vector<tp_name> programs;  // that the host starts
    u32 attach_limit_ms = 0;
    u32 start_limit_ms = 0;
    u32 most_attaches = 0;
    u32 unread_bytes = 0;

    u64 now_ms = 0;
    frame_sink* output = nullptr;  // of the frame in hand

    slot_table<path_record> path_table;
    slot_table<tp> tp_table;
    slot_table<conv_side> side_table;
    slot_table<attach> attach_table;
    slot_table<announced_tp> announced_table;
    slot_table<tp_definition> definition_table;
    std::map<client_id, client_record> clients;

    list_head<attach> attaches;         // by deadline
    list_head<attach> starting;         // by deadline
    list_head<held_sender> held_senders;  // by deadline
    list_head<announced_tp> announced;  // first come, first served
    list_head<path_record> lost;
    list_head<tp_definition> definitions;  // in the order in which they were made
    u32 waiting_attaches = 0;
    bool queues_moved = false;         // a queued TP may be started for the next attach
    bool definitions_changed = false;  // which TP servers have not been told yet
};

}  // namespace tessaly::node
