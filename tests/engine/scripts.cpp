// Reads scripts, issues their verbs and writes down what becomes of them.
#include "tests/engine/scripts.h"

#include <deque>
#include <map>
#include <sstream>

namespace tessaly::node::playing {

namespace {

struct actor {
    program tp;
    u32 conv;
    u8 conv_type;
    std::deque<u32> waiting = {};
};

struct step {
    std::string who, verb, data, expected = "ok";
    int number = -1;
    u8 or_else(int otherwise) const { return static_cast<u8>(number < 0 ? otherwise : number); }
    u16 length() const { return static_cast<u16>(number < 0 ? 0xFFFF : number); }
};

template <typename Verb>
u32 issue(actor& by, Verb verb, std::string_view data = {})
{
    verb.opext = by.conv_type;
    return by.tp.issue(verb, as_bytes(data));
}

u32 issue_receive(actor& by, const step& s, u16 opcode, u8 fill, u8 rtn_status)
{
    appc_receive verb = receive(by.conv, s.length(), rtn_status, opcode);
    verb.fill = fill;
    return issue(by, verb);
}

// clang-format off
#define DOES [](actor& by, [[maybe_unused]] const step& s)
const std::map<std::string_view, u32 (*)(actor&, const step&)> verbs_by_name = {
    {"send",      DOES { return issue(by, send_data(by.conv, s.or_else(APPC_SEND_NONE)), s.data); }},
    {"flush",     DOES { return issue(by, plain(FLUSH, by.conv)); }},
    {"confirm",   DOES { return issue(by, confirm(by.conv)); }},
    {"confirmed", DOES { return issue(by, plain(CONFIRMED, by.conv)); }},
    {"turn",      DOES { return issue(by, prepare_to_receive(by.conv, s.or_else(APPC_P_TO_R_FLUSH))); }},
    {"turn-long", DOES { return issue(by, prepare_to_receive(by.conv, APPC_P_TO_R_CONFIRM, APPC_LOCKS_LONG)); }},
    {"end",       DOES { return issue(by, deallocate(by.conv, s.or_else(APPC_DEALLOC_FLUSH)), s.data); }},
    {"error",     DOES { return issue(by, send_error(by.conv, 0, s.or_else(APPC_PROG_ERROR)), s.data); }},
    {"error-out", DOES { return issue(by, send_error(by.conv, APPC_ERROR_SEND_DIRECTION)); }},
    {"get",       DOES { return issue_receive(by, s, RECEIVE_AND_WAIT, APPC_FILL_LL, 0); }},
    {"get-all",   DOES { return issue_receive(by, s, RECEIVE_AND_WAIT, APPC_FILL_LL, 1); }},
    {"look",      DOES { return issue_receive(by, s, RECEIVE_IMMEDIATE, APPC_FILL_LL, 0); }},
    {"post",      DOES { return issue_receive(by, s, RECEIVE_AND_POST, APPC_FILL_LL, 0); }},
    {"fill",      DOES { return issue_receive(by, s, RECEIVE_AND_WAIT, APPC_FILL_BUFFER, 0); }},
    {"post-fill", DOES { return issue_receive(by, s, RECEIVE_AND_POST, APPC_FILL_BUFFER, 1); }},
    {"ask",       DOES { return issue(by, plain(REQUEST_TO_SEND, by.conv)); }},
    {"test",      DOES { return issue(by, test_rts(by.conv)); }},
    {"test-post", DOES { return issue(by, test_rts(by.conv, TEST_RTS_AND_POST)); }},
    {"x-send",    DOES { return issue(by, send_expedited(by.conv), s.data); }},
    {"x-get",     DOES { return issue(by, receive_expedited(by.conv, s.length())); }},
    {"x-wait",    DOES { return issue(by, receive_expedited(by.conv, s.length(), 0)); }},
    {"get-odd",   DOES { return issue_receive(by, s, RECEIVE_AND_WAIT, 2, 0); }},
    {"look-odd",  DOES { return issue_receive(by, s, RECEIVE_IMMEDIATE, 2, 0); }},
    {"post-odd",  DOES { return issue_receive(by, s, RECEIVE_AND_POST, 2, 0); }},
    {"turn-odd",  DOES { return issue(by, prepare_to_receive(by.conv, APPC_P_TO_R_FLUSH, 2)); }},
    {"error-odd", DOES { return issue(by, send_error(by.conv, 2)); }},
    {"x-odd",     DOES { return issue(by, receive_expedited(by.conv, 9, 2)); }},
    {"other-type", DOES { actor other = by; other.conv_type ^= 1; return issue(other, plain(FLUSH, by.conv)); }},
    {"state",     DOES { return issue(by, conversation_verb<appc_get_state>(GET_STATE, by.conv, [](auto&) {})); }},
};
const std::pair<u16, const char*> statuses[] = {
    {APPC_WR_DATA_INCOMPLETE, "~"}, {APPC_WR_DATA, "="}, {APPC_WR_SEND, "<send>"}, {APPC_WR_CONFIRM, "<confirm>"},
    {APPC_WR_CONFIRM_SEND, "<confirm, send>"}, {APPC_WR_CONFIRM_DEALLOCATE, "<confirm, end>"},
};
// clang-format on

// The bytes that a text stands for on a basic conversation, and back.
std::string coded(std::string text, bool back)
{
    constexpr std::string_view letters{"_123456789C"}, bytes{"\0\1\2\3\4\5\6\7\10\11\x80", 11};
    for (char& c : text)
        if (const auto at = (back ? bytes : letters).find(c); at != std::string_view::npos)
            c = (back ? letters : bytes)[at];
    return text;
}

// The verb's own result, if it is OK. Scripts have no longer verb than a receive.
std::string result_in(const appc_receive& block, const std::string& data)
{
    switch (block.opcode) {
    case RECEIVE_AND_WAIT:
    case RECEIVE_AND_POST:
    case RECEIVE_IMMEDIATE: {
        std::string text = data;
        EXPECT_EQ(block.dlen, data.size());
        for (const auto& [bit, sign] : statuses)
            text += (block.what_rcvd & bit) != 0 ? sign : "";
        return text;
    }
    case RECEIVE_EXPEDITED_DATA: return data;
    case GET_STATE: return std::to_string(block.what_rcvd & 0xFF);
    default: return "ok";
    }
}

// Where the verb tells that the partner wants the turn, and that expedited data wait.
const std::map<u16, std::pair<u32, u32>> flags_at = {
    {RECEIVE_AND_WAIT, {28, 29}}, {RECEIVE_AND_POST, {28, 29}}, {RECEIVE_IMMEDIATE, {28, 29}}, {SEND_DATA, {24, 25}},
    {CONFIRM, {24, 25}}, {SEND_ERROR, {24, 27}}, {SEND_EXPEDITED_DATA, {24, 25}}, {RECEIVE_EXPEDITED_DATA, {25, 26}},
};

std::string description(const appc_receive& block, const std::string& data)
{
    std::ostringstream text;
    if (block.primary_rc == OK)
        text << result_in(block, data);
    else
        text << std::hex << block.primary_rc;
    if (block.secondary_rc != 0)
        text << '/' << block.secondary_rc;
    const auto* raw = reinterpret_cast<const u8*>(&block);
    if (const auto at = flags_at.find(block.opcode); at != flags_at.end())
        text << (raw[at->second.first] != 0 ? " rts" : "") << (raw[at->second.second] != 0 ? " expd" : "");
    return text.str();
}

std::string outcome(actor& of, u32 pend_handle)
{
    const auto answer = of.tp.answer<appc_receive>(pend_handle);
    if (!answer)
        return "waits";
    std::erase(of.waiting, pend_handle);
    return description(answer->block, of.conv_type == APPC_BASIC ? coded(answer->text(), true) : answer->text());
}

std::string then(actor& of)
{
    for (const u32 each : std::deque(of.waiting))
        if (const std::string came = outcome(of, each); came != "waits")
            return came;
    return "waits";
}

step read_step(std::string text)
{
    step s;
    if (const auto arrow = text.find("=> "); arrow != std::string::npos) {
        s.expected = text.substr(arrow + 3);
        text.resize(arrow);
    }
    std::istringstream words(text);
    words >> s.who >> s.verb >> s.data;
    if (const auto point = s.verb.find('.'); point != std::string::npos) {
        s.number = std::stoi(s.verb.substr(point + 1));
        s.verb.resize(point);
    }
    s.expected.resize(s.expected.find_last_not_of(' ') + 1);
    return s;
}

void play_step(actor& by, step s)
{
    if (by.conv_type == APPC_BASIC)
        s.data = coded(s.data, false);
    const auto verb = verbs_by_name.find(s.verb);
    world& in = *by.tp.w;
    if (s.verb == "later") {
        in.time(in.told_ms + s.length());
    } else if (s.verb == "due") {
        const auto deadline = in.node.deadline_ms();
        EXPECT_EQ(deadline ? std::to_string(*deadline - in.told_ms) : "never", s.expected);
    } else if (s.verb == "then") {
        EXPECT_EQ(then(by), s.expected);
    } else if (verb != verbs_by_name.end()) {
        by.waiting.push_back(verb->second(by, s));
        EXPECT_EQ(outcome(by, by.waiting.back()), s.expected);
    } else {
        ADD_FAILURE() << "no verb of scripts";
    }
}

}  // namespace

void ScriptTest::play(const std::string& script, u8 conv_type, u8 sync_level)
{
    SCOPED_TRACE(script);
    auto [a, b, at_a, at_b] = converse(w, sync_level, conv_type);
    actor actors[] = {{a, at_a, conv_type}, {b, at_b, conv_type}};
    std::istringstream steps(script);
    for (std::string text; std::getline(steps, text, '|');) {
        SCOPED_TRACE(text);
        const step s = read_step(text);
        play_step(actors[s.who == "b"], s);
    }
    EXPECT_TRUE(w.frames.empty());
    w.client_gone(a.client);
    w.client_gone(b.client);
    w.frames.clear();
}

void ScriptTest::play(std::span<const char* const> scripts, u8 conv_type, u8 sync_level)
{
    for (const char* each : scripts)
        play(std::string(each), conv_type, sync_level);
}

}  // namespace tessaly::node::playing
