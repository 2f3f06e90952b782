// What the engine does not accept: verbs in the wrong state, wrong fields, and messages that are not what they say.
#include "tests/engine/playing.h"

#include <cstring>
#include <functional>
#include <string>

namespace tessaly::node::playing {
namespace {

using Refusal = EngineTest;

// Brings a side into a state; result: its TP and the conversation.
struct place {
    program tp;
    u32 conv;
};

place in_send(world& w)
{
    auto [a, b, at_a, at_b] = converse(w);
    return {a, at_a};
}
place in_receive(world& w)
{
    auto [a, b, at_a, at_b] = converse(w);
    return {b, at_b};
}
place in_send_pending(world& w)
{
    auto [a, b, at_a, at_b] = converse(w);
    a.run(send_data(at_a, APPC_SEND_P_TO_R_FLUSH), as_bytes("x"));
    b.run(receive(at_b, 10, 1));
    return {b, at_b};
}
place questioned(world& w, const std::function<u32(program&, u32)>& ask)
{
    auto [a, b, at_a, at_b] = converse(w);
    ask(a, at_a);
    b.run(receive(at_b));
    return {b, at_b};
}
place in_confirm(world& w)
{
    return questioned(w, [](program& tp, u32 conv) { return tp.issue(confirm(conv)); });
}
place in_confirm_send(world& w)
{
    return questioned(w, [](program& tp, u32 conv) { return tp.issue(prepare_to_receive(conv, APPC_P_TO_R_CONFIRM)); });
}
place in_confirm_deallocate(world& w)
{
    return questioned(w, [](program& tp, u32 conv) { return tp.issue(deallocate(conv, APPC_DEALLOC_CONFIRM)); });
}
place receiving(world& w)
{
    place at = in_receive(w);
    at.tp.issue(receive(at.conv));
    return at;
}
place asking(world& w)
{
    place at = in_send(w);
    at.tp.issue(confirm(at.conv));
    return at;
}

struct situation {
    const char* name;
    char letter;
    place (*reach)(world& w);
};

// clang-format off
const situation situations[] = {
    {"send", 'S', in_send},
    {"receive", 'R', in_receive},
    {"send pending", 'P', in_send_pending},
    {"confirm", 'C', in_confirm},
    {"confirm, then send", 'T', in_confirm_send},
    {"confirm, then deallocate", 'D', in_confirm_deallocate},
    {"a receive waits", 'W', receiving},
    {"a question waits", 'Q', asking},
};
// clang-format on

struct verb_in_states {
    const char* name;
    u32 (*issue)(program& tp, u32 conv);
    const char* allowed;  // letters of situations; refused in the others
    u32 refused_with;
};

// clang-format off
const verb_in_states verbs_in_states[] = {
    {"SEND_DATA", [](program& tp, u32 conv) { return tp.issue(send_data(conv), as_bytes("x")); },
     "SP", APPC_SEC_SEND_DATA_NOT_SEND_STATE},
    {"FLUSH", [](program& tp, u32 conv) { return tp.issue(plain(FLUSH, conv)); }, "SP", APPC_SEC_FLUSH_NOT_SEND_STATE},
    {"CONFIRM", [](program& tp, u32 conv) { return tp.issue(confirm(conv)); }, "SP", APPC_SEC_CONFIRM_BAD_STATE},
    {"PREPARE_TO_RECEIVE", [](program& tp, u32 conv) { return tp.issue(prepare_to_receive(conv)); },
     "SP", APPC_SEC_P_TO_R_NOT_SEND_STATE},
    {"DEALLOCATE, flush", [](program& tp, u32 conv) { return tp.issue(deallocate(conv)); },
     "SP", APPC_SEC_DEALLOC_FLUSH_BAD_STATE},
    {"DEALLOCATE, confirm", [](program& tp, u32 conv) { return tp.issue(deallocate(conv, APPC_DEALLOC_CONFIRM)); },
     "SP", APPC_SEC_DEALLOC_CONFIRM_BAD_STATE},
    {"DEALLOCATE, abend", [](program& tp, u32 conv) { return tp.issue(deallocate(conv, APPC_DEALLOC_TYPE_ABEND)); },
     "SRPCTDWQ", 0},
    {"CONFIRMED", [](program& tp, u32 conv) { return tp.issue(plain(CONFIRMED, conv)); }, "CTD", APPC_SEC_CONFIRMED_BAD_STATE},
    {"RECEIVE_AND_WAIT", [](program& tp, u32 conv) { return tp.issue(receive(conv)); }, "SRP", APPC_SEC_RCV_AND_WAIT_BAD_STATE},
    {"RECEIVE_AND_POST", [](program& tp, u32 conv) { return tp.issue(receive(conv, 10, 0, RECEIVE_AND_POST)); },
     "SRP", APPC_SEC_RCV_AND_POST_BAD_STATE},
    {"RECEIVE_IMMEDIATE", [](program& tp, u32 conv) { return tp.issue(receive(conv, 10, 0, RECEIVE_IMMEDIATE)); },
     "R", APPC_SEC_RCV_IMMD_BAD_STATE},
    {"SEND_ERROR", [](program& tp, u32 conv) { return tp.issue(send_error(conv)); }, "SRPCTDW", APPC_SEC_SEND_ERROR_BAD_STATE},
    {"REQUEST_TO_SEND", [](program& tp, u32 conv) { return tp.issue(plain(REQUEST_TO_SEND, conv)); },
     "RCTDW", APPC_SEC_R_T_S_BAD_STATE},
};
// clang-format on

TEST_F(Refusal, of_a_verb_in_the_wrong_state_says_which_verb)
{
    for (const verb_in_states& verb : verbs_in_states)
        for (const situation& at : situations) {
            SCOPED_TRACE(std::string(verb.name) + ", " + at.name);
            auto [tp, conv] = at.reach(w);
            const auto answer = tp.answer<appc_header>(verb.issue(tp, conv));
            if (std::strchr(verb.allowed, at.letter) == nullptr) {
                ASSERT_TRUE(answer);
                EXPECT_EQ(answer->codes(), (rc{STATE_CHECK, verb.refused_with}));
            } else if (answer) {
                EXPECT_NE(answer->block.primary_rc, STATE_CHECK);
            }
            w.client_gone(1);
            w.client_gone(2);
            w.frames.clear();  // what else the situation caused is not the subject here
        }
}

TEST_F(Refusal, of_wrong_fields_of_allocate_says_which)
{
    struct {
        const char* why;
        std::function<void(appc_allocate&)> spoil;
        rc codes;
    } const cases[] = {
        {"basic",
         [](auto& verb) {
             verb.conv_type = APPC_BASIC;
             verb.opext = 0;
         },
         {PARAMETER_CHECK, APPC_SEC_BAD_CONV_TYPE}},
        {"basic verb", [](auto& verb) { verb.opext = 0; }, {PARAMETER_CHECK, APPC_SEC_BAD_CONV_TYPE}},
        {"sync level", [](auto& verb) { verb.sync_level = 2; }, {PARAMETER_CHECK, APPC_SEC_BAD_SYNC_LEVEL}},
        {"return control", [](auto& verb) { verb.rtn_ctl = 3; }, {PARAMETER_CHECK, APPC_SEC_BAD_RETURN_CONTROL}},
        {"security", [](auto& verb) { verb.security = 3; }, {PARAMETER_CHECK, APPC_SEC_BAD_SECURITY}},
        {"partner LU", [](auto& verb) { alias(verb.plu_alias, "NO NAME"); }, {PARAMETER_CHECK, APPC_SEC_BAD_LU_ALIAS}},
        {"no TP name", [](auto& verb) { name(verb.tp_name, ""); }, {ALLOCATION_ERROR, APPC_SEC_TP_NAME_NOT_RECOGNIZED}},
    };
    program a = start_tp(w);
    for (const auto& each : cases) {
        appc_allocate verb = allocate("ECHO");
        each.spoil(verb);
        EXPECT_EQ(a.codes(verb), each.codes) << each.why;
    }
    appc_allocate pip = allocate("ECHO");
    pip.pip_dlen = 3;
    EXPECT_EQ(a.codes(pip, as_bytes("pip")), (rc{ALLOCATION_ERROR, APPC_SEC_PIP_NOT_ALLOWED}));
}

TEST_F(Refusal, of_wrong_fields_of_conversation_verbs_says_which)
{
    auto [tp, conv] = in_send(w);
    appc_send_data basic = send_data(conv);
    basic.opext = 0;
    EXPECT_EQ(tp.codes(basic, as_bytes("x")), (rc{PARAMETER_CHECK, APPC_SEC_BAD_CONV_TYPE}));
    EXPECT_EQ(tp.codes(send_data(conv, 8)), (rc{PARAMETER_CHECK, APPC_SEC_SEND_DATA_INVALID_TYPE}));
    EXPECT_EQ(tp.codes(prepare_to_receive(conv, 3)), (rc{PARAMETER_CHECK, APPC_SEC_P_TO_R_INVALID_TYPE}));
    EXPECT_EQ(tp.codes(deallocate(conv, APPC_DEALLOC_TYPE_ABEND_SVC)),
              (rc{PARAMETER_CHECK, APPC_SEC_DEALLOC_BAD_TYPE}));
    EXPECT_EQ(tp.codes(send_error(conv, 2)), (rc{PARAMETER_CHECK, APPC_SEC_SEND_ERROR_BAD_TYPE}));
    appc_send_data no_buffer = send_data(conv);
    no_buffer.dlen = 5;
    EXPECT_EQ(tp.codes(no_buffer), (rc{PARAMETER_CHECK, APPC_SEC_INVALID_DATA_SEGMENT}));
    EXPECT_EQ(state_of(tp, conv), APPC_STATE_SEND) << "none of them changed anything";
    tp.tp_id[0] ^= 1;
    EXPECT_EQ(tp.codes(plain(FLUSH, conv)), (rc{PARAMETER_CHECK, SEC_BAD_TP_ID}));
}

TEST_F(Refusal, of_verbs_that_are_not_there_yet_is_honest)
{
    program a = start_tp(w);
    for (const u16 opcode :
         {SEND_CONVERSATION, SEND_EXPEDITED_DATA, RECEIVE_EXPEDITED_DATA, TEST_RTS_AND_POST, GET_LU_STATUS}) {
        appc_send_conversation verb{};  // the longest of them
        verb.opcode = opcode;
        EXPECT_EQ(a.codes(verb), (rc{FUNCTION_NOT_SUPPORTED, 0})) << opcode;
    }
}

struct malformation {
    const char* why;
    void (*spoil)(verb_bytes& message);
};

// clang-format off
const malformation malformations[] = {
    {"block cut", [](verb_bytes& m) { m.block.pop_back(); m.header.buf_len--; m.header.msg_len--; }},
    {"no block", [](verb_bytes& m) { m.block.clear(); m.header.buf_len = 112; m.header.msg_len = 115; }},
    {"block longer than any message", [](verb_bytes& m) {
         m.block.resize(239);
         m.header.buf_len = 351;
         m.header.msg_len = 354;
     }},
    {"buf_len too small", [](verb_bytes& m) { m.header.buf_len--; }},
    {"buf_len beyond the block", [](verb_bytes& m) { m.header.buf_len += 3; }},
    {"msg_len too large", [](verb_bytes& m) { m.header.msg_len++; }},
    {"msg_len without the data", [](verb_bytes& m) { m.header.msg_len = m.header.buf_len; }},
    {"less data than the block says", [](verb_bytes& m) { m.data.pop_back(); m.header.msg_len--; }},
    {"more data than the block says", [](verb_bytes& m) { m.data.push_back(0); m.header.msg_len++; }},
    {"no verb", [](verb_bytes& m) { m.block[0] = 0x15; }},
    {"a verb that never travels", [](verb_bytes& m) { m.block[0] = 0x03; m.block[1] = 0xF1; }},
    {"format 2", [](verb_bytes& m) { m.block[3] = 2; }},
    {"message kind", [](verb_bytes& m) { m.header.kind = 11; }},
    {"message code", [](verb_bytes& m) { m.header.code = 0; }},
    {"another TP's correlator", [](verb_bytes& m) { m.header.dest_corr += 1; }},
    {"another sender", [](verb_bytes& m) { m.header.src_corr += 1; }},
    {"a second start on the path", [](verb_bytes& m) {
         m.block.assign(112, 0);
         m.block[0] = TP_STARTED;
         m.block[3] = 1;
         m.data.clear();
         m.header.buf_len = m.header.msg_len = 224;
     }},
};
// clang-format on

TEST_F(Refusal, of_a_malformed_message_fails_its_path_and_no_other)
{
    for (const malformation& each : malformations) {
        SCOPED_TRACE(each.why);
        auto [a, b, at_a, at_b] = converse(w);
        const appc_send_data verb = send_data(at_a);
        verb_bytes message = a.compose(&verb, as_bytes("abc"));
        each.spoil(message);
        a.send(message);
        EXPECT_TRUE(w.take(a.client, frame_kind::path_failed, a.path));
        a.send(a.compose(&verb, as_bytes("abc")));
        EXPECT_TRUE(w.frames.empty()) << "what still comes on a failed path is ignored";
        EXPECT_EQ(b.codes(receive(at_b)), (rc{CONV_FAILURE_NO_RETRY, 0}));
    }
}

TEST_F(Refusal, of_a_message_without_a_header_or_path)
{
    program a = start_tp(w);
    const bytes short_message(111);
    w.feed({.kind = frame_kind::message, .client = 1, .path = a.path, .block = short_message});
    EXPECT_TRUE(w.take(1, frame_kind::path_failed, a.path));
    w.feed({.kind = frame_kind::message, .client = 1, .path = 9999});
    EXPECT_TRUE(w.take(1, frame_kind::path_failed, 9999));

    program b = start_tp(w);
    program stranger = b;
    stranger.client = 5;
    stranger.send(stranger.compose(&static_cast<const appc_tp_ended&>(tp_ended()), {}));
    EXPECT_TRUE(w.take(5, frame_kind::path_failed, b.path));
    EXPECT_EQ(b.codes(tp_ended()), rc{}) << "another client's path of the same number is not this one";
}

TEST_F(Refusal, of_malformed_datagrams_is_silent)
{
    program a = start_tp(w);
    announce_datagram datagram{};
    datagram.header = {sizeof datagram, DATAGRAM_ANNOUNCE};
    datagram.src_corr = 77;
    bytes raw(sizeof datagram);
    std::memcpy(raw.data(), &datagram, sizeof datagram);
    for (const std::size_t size : {0u, 1u, 3u, 4u, 99u})
        w.feed({.kind = frame_kind::datagram, .client = 2, .block = {raw.data(), size}});
    raw[0] = 99;
    w.feed({.kind = frame_kind::datagram, .client = 2, .block = raw});
    raw[0] = 100;
    raw[2] = 0x77;
    w.feed({.kind = frame_kind::datagram, .client = 2, .block = raw});
    datagram.header.type = DATAGRAM_ANNOUNCE;
    datagram.tp_name.length = 65;
    w.datagram(2, datagram);
    EXPECT_EQ(a.codes(allocate("ECHO")), rc{});
    EXPECT_TRUE(w.frames.empty()) << "none of them announced anybody";
}

}  // namespace
}  // namespace tessaly::node::playing
