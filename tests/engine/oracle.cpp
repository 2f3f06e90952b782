// All sequences of up to five verbs on one side of a conversation, compared with the half-duplex rules as they are written down
// here. Nothing below comes from the engine's own table, so that the two can contradict each other.
#include "tests/engine/playing.h"
#include "verbs/layout_64.h"

#include <cstring>

namespace tessaly::node::playing {
namespace {

// Plays verbs like a program, millions of them: no memory is taken, and of each answer only what the rules speak of is kept.
class quick_player : public frame_sink {
public:
    struct answer {
        rc codes;
        u16 told;  // what_rcvd, or the state
    };

    explicit quick_player(world& in) : w(in) {}

    u8* add(client_id, frame_kind, u32, u32 size) override
    {
        return size <= sizeof frames[0] ? frames[used++ % std::size(frames)] : nullptr;
    }

    template <typename Verb>
    u32 issue(const program& tp, Verb verb, std::span<const u8> data = {})
    {
        if constexpr (requires { verb.type; })
            verb.dlen = static_cast<u16>(data.size());
        const block_format& layout = find_verb(verb.opcode)->format[0];
        std::memcpy(verb.tp_id, tp.tp_id, sizeof verb.tp_id);
        std::memcpy(message.block, &verb, sizeof verb < layout.length ? sizeof verb : layout.length);
        widen_block(message.block, layout);
        message.header.dest_corr = tp.node_corr;
        message.header.src_corr = tp.handle;
        message.header.buf_len = sizeof message.header + layout.node_length;
        message.header.msg_len = message.header.buf_len + static_cast<u32>(data.size());
        message.header.kind = VERB_MESSAGE_KIND;
        message.header.code = VERB_MESSAGE_CODE;
        message.header.pend_handle = w.next_number++;
        const std::span<const u8> block{reinterpret_cast<const u8*>(&message), message.header.buf_len};
        w.node.accept({frame_kind::message, tp.client, tp.path, block, data}, *this);
        return message.header.pend_handle;
    }

    // The answer is among the last that came, or has not come.
    std::optional<answer> find(u32 pend_handle) const
    {
        for (const auto& frame : frames) {
            verb_message got;
            std::memcpy(&got, frame, sizeof got);
            appc_get_state block;
            std::memcpy(&block, got.block, sizeof block);
            if (got.header.pend_handle == pend_handle)
                return answer{{block.primary_rc, block.secondary_rc}, load<u16>(got.block, sizeof(appc_header))};
        }
        return std::nullopt;
    }

