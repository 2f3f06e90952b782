// A world of clients that do whatever comes to a seeded mind, and what must hold whatever they do.
#pragma once

#include "tests/engine/playing.h"

#include <deque>
#include <map>
#include <random>
#include <set>

namespace tessaly::node::playing {

inline constexpr client_id CLIENTS = 4;
inline constexpr client_id VANDAL = 4;  // the client that also sends nonsense
inline constexpr u32 PLAYERS_OF_EACH = 4;
inline constexpr u32 TALK_BASE = 10'000;  // how a talk is named: no spoilt name, longer or shorter, is that of another
inline constexpr u32 TALK_FACTOR = 1009;

struct player;

// One end of a conversation, as its own program and its partner's doings make it known.
struct talk_end {
    player* of = nullptr;
    u32 conv = 0;
    bool over = false;
    bool has_turn = false;  // as far as it knows, for a choice of verbs that makes sense
    bool asked = false;
    bool asked_to_end = false;
    std::set<u16> may_learn;  // endings for which the partner has given cause
    u32 sent[2] = {};         // records, and expedited messages
    u32 received[2] = {};
    u32 offset[2] = {};  // in what it is receiving
};

struct talk {
    u32 number = 0;
    u8 type = APPC_MAPPED;
    bool taken = false;    // by a program that has confirmed it
    bool checked = false;  // the vandal has no part in it
    talk_end ends[2];
};

// What is known of a verb that has been sent and not answered.
struct issued {
    u16 opcode = 0;
    u8 type = 0;
    talk* about = nullptr;
    u32 which = 0;  // end of the talk
    bool at_once = true;
};

enum class phase : u8 { idle, announced, offered, starting, misled, running, broken };

struct player : program {
    using program::program;
    phase now = phase::idle;
    u32 attach_corr = 0;
    u32 offered_in = 0;            // the event
    std::optional<std::string> wants;  // the program name that it announced; none: those its client has registered
    bool at_server = false;        // its LU
    std::map<u32, issued> waiting;  // by pend_handle
    std::set<u32> forgets;          // DEALLOCATEs that an implied forget follows
    std::vector<std::pair<talk*, u32>> talks;
};

// What a record (0) or an expedited message (1) is made of follows from where it belongs, so that the receiver knows what must
// come.
bytes make_data(const talk& t, u32 which, u32 expedited, u32 sequence);

// How the partner learns that a program, or one verb of it, has ended a conversation abnormally.
inline u16 abend_of(const talk& t) { return t.type == APPC_BASIC ? DEALLOC_ABEND_PROG : DEALLOC_ABEND; }

class simulation : public world {
public:
    explicit simulation(u32 seed);

    // Any number of events; false once something was wrong. Afterwards everybody goes, and nothing may be left.
    bool run(u32 events);
    bool leave();

    u32 events = 0;
    std::string fault;

    u8* add(client_id client, frame_kind kind, u32 path, u32 size) override;

private:
    u32 any(u32 below) { return below == 0 ? 0 : static_cast<u32>(random() % below); }
    bool once_in(u32 times) { return any(times) == 0; }
    void wrong(const std::string& what);
    void note(const player& p, const char* what, u16 opcode, const issued& verb);

    void one_event();
    void pass_time(u32 for_ms);
    void act(player& p);
    void begin(player& p);
    void take_offer(player& p);
    void allocate_one(player& p);
    void refuse_an_offer();
    void ask_or_register(player& p);
    void converse(player& p);
    void end_path(player& p, frame_kind how);
    void end_client(client_id client);
    void send_records(player& p, talk& t, u32 which);
    void send_expedited(player& p, talk& t, u32 which);
    void ends_agree(talk& t);
    char drain(talk& t, u32 which);
    void spoil(verb_bytes& message);

    template <typename Verb>
    void say(player& p, Verb verb, issued about, std::span<const u8> data = {});
    template <typename Datagram>
    void tell(client_id client, Datagram content);

    void look_at_frames();
    void take_answer(player& p, const got& frame);
    void take_conversation_answer(player& p, const issued& verb, const got& frame);
    void take_received(talk& t, u32 which, const got& frame);
    bool take_data(talk& t, u32 which, u32 expedited, std::span<const u8> came, bool stream);
    void take_lu_status(const player& p, const issued& verb, const u8* block);
    void take_offer_for(player& p, const got& frame);
    bool is_honest(const player& p) const { return p.client != VANDAL; }
    void take_ending(talk& t, u32 which, const issued& verb, u16 code);
    void give_cause(player& p, u16 code);
    void forget_path(player& p);
    void check_waiting();
    void check_counts();

    std::mt19937 random;
    bool paces;  // senders are held back soon, but not for long
    std::deque<player> players;
    std::deque<talk> talks;
    std::set<client_id> lost_clients;
    std::set<u32> lost_paths;
    std::map<client_id, std::set<std::string>> registered;
    u32 offers = 0;
    rc last;
    u64 now_ms = 0;
};

}  // namespace tessaly::node::playing
