// The scripted node: a runtime for tests, in one thread, that plays the node as the test tells it to, records all that the
// library does, and fails the test when the library breaks the runtime contract. contract.cpp puts the contract's operations
// on top of it.
#pragma once

#include "runtime/node_runtime.h"
#include "tests/support/published_layouts.h"
#include "wire/datagrams.h"
#include "wire/verb_message.h"

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <string>

namespace tessaly::test {

// One verb as it was sent.
struct sent_verb {
    u32 path;
    u32 address;             // of the library's buffer
    bytes message;           // header and block, in the node's layout
    bytes data;              // all that came behind it ...
    std::vector<u32> parts;  // ... in how many bytes a send

    const verb_message_header& header() const { return *reinterpret_cast<const verb_message_header*>(message.data()); }
    bytes block() const { return {message.begin() + sizeof(verb_message_header), message.end()}; }
    u16 opcode() const { return load<u16>(message.data(), sizeof(verb_message_header)); }
    bool is_complete() const { return header().msg_len == message.size() + data.size(); }
};

// What the node answers. fill works on the block in the caller's layout, after the codes were set.
struct reply {
    u16 primary = 0;
    u32 secondary = 0;
    std::function<void(u8*)> fill = {};
    bytes data = {};
};

// A reply whose fields are filled in by name.
template <typename Block, typename Fill>
reply filled(Fill fill, bytes data = {})
{
    return {.fill = [fill](u8* block) { fill(*reinterpret_cast<Block*>(block)); }, .data = std::move(data)};
}

struct log_record {
    char kind;  // 'p'roblem, 'e'xception, 'a'udit
    u32 id;
    u16 point;
    std::string descriptor = {};
    std::vector<u32> numbers = {};
    std::vector<bytes> strings = {};

    bool operator==(const log_record&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const log_record& log)
    {
        return out << log.kind << std::hex << " 0x" << log.id << std::dec << " point " << log.point << " " << log.descriptor;
    }
};

// One call of the trace file's operations: its name, or the text of a line; for a dump what it shows.
struct trace_call {
    std::string what;
    const void* start = nullptr;
    bytes shown = {};

    bool operator==(const trace_call&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const trace_call& call)
    {
        return out << call.what << " " << call.start << " " << call.shown.size();
    }
};

// clang-format off
struct path_record { u32 user, node; bytes caps; bool open; };  // not open: closed, or failed
struct path_user { node_receive_routine receive; u32 kind; bool outlived_the_node = false; };
struct broken_invariant { std::string module; u32 line; std::string text; };

// Operations that the contract allows to fail.
enum class may_fail : u8 {
    nba_mm_alloc, nba_create_handle, vtm_get_free_entry, vtm_table_init, vpm_allocate_wait_object, vpm_init_path_user,
    vpm_create_path, vsm_query_services, vpm_send_datagram, vpm_send_ips,
};
// clang-format on

// How much of the runtime the library holds.
struct holdings {
    size_t memory, handles, wait_objects, tables, path_users, entries, paths;

    bool operator==(const holdings&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const holdings& held)
    {
        return out << "memory " << held.memory << ", handles " << held.handles << ", wait objects " << held.wait_objects
                   << ", tables " << held.tables << ", path users " << held.path_users << ", entries " << held.entries
                   << ", paths " << held.paths;
    }
};

struct scripted_node {
    struct event {
        u16 kind;
        u32 path;
        bytes content;
    };

    // ---- The script. Answers to verbs are queued when these are sent, and arrive at the next sleep, synchronous verb or
    // deliver().
    void answers(u16 opcode, reply how = {}) { scripts[opcode].always = std::move(how); }
    void answers_once(u16 opcode, reply how = {}) { scripts[opcode].once.push_back(std::move(how)); }
    void stays_silent(u16 opcode) { scripts[opcode].always.reset(); }
    void deliver();
    void while_asleep(std::function<void()> step) { steps.push_back(std::move(step)); }  // as from another thread

    // These arrive at once, behind what is queued.
    void answer(const sent_verb& verb, const reply& how = {}) { sends(verb.path, answer_to(verb, how)); }
    void sends(u32 path, bytes message) { happens({NODE_EVENT_IPS, path, std::move(message)}); }
    void sends_datagram(bytes datagram) { happens({NODE_EVENT_DATAGRAM, 0, std::move(datagram)}); }
    void loses_path(u32 path) { happens({NODE_EVENT_PATH_FAILURE, path, {}}); }
    void abends(u32 path, u32 tp_handle) { happens(abend_of(path, tp_handle)); }
    static event abend_of(u32 path, u32 tp_handle);
    void interrupts_with(event what);  // ahead of all that is queued
    void reports(u16 kind) { happens({kind, 0, {}}); }
    std::function<void()> before_data;  // runs once, between an answer and its data
    std::function<void(const event& message, bool delivered)> beside;  // right before and right after each message