    template <typename Verb>
    answer run(const program& tp, const Verb& verb)
    {
        return find(issue(tp, verb)).value_or(answer{{0xEEEE, 0}, 0});
    }

private:
    world& w;
    verb_message message{};
    alignas(u32) u8 frames[8][512] = {};
    u32 used = 0;
};

// What the partner does so that each verb has one outcome. It does so only when the verb is allowed.
enum class partner : u8 { idle, sends, sends_and_turns, asks, asks_and_turns, asks_and_ends, confirms, sends_error };

struct rule {
    const char* verb;
    char then[7];  // the state after it, for each state before it
    partner meanwhile;
    u32 (*issue)(quick_player& play, const program& tp);
    u32 bad_state;  // secondary code of STATE_CHECK
    rc done = {};
    u32 without_sync = 0;  // PARAMETER_CHECK of a conversation without sync level
};

// The states, and in a rule the one that refuses the verb.
constexpr std::string_view STATES = "SRPCTD";  // send, receive, send pending, confirm, confirm send, confirm deallocate
constexpr u8 STATE_NUMBERS[] = {2, 3, 4, 5, 6, 7};
constexpr char OVER = '-';
constexpr char NO = '.';
constexpr rc NO_CONVERSATION{PARAMETER_CHECK, 0x02000000};

std::size_t column(char state)
{
    return STATES.find(state);
}

#define SAYS(verb) [](quick_player& play, const program& tp) { return play.issue(tp, verb); }
#define SAYS_DATA [](quick_player& play, const program& tp) { return play.issue(tp, send_data(tp.conv), as_bytes("data")); }

// clang-format off
constexpr rule rules[] = {
    // state before it, and what comes of it: "SRPCTD"; the secondary code of STATE_CHECK; the codes when it is done
    {"SEND_DATA",                "S.S...", partner::idle, SAYS_DATA, 0xF2000000},
    {"FLUSH",                    "S.S...", partner::idle, SAYS(plain(FLUSH, tp.conv)), 0x61000000},
    {"CONFIRM, confirmed",       "S.S...", partner::confirms, SAYS(confirm(tp.conv)), 0x32000000, {}, 0x31000000},
    {"CONFIRMED",                "...RS-", partner::idle, SAYS(plain(CONFIRMED, tp.conv)), 0x41000000},
    {"PREPARE_TO_RECEIVE",       "R.R...", partner::idle, SAYS(prepare_to_receive(tp.conv)), 0xA3000000},
    {"RECEIVE_IMMEDIATE",        ".R....", partner::idle,
     SAYS(receive(tp.conv, 100, 1, RECEIVE_IMMEDIATE)), 0xC1000000, {0x1400, 0}},
    {"RECEIVE_IMMEDIATE, data",  ".R....", partner::sends,
     SAYS(receive(tp.conv, 100, 1, RECEIVE_IMMEDIATE)), 0xC1000000},
    {"RECEIVE_AND_WAIT, data",   "RRR...", partner::sends, SAYS(receive(tp.conv, 100, 1)), 0xB1000000},
    {"receive data and turn",    "PPP...", partner::sends_and_turns, SAYS(receive(tp.conv, 100, 1)), 0xB1000000},
    {"REQUEST_TO_SEND",          ".R.CTD", partner::idle, SAYS(plain(REQUEST_TO_SEND, tp.conv)), 0xE1000000},
    {"SEND_ERROR",               "SSSSSS", partner::idle, SAYS(send_error(tp.conv)), 0},
    {"DEALLOCATE, flush",        "-.-...", partner::idle, SAYS(deallocate(tp.conv, 1)), 0x52000000},
    {"DEALLOCATE, confirmed",    "-.-...", partner::confirms, SAYS(deallocate(tp.conv, 2)), 0x53000000, {}, 0x51000000},
    {"DEALLOCATE, abend",        "------", partner::idle, SAYS(deallocate(tp.conv, 3)), 0},
    // From here on the partner does what it may only with a sync level.
    {"CONFIRM, error",           "R.R...", partner::sends_error, SAYS(confirm(tp.conv)), 0x32000000, {0x0E00, 0}},
    {"receive a question",       "CCC...", partner::asks, SAYS(receive(tp.conv, 100, 1)), 0xB1000000},
    {"receive question, turn",   "TTT...", partner::asks_and_turns, SAYS(receive(tp.conv, 100, 1)), 0xB1000000},
    {"receive question, end",    "DDD...", partner::asks_and_ends, SAYS(receive(tp.conv, 100, 1)), 0xB1000000},
};
// clang-format on

constexpr u32 LONGEST = 5;
constexpr u32 ALL_RULES = std::size(rules);
constexpr u32 RULES_WITHOUT_SYNC = 14;

class Oracle : public testing::TestWithParam<u8> {
protected:
    bool syncs() const { return GetParam() != APPC_SYNC_NONE; }
    u32 number_of_rules() const { return syncs() ? ALL_RULES : RULES_WITHOUT_SYNC; }

    void begin()
    {
        if (a.path == 0)
            a = start_tp(w);
        a.run(deallocate(a.conv, APPC_DEALLOC_TYPE_ABEND));
        b.close();
        w.frames.clear();
        b = announce(w, "ECHO");
        a.conv = a.run(allocate("ECHO", GetParam())).block.conv_id;
        accept(b);
    }

    // The partner reads and learns all there is; true once it has got what it reads for.
    bool partner_reads(u16 until)
    {
        for (u32 verbs = 0; verbs < 20; ++verbs) {
            const auto got = player.run(b, receive(b.conv, 100, 0, RECEIVE_IMMEDIATE));
            if (got.codes == rc{} && (got.told & until) != 0)
                return true;
            if (got.codes.primary == UNSUCCESSFUL || got.codes.primary == PARAMETER_CHECK)
                return false;
            if (got.codes.primary == STATE_CHECK && player.run(b, plain(FLUSH, b.conv)).codes == rc{})
                return (until & APPC_WR_SEND) != 0;
        }
        return false;
    }

