// What a trace tells: which verbs ran, on which TP and conversation, from when to when; and what went from one TP to another.
#pragma once

#include "tools/tessaly/trace_records.h"

#include "verbs/codes.h"

#include <map>

namespace tessaly::tool::trace {

// A TP of a process. Verbs that name none (yet) have one without an identifier.
struct tp {
    u32 process = 0;
    std::string id;    // 8 bytes, or empty
    std::string name;  // what is known of it
    std::string lu;

    u32 number() const;  // the second half of the identifier
    std::string label() const;
};

inline constexpr std::int64_t NEVER = -1;

// A verb from its request to its response, or an implied forget, which has a single moment.
struct verb_run {
    std::string verb;
    std::string result;  // empty: no response in the trace
    u16 opcode = 0;      // 0: an implied forget
    u8 ext = 0;
    u32 process = 0;
    u32 thread = 0;
    std::int64_t start_us = NEVER;  // NEVER: the request is not in the trace
    std::int64_t end_us = NEVER;
    std::size_t line = 0;  // of its first record
    u32 secondary = 0;
    u32 conversation = 0;
    std::size_t tp = 0;    // place among the TPs
    u16 what = 0;          // what_rcvd of a receive verb, type of one that sends or ends
    bool sync_confirm = false;
    std::size_t data_bytes = 0;
    std::string data, data_in_ebcdic;      // the first bytes
    std::string asks_tp, asks_lu, from_lu; // what an allocate asks for, what a receive-allocate got
    u64 block = 0;                         // its address

    bool has_ended() const { return end_us != NEVER; }
    bool is_good() const { return result == "OK" || result == "DEALLOC_NORMAL"; }  // the partner's end is no fault
    bool is_error() const { return has_ended() && opcode != 0 && !is_good(); }
    std::int64_t first_us() const { return start_us != NEVER ? start_us : end_us; }
    std::int64_t last_us() const { return end_us != NEVER ? end_us : start_us; }
};

// Pairs requests with responses: a block's address in a process has one verb at a time.
class story {
public:
    // Called with a verb when it has ended.
    std::function<void(const verb_run&)> on_end;

    void take(const record& from);
    void sort();        // by time; call it once, when all is taken
    void drop_ended();  // verbs that have their response, for who has followed them

    std::vector<verb_run> verbs;
    std::vector<tp> tps;

private:
    std::size_t tp_of(u32 process, const std::string& id);
    void read_block(verb_run& verb, const record& from);

    std::map<std::pair<u32, u64>, std::size_t> open_;
    std::map<std::pair<u32, std::string>, std::size_t> known_tps_;
};

// Which verbs are of interest; empty: all.
struct filter {
    std::string tp;  // name, number, or process
    u32 conversation = 0;
    std::string verb;
    bool errors = false;

    bool passes(const story& of, const verb_run& run) const;
};

enum class flow_kind : u8 { attach, data, turn, confirm, confirmed, error, end };

// Something that one verb sent and another got.
struct flow {
    flow_kind kind;
    std::size_t from, to;  // places among the verbs
};

// Finds the two sides of conversations, and what went between them. The verbs must be sorted. The trace has no name for a
// conversation that both sides share, so this goes by what was asked for and by order: see docs/tool.md.
std::vector<flow> find_flows(const story& of);

}  // namespace tessaly::tool::trace
