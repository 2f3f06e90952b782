// Plays an input as a little program: verbs of an application, what the node sends, what goes wrong. It keeps the books: every
// accepted verb completes once, a block is freed the moment it is the application's again, and at the end nothing is left.
#pragma once

#include "fuzz/input.h"
#include "tests/support/scripted_node.h"

#include <map>
#include <memory>

namespace tessaly::fuzz {

// The entry points that take a verb's block, in the order of the header.
enum class entry : u8 { appc, appc_c, appc_p, c1, async, async1, async_int, c_version, c_async_version };
inline constexpr u32 ENTRIES = 9;

// The routines that blocks name and entries are given.
void on_completion(void* vcb, appc_u8* tp_id, appc_u32, appc_u32 corr);
void on_post(void* vcb, appc_u8*, appc_u32);
void on_forget(void* vcb, appc_u8*, appc_u32, appc_u16, appc_u32 value);
void on_server_event(appc_u32 event, void* data, appc_u32);

inline constexpr u32 FORGET_VALUE = 0xF0;  // and the verb's number

constexpr bool is_tp_servers(u16 opcode)
{
    return opcode >= FIRST_TP_SERVER_OPCODE && opcode <= LAST_TP_SERVER_OPCODE;
}

// Where a block's data is: its length and its address.
struct data_place {
    u16 opcode, length_at, address_at;
};

// One verb, for as long as the library or its caller has the block.
struct played_verb {
    u16 opcode;
    u32 number;  // its correlator
    u32 block_bytes;
    std::unique_ptr<u8[]> block;
    std::vector<std::unique_ptr<u8[]>> data = {};
    bool posts = false;      // names the routine that completes it
    bool may_forget = false; // a DEALLOCATE with a routine for its implied forget
    bool accepted = false, completed = false, forgotten = false;

    bool awaits_forget() const { return may_forget && !forgotten && header_of(block.get()).primary_rc == OK; }
};

class player {
public:
    explicit player(input& in);
    player(const player&) = delete;
    player& operator=(const player&) = delete;

    void step();         // the program's next instruction
    void tell_server();  // the node's next word to a TP server
    void finish();  // ends the node's services, and looks whether the books balance

    // Issues one verb. wild: every byte of its block is the input's, but for the addresses that it holds.
    void issue(entry through, u16 opcode, bool wild);
    void trace(u16 opcode);  // a block, without issuing it
    u16 any_opcode();        // of a verb

    // Of its routines.
    void completed(void* vcb, u32 corr);
    void posted(void* vcb);
    void forgot(void* vcb, u32 value);
    void asked_to_start(u64 start_id);
    void act();

private:
    played_verb& held(void* vcb);
    u8 format_for(u16 opcode, bool wild);
    void fill_tp_server_block(u8* block, u16 opcode);
    played_verb make(entry through, u16 opcode, bool wild);
    void address_data(played_verb& verb, entry through);
    void address_routines(played_verb& verb, u32 version);
    u16 enter(entry through, void* vcb, bool with_callback, u32 version);
    void is_back(played_verb& verb, bool waited, u16 result);
    void complete(played_verb& verb);
    void interlude();  // while a caller sleeps

    // The node's side, in node_side.cpp.
    void send_message(u32 path, test::bytes message);
    void send_datagram();
    void answer(bool spoilt);
    void send_raw();
    void spoil(test::bytes& message);
    void lose_something();
    void change_the_world();
    void fork();

    // The same for a TP server, in node_side_tp_server.cpp.
    u32 some_correlator(u16 asked_with, u32 at);
    void say_to_server(test::bytes datagram, u16 type);
    void ask_to_start();
    void answer_query();
    void answer_update();
    void answer_pip();

    const test::sent_verb* some_sent();
    u32 some_path();
    u32 some_tp() { return (in_.below(16) + 1) % 5; }  // handles are the lowest free numbers

    input& in_;
    test::scripted_node node_;
    std::map<void*, played_verb> held_;
    u32 issued_ = 0;
    u32 depth_ = 0;    // of routines and callers that wait
    u32 in_routine_ = 0;
    u64 start_id_ = 0;  // of the start request that came last
    u32 waiting_ = 0;  // callers within a synchronous verb
    u32 idle_ends_ = 0;
    bool queues_ = false;  // what the node sends waits for the next sleep or synchronous verb
    bool finished_ = false;
};

}  // namespace tessaly::fuzz
