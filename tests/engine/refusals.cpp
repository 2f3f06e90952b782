// What the engine does not accept: verbs in the wrong state, wrong fields, and messages that are not what they say.
#include "tests/engine/playing.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

static unsigned refuse_allocation = 0;  // the how manieth from now on

void* operator new(std::size_t size)
{
    void* const memory = refuse_allocation != 0 && --refuse_allocation == 0 ? nullptr : std::malloc(size);
    return memory != nullptr ? memory : throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace tessaly::node::playing {
namespace {

using Refusal = EngineTest;

// clang-format off
const struct {
    const char* why;
    void (*spoil)(appc_allocate& verb);
    rc codes;
} wrong_allocates[] = {
    {"basic verb",  [](auto& verb) { verb.opext = 0; },                   {PARAMETER_CHECK, APPC_SEC_BAD_CONV_TYPE}},
    {"basic type",  [](auto& verb) { verb.conv_type = APPC_BASIC; },      {PARAMETER_CHECK, APPC_SEC_BAD_CONV_TYPE}},
    {"sync level",  [](auto& verb) { verb.sync_level = 2; },              {PARAMETER_CHECK, APPC_SEC_BAD_SYNC_LEVEL}},
    {"rtn_ctl",     [](auto& verb) { verb.rtn_ctl = 3; },                 {PARAMETER_CHECK, APPC_SEC_BAD_RETURN_CONTROL}},
    {"security",    [](auto& verb) { verb.security = 3; },                {PARAMETER_CHECK, APPC_SEC_BAD_SECURITY}},
    {"partner LU",  [](auto& verb) { alias(verb.plu_alias, "NO NAME"); }, {PARAMETER_CHECK, APPC_SEC_BAD_LU_ALIAS}},
    {"no PIP data", [](auto& verb) { verb.pip_dlen = 3; },                {PARAMETER_CHECK, APPC_SEC_INVALID_DATA_SEGMENT}},
    {"no TP name",  [](auto& verb) { name(verb.tp_name, ""); },           {ALLOCATION_ERROR, APPC_SEC_TP_NAME_NOT_RECOGNIZED}},
};
// clang-format on

TEST_F(Refusal, of_wrong_fields_of_allocate_says_which)
{
    program a = start_tp(w);
    for (const auto& each : wrong_allocates) {
        appc_allocate verb = allocate("ECHO");
        each.spoil(verb);
        EXPECT_EQ(a.codes(verb), each.codes) << each.why;
    }
    EXPECT_EQ(a.codes(allocate("ECHO"), bytes(0x8000)), (rc{PARAMETER_CHECK, APPC_SEC_PIP_LEN_INCORRECT}));
}

TEST_F(Refusal, of_data_that_do_not_come_or_are_too_many_of_an_implied_forget_and_of_a_wrong_tp)
{
    auto [a, b, at_a, at_b] = converse(w);
    appc_send_data missing = send_data(at_a);
    missing.dlen = 5;
    EXPECT_EQ(a.codes(missing), (rc{PARAMETER_CHECK, APPC_SEC_INVALID_DATA_SEGMENT}));
    EXPECT_EQ(a.codes(send_expedited(at_a), bytes(87)), (rc{PARAMETER_CHECK, APPC_SEC_INVALID_DATA_SEGMENT}));
    EXPECT_EQ(a.codes(send_expedited(at_a), bytes(86)), rc{}) << "the most that there may be";
    const u32 number = a.issue(conversation_verb<appc_get_type>(IMPLIED_FORGET, at_a, [](auto&) {}));
    EXPECT_EQ(outcome_of(a, number), (rc{FUNCTION_NOT_SUPPORTED, 0}));
    a.tp_id[0] ^= 1;
    EXPECT_EQ(a.codes(plain(FLUSH, at_a)), (rc{PARAMETER_CHECK, SEC_BAD_TP_ID}));
}

struct malformation {
    const char* why;
    void (*spoil)(verb_bytes& message);
};

// clang-format off
const malformation malformations[] = {
    {"block cut", [](verb_bytes& m) { m.block.pop_back(); m.header.buf_len--; m.header.msg_len--; }},
    {"no block", [](verb_bytes& m) { m.block.clear(); m.header.buf_len = 112; m.header.msg_len = 115; }},
    {"block too long", [](verb_bytes& m) { m.block.resize(239); m.header.buf_len = 351; m.header.msg_len = 354; }},
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
         m = {m.header, bytes(112), {}};
         m.block[0] = TP_STARTED; m.block[3] = 1;
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

TEST_F(Refusal, of_a_path_for_want_of_memory_leaves_the_others_alone)
{
    program a = start_tp(w);
    bool refused = true;
    for (u32 nth = 1; refused; ++nth) {
        program b{w, 50 + nth};
        refuse_allocation = nth;
        b.open();
        refused = std::exchange(refuse_allocation, 0) == 0;
        EXPECT_EQ(w.take(b.client, frame_kind::path_failed, b.path).has_value(), refused);
        EXPECT_EQ(w.node.counts().paths, refused ? 1u : 2u);
        EXPECT_GT(nth, refused ? 0u : 2u) << "nothing was refused";
    }
    EXPECT_EQ(a.codes(tp_ended()), rc{});
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

}  // namespace
}  // namespace tessaly::node::playing