    // Refuses the nth use of an operation, or of any that may fail; and, when told so, all further ones. errno is SHORTAGE then,
    // and something else after every other operation.
    static constexpr int SHORTAGE = 28;
    void refuse(std::optional<may_fail> which, u32 nth = 1, bool from_then_on = false, u16 status = 0x13);
    void refuse_nothing() { refusals.clear(); }
    u32 refused() const { return refusals_seen; }
    void expect_assertion(const char* text) { expected_assertions.push_back(text); }
    std::vector<std::string> tolerated_assertions;  // which may come, any number of times

    // An answer's bytes, for tests that spoil them: correlators exchanged, pend_handle echoed.
    static bytes answer_to(const sent_verb& verb, const reply& how = {});

    // The node's names for the TP of a message.
    static u32 corr_of(u32 tp_handle) { return 0xC0000000 + tp_handle; }
    static bytes id_of(u32 tp_handle) { return joined({{'N', 'O', 'D', 'E'}, words({tp_handle})}); }

    // ---- What was seen.
    std::deque<sent_verb> sent;
    std::vector<bytes> datagrams;
    std::vector<log_record> logs;
    std::vector<broken_invariant> broken;  // as they were reported
    std::vector<trace_call> trace;
    std::vector<const char*> calls;  // every operation, in order
    std::map<u32, path_record> paths;
    const sent_verb& last(u16 opcode) const;  // fails the test when there is none
    size_t count(u16 opcode) const { return static_cast<size_t>(std::ranges::count(sent, opcode, &sent_verb::opcode)); }
    log_record logged(u16 point) const;  // the first one of a call site, or an empty one
    holdings held() const;
    size_t held_by_tps() const { return held().entries + held().handles + held().wait_objects + held().paths; }
    void check_at_end() const;
    // Trace records of the blocks: how many requests have no response yet. Fails the test for a response without a request.
    i32 traced_as_pending() const;

    // ---- Its surroundings.
    std::vector<u32> nodes = {0x01010101};              // that offer the verb service
    std::optional<u32> address;                         // of BoxName, network byte order
    std::optional<std::string> user_name = "operator";  // of the process
    u32 effective_user = 1000;

    u32 trace_file = 0x7ACE;
    u8 flags_of_trace = 0;      // which sepuapi_init sets
    bool reads_dumps = false;   // else only their start is noted: a block may name what is no memory

    // ---- The ledger, which contract.cpp writes.
    std::map<void*, std::pair<u32, u32>> memory;  // to size and serial number
    std::map<u32, void*> handles;
    std::map<u32, u32> wait_objects;  // to wake-ups not yet used
    std::map<u32, std::map<u32, void*>> tables;
    std::map<u32, path_user> users;
    u32 lock_depth = 0;
    u32 numbers = 0;
    u32 forks = 0;
    u16 last_result = 0;  // of a receive routine
    void enter(const char* operation, bool arguments_are_right = true);
    u16 refuses(const char* operation, may_fail which, bool arguments_are_right = true);  // enters, too; the status, or 0
    void* obtain(u32 size);
    void release(void* pointer);
    void asserted(const broken_invariant& what);
    void sleep(u32 wait_object);
    void answers_to(const sent_verb& verb);  // answers it, where the script says so

    // ---- How it works.
    // clang-format off
    struct script { std::optional<reply> always; std::deque<reply> once; };
    struct refusal { std::optional<may_fail> which; u32 nth; bool from_then_on; u16 status; u32 seen = 0; };
    // clang-format on
    void happens(event what);
    void deliver_one();
    void deliver_event(const event& what);
    void hand_over(const path_user& receiver, const event& what);
    std::map<u32, path_user> receivers_of(const event& what);
    u16 call(node_receive_routine routine, u32 path, rcv_info& info);

    std::deque<event> queue;
    std::deque<std::function<void()>> steps;
    std::map<u16, script> scripts = {{TP_STARTED, {reply{}}}, {SET_TP_PROPERTIES, {reply{}}}, {TP_ENDED, {reply{}}}};
    std::vector<refusal> refusals;
    u32 refusals_seen = 0;
    std::vector<std::string> expected_assertions;
};

// The node of the running test.
extern scripted_node* the_node;

}  // namespace tessaly::test