    bool partner_acts(partner what)
    {
        const bool answers = what == partner::confirms || what == partner::sends_error;
        if (what == partner::idle)
            return true;
        if (!partner_reads(answers ? APPC_WR_CONFIRM | APPC_WR_CONFIRM_DEALLOCATE : APPC_WR_SEND))
            return false;
        switch (what) {
        case partner::idle: break;
        case partner::sends: player.issue(b, send_data(b.conv), as_bytes("data")); break;
        case partner::sends_and_turns: player.issue(b, send_data(b.conv, APPC_SEND_P_TO_R_FLUSH), as_bytes("data")); break;
        case partner::asks: player.issue(b, confirm(b.conv)); break;
        case partner::asks_and_turns: player.issue(b, prepare_to_receive(b.conv, APPC_P_TO_R_CONFIRM)); break;
        case partner::asks_and_ends: player.issue(b, deallocate(b.conv, APPC_DEALLOC_CONFIRM)); break;
        case partner::confirms: player.issue(b, plain(CONFIRMED, b.conv)); break;
        case partner::sends_error: player.issue(b, send_error(b.conv)); break;
        }
        return true;
    }

    struct outcome {
        rc codes;
        char state;
        bool allowed;
    };

    outcome predict(const rule& by, char state) const
    {
        if (state == OVER)
            return {NO_CONVERSATION, OVER, false};
        if (!syncs() && by.without_sync != 0)
            return {{PARAMETER_CHECK, by.without_sync}, state, false};
        const char then = by.then[column(state)];
        if (then == NO)
            return {{STATE_CHECK, by.bad_state}, state, false};
        return {by.done, then, true};
    }

    // Plays a verb; false when something else than the prediction came.
    bool play(const rule& by, char state, const outcome& predicted)
    {
        const bool there_already = state == 'R' && by.meanwhile == partner::sends;
        if (predicted.allowed && there_already && !partner_acts(by.meanwhile))
            return false;
        const u32 number = by.issue(player, a);
        if (predicted.allowed && !there_already && !partner_acts(by.meanwhile))
            return false;
        const auto answer = player.find(number);
        return answer && answer->codes == predicted.codes;
    }

    bool is_in(char state)
    {
        appc_get_state verb{};
        verb.opcode = GET_STATE;
        verb.conv_id = a.conv;
        const auto told = player.run(a, verb);
        return state == OVER ? told.codes == NO_CONVERSATION : told.told % 256 == STATE_NUMBERS[column(state)];
    }

    // Once the partner knows all, one side has the turn, or neither has the conversation.
    bool ends_agree(char state)
    {
        const bool partner_has_turn = partner_reads(APPC_WR_SEND);
        const rc partner = player.run(b, plain(CONFIRMED, b.conv)).codes;
        if (state == OVER)
            return partner == NO_CONVERSATION;
        return partner_has_turn == (state == 'R');
    }

    // Plays every continuation of a sequence, which the conversation has just gone through. False when it has changed since.
    bool explore(std::vector<const rule*>& played, char state)
    {
        bool unchanged = true;
        bool usable = true;
        for (u32 i = 0; i < number_of_rules() && !HasFailure(); ++i) {
            if (!usable)
                replay(played);
            const outcome predicted = predict(rules[i], state);
            played.push_back(&rules[i]);
            ++sequences;
            if (!play(rules[i], state, predicted) || !is_in(predicted.state))
                ADD_FAILURE() << "expected " << predicted.codes << ", state " << predicted.state << story(played);
            usable = !predicted.allowed;
            if (played.size() < LONGEST)
                usable = explore(played, predicted.state) && usable;
            else if (predicted.state == state)
                usable = true;  // the last verb may come after others that left the state as it was
            else if (!ends_agree(predicted.state))
                ADD_FAILURE() << "the ends disagree" << story(played);
            unchanged = unchanged && usable && !predicted.allowed;
            played.pop_back();
        }
        return unchanged;
    }

    void replay(const std::vector<const rule*>& played)
    {
        begin();
        char state = 'S';
        for (const rule* each : played) {
            const outcome predicted = predict(*each, state);
            play(*each, state, predicted);
            state = predicted.state;
        }
    }

    static std::string story(const std::vector<const rule*>& played)
    {
        std::string text = " after:";
        for (const rule* each : played)
            text += std::string("\n    ") + each->verb;
        return text;
    }

    world w;
    program a{w, 1};
    program b{w, 2};
    quick_player player{w};
    u32 sequences = 0;
};

TEST_P(Oracle, predicts_every_verb_of_every_sequence)
{
    a.path = 0;
    begin();
    std::vector<const rule*> played;
    explore(played, 'S');
    RecordProperty("sequences", static_cast<int>(sequences));
    EXPECT_EQ(sequences, syncs() ? 2'000'718u : 579'194u) << "all sequences of 18 or 14 verbs";
}

INSTANTIATE_TEST_SUITE_P(sync_level, Oracle, testing::Values(APPC_SYNC_NONE, APPC_SYNC_CONFIRM));

}  // namespace
}  // namespace tessaly::node::playing
