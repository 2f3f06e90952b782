// The scripted node: a runtime for tests, in one thread, that plays the node as the test tells it to, records all that the
// library does, and fails the test when the library breaks the runtime contract. contract.cpp puts the contract's operations
// on top of it.
#pragma once

#include "runtime/node_runtime.h"
#include "tests/support/published_layouts.h"
#include "wire/datagrams.h"
#include "wire/verb_message.h"

#include <array>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tessaly::test {

// One verb as it was sent.
struct sent_verb {
    u32 path;
    u32 address;             // of the library's buffer
    bytes message;           // header and block, in the node's layout
    bytes data;              // all that came behind it ...
    std::vector<u32> parts;  // ... in how many bytes a send

    verb_message_header header() const;
    bytes block() const { return {message.begin() + sizeof(verb_message_header), message.end()}; }
    u16 opcode() const { return static_cast<u16>(message[112] | message[113] << 8); }
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
    std::string descriptor;
    std::vector<u32> numbers;
    std::vector<bytes> strings;
};

struct path_record {
    u32 user;
    u32 node;
    bytes caps;
    enum { open, closed, failed } state;
    u32 close_flags;
};

// Operations that the contract allows to fail.
enum class may_fail : u8 {
    nba_mm_alloc,
    nba_create_handle,
    vtm_get_free_entry,
    vtm_table_init,
    vpm_allocate_wait_object,
    vpm_init_path_user,
    vpm_create_path,
    vsm_query_services,
    vpm_send_datagram,
    vpm_send_ips,
};

// How much of the runtime the library holds.
struct holdings {
    u32 memory, handles, wait_objects, entries, tables, paths, path_users;

    bool operator==(const holdings&) const = default;
};
std::ostream& operator<<(std::ostream& out, const holdings& held);

class scripted_node {
public:
    scripted_node();
    ~scripted_node();

    // ---- The script. Answers to verbs are queued when these are sent, and arrive at the next sleep, synchronous verb or
    // deliver().
    void answers(u16 opcode, reply how = {});       // from now on
    void answers_once(u16 opcode, reply how = {});  // the next verb of this opcode
    void stays_silent(u16 opcode) { standing_.erase(opcode); }
    void deliver();
    void while_asleep(std::function<void()> step) { steps_.push_back(std::move(step)); }  // as from another thread

    // These arrive at once, behind what is queued.
    void answer(const sent_verb& verb, const reply& how = {}) { sends(verb.path, answer_to(verb, how)); }
    void sends(u32 path, bytes message) { happens({NODE_EVENT_IPS, path, std::move(message)}); }
    void sends_datagram(bytes datagram) { happens({NODE_EVENT_DATAGRAM, 0, std::move(datagram)}); }
    void loses_path(u32 path) { happens({NODE_EVENT_PATH_FAILURE, path, {}}); }
    void reports(u16 kind) { happens({kind, 0, {}}); }
    std::function<void()> before_data;  // runs once, between an answer and its data

    void refuse(std::optional<may_fail> which, u32 nth = 1, bool from_then_on = false, u16 status = 0x0013);
    void refuse_nothing() { refusals_.clear(); }
    void expect_assertion(const char* text) { expected_assertions_.push_back(text); }

    // An answer's bytes, for tests that spoil them: correlators exchanged, pend_handle echoed.
    bytes answer_to(const sent_verb& verb, const reply& how = {}) const;

    // ---- What was seen.
    std::deque<sent_verb> sent;
    std::vector<bytes> datagrams;
    std::vector<log_record> logs;
    std::vector<const char*> calls;  // every operation, in order
    std::map<u32, path_record> paths;
    const sent_verb& last(u16 opcode) const;  // fails the test when there is none
    u32 count(u16 opcode) const;
    const log_record* logged(u16 point) const;
    u32 refused() const { return refused_; }
    holdings held() const;
    void* record_of(u32 handle) const;
    void check_at_end() const;

    // ---- Its surroundings.
    std::vector<u32> nodes = {0x01010101};              // that offer the verb service
    std::optional<u32> address;                         // of BoxName, network byte order
    std::optional<std::string> user_name = "operator";  // of the process

    // The node's names for the TP of a message.
    static u32 corr_of(u32 tp_handle) { return 0xC0000000 + tp_handle; }
    static std::array<u8, 8> id_of(u32 tp_handle);

    // ---- The ledger, which contract.cpp writes.
    struct user_record {
        u32 kind;
        node_receive_routine receive;
    };
    struct memory_block {
        u32 size;
        u32 serial;
    };
    u16 enter(const char* operation,
              std::optional<may_fail> which = {});  // records the call; a status when it is refused
    u32 new_number(u32 kind) { return kind + ++numbers_; }
    void* obtain(u32 size);
    void release(void* pointer);
    void asserted(const std::string& text);
    void sleep(u32 wait_object);
    void send_has_failed(u32 path) { queue_.push_back({NODE_EVENT_PATH_FAILURE, path, {}}); }
    void message_is_complete(const sent_verb& verb);  // answers it, where the script says so
    std::map<void*, memory_block> memory;
    std::map<u32, void*> handles;
    std::map<u32, u32> wait_objects;  // to wake-ups not yet used
    std::map<u32, std::map<u32, void*>> tables;
    std::map<u32, user_record> users;
    u32 lock_depth = 0;
    std::array<u32, 2> address_record{};

private:
    struct event {
        u16 kind;
        u32 path;
        bytes content;
    };
    struct refusal {
        std::optional<may_fail> which;
        u32 nth;
        bool from_then_on;
        u16 status;
        u32 seen;
    };

    void happens(event what);
    void deliver_one();
    void deliver_message(const event& what);
    void deliver_to_users(const event& what);
    u16 call(node_receive_routine routine, u32 path, rcv_info& info);
    void copy_data(const rcv_info& info, const bytes& message) const;
    u32 room_of(u32 pend_handle) const;

    std::deque<event> queue_;
    std::deque<std::function<void()>> steps_;
    std::map<u16, reply> standing_;
    std::map<u16, std::deque<reply>> once_;
    std::vector<refusal> refusals_;
    std::vector<std::string> expected_assertions_;
    u32 refused_ = 0;
    u32 numbers_ = 0;
};

// The node of the running test.
extern scripted_node* the_node;

}  // namespace tessaly::test
