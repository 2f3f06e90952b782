// Messages that no sound node sends: they are dropped and logged, and what waits goes on waiting for its own answer.
#include "tests/support/library_test.h"

#include <cstring>

namespace tessaly::test {

namespace {

bytes with(bytes message, u32 at, u32 value)
{
    store<u32>(message.data(), at, value);
    return message;
}

}  // namespace

class hostile_answers : public library_test {
protected:
    hostile_answers() : running_(start_tp()) {}

    // Delivers a message and expects it to be dropped with a log.
    void is_dropped(bytes message, u16 point, const char* why)
    {
        const size_t before = node.logs.size();
        node.sends(running_.path, std::move(message));
        ASSERT_EQ(node.logs.size(), before + 1) << why;
        EXPECT_EQ(node.logs.back().point, point) << why;
        EXPECT_EQ(node.logs.back().id, 0x20010000u) << why;
        EXPECT_EQ(node.logs.back().kind, 'e') << why;
    }

    tp running_;
};

TEST_F(hostile_answers, that_name_nobody_are_dropped)
{
    const tp other = start_tp();
    verb& v = issue(make_on(running_, CONFIRM, CONV_7));
    const sent_verb sent = node.last(CONFIRM);
    const bytes answer = node.answer_to(sent);
    is_dropped(with(answer, 32, 0), 210, "TP handle 0");
    is_dropped(with(answer, 32, 0xFFFFFFFF), 210, "an unknown TP handle");
    is_dropped(with(answer, 32, other.handle), 211, "another TP's handle");
    is_dropped(with(answer, 80, 0), 211, "pend handle 0");
    is_dropped(with(answer, 80, sent.header().pend_handle + 1), 211, "an unknown pend handle");
    is_dropped(with(answer, 80, node.last(TP_STARTED).header().pend_handle), 211, "a stale pend handle");
    EXPECT_TRUE(v.calls.empty());
    node.sends(running_.path, answer);
    EXPECT_EQ(v.codes(), rc(OK));
    is_dropped(answer, 211, "the answer once more");
    EXPECT_EQ(v.calls.size(), 1u);
    ptrc[8] = 0x01;
    node.logs.clear();
    node.sends(running_.path, answer);
    EXPECT_TRUE(node.logs.empty()) << "exceptions are off";
}

struct short_case {
    u16 opcode;
    u8 format;
    u32 shortest;  // buf_len that is accepted
};

TEST_F(hostile_answers, that_are_too_short_for_their_verb_are_dropped)
{
    // clang-format off
    const short_case cases[] = {
        {CONFIRM, 0, 112 + 28},    {SEND_DATA, 0, 112 + 48},       {RECEIVE_AND_WAIT, 0, 112 + 56}, {DEALLOCATE, 1, 112 + 48},
        {ALLOCATE, 0, 112 + 200},  {GET_ATTRIBUTES, 1, 112 + 164}, {GET_TP_PROPERTIES, 1, 112 + 184},
        {SEND_CONVERSATION, 0, 112 + 208}, {SET_TP_PROPERTIES, 0, 112 + 100},
    };
    // clang-format on
    node.stays_silent(SET_TP_PROPERTIES);
    for (const short_case& each : cases) {
        verb& v = issue(make_on(running_, each.opcode, CONV_7, each.format));
        const bytes answer = node.answer_to(node.last(each.opcode));
        ASSERT_EQ(answer.size(), each.shortest);
        for (const u32 length : {112u, 116u, each.shortest - 1}) {
            bytes cut = with(with(answer, 52, length), 56, length);
            cut.resize(length);
            is_dropped(cut, 211, "short");
        }
        EXPECT_TRUE(v.calls.empty());
        node.sends(running_.path, answer);
        EXPECT_EQ(v.calls.size(), 1u) << "opcode " << each.opcode;
    }
}

TEST_F(hostile_answers, to_starting_verbs_are_bounded_too)
{
    node.stays_silent(TP_STARTED);
    verb& starting = issue(tp_started());
    bytes answer = node.answer_to(node.last(TP_STARTED));
    answer = with(with(answer, 52, 112 + 111), 56, 112 + 111);
    answer.resize(112 + 111);
    node.sends(node.last(TP_STARTED).path, answer);
    EXPECT_EQ(node.logs.back().point, 211);
    EXPECT_TRUE(starting.calls.empty());

    verb& waiting = issue(make(RECEIVE_ALLOCATE, 1));
    conversation_ready(announced());
    answer = node.answer_to(node.last(RECEIVE_ALLOCATE));
    answer = with(with(answer, 52, 112 + 191), 56, 112 + 191);
    answer.resize(112 + 191);
    const size_t datagrams = node.datagrams.size();
    node.sends(node.last(RECEIVE_ALLOCATE).path, answer);
    EXPECT_TRUE(waiting.calls.empty());
    EXPECT_EQ(node.datagrams.size(), datagrams) << "the attach is not answered";
}

TEST_F(hostile_answers, of_another_verb_return_what_the_applications_own_block_allows)
{
    constexpr char mismatch[] = "(opcode == VAV_HDR(pndcb->vcb)->opcode) || (opcode == NAP_B_SEND_CONVERSATION)";
    verb& v = issue(make_on(running_, CONFIRM, CONV_7));
    sent_verb longer = node.last(CONFIRM);
    longer.message.resize(112 + 184, 0xEE);
    longer.message[112] = GET_TP_PROPERTIES;
    longer.message[115] = 1;
    node.expect_assertion(mismatch);
    node.answer(longer);
    EXPECT_EQ(v.calls.size(), 1u) << "the block is 28 bytes long, and no byte more is written";

    verb& send = issue(make_on(running_, SEND_DATA, CONV_7));
    sent_verb unknown = node.last(SEND_DATA);
    unknown.message[112] = 0x15;
    node.expect_assertion(mismatch);
    node.sends(running_.path, node.answer_to(unknown));
    EXPECT_EQ(send.calls.size(), 1u);
}

TEST_F(hostile_answers, in_no_known_format_copy_nothing)
{
    verb& v = make_on(running_, RECEIVE_AND_WAIT, CONV_7);
    char buffer[8] = "-------";
    v.as<appc_receive>().dptr = buffer;
    v.as<appc_receive>().max_len = sizeof buffer;
    v.as<appc_receive>().dlen = 5;  // left from before, not the node's
    issue(v);
    bytes answer = node.answer_to(node.last(RECEIVE_AND_WAIT), {.primary = STATE_CHECK, .data = as_bytes("hello", 5)});
    answer[115] = 2;
    const bytes before = v.image();
    node.sends(running_.path, answer);
    EXPECT_EQ(v.calls.size(), 1u);
    EXPECT_TRUE(same_bytes(v.image(), before));
    EXPECT_STREQ(buffer, "-------");
}

TEST_F(hostile_answers, cannot_name_a_routine)
{
    verb& v = make_on(running_, TEST_RTS_AND_POST, CONV_7);
    v.as<appc_test_rts_and_post>().callback = post;
    run(v);
    node.answer(node.last(TEST_RTS_AND_POST), {.fill = [](u8* block) { store<u32>(block, 0x1C, 0xBADC0DE); }});
    node.deliver();
    ASSERT_EQ(v.calls.size(), 1u);
    EXPECT_EQ(v.as<appc_test_rts_and_post>().callback, post);
}

TEST_F(hostile_answers, a_second_TP_STARTED_answer_is_dropped)
{
    node.stays_silent(SET_TP_PROPERTIES);
    verb& v = issue(tp_started());
    node.deliver();
    const u32 path = node.last(TP_STARTED).path;
    node.sends(path, node.answer_to(node.last(TP_STARTED)));
    EXPECT_EQ(node.logs.back().point, 211);
    EXPECT_TRUE(v.calls.empty());
    node.answer(node.last(SET_TP_PROPERTIES));
    EXPECT_EQ(v.calls.size(), 1u);
    EXPECT_EQ(node.count(SET_TP_PROPERTIES), 2u) << "one for each TP of this test";
}

TEST_F(hostile_answers, unknown_events_are_logged)
{
    node.reports(0x0003);
    EXPECT_EQ(node.logs.back().point, 216);
    EXPECT_EQ(node.logs.back().id, 0x20010000u);
}

TEST_F(hostile_answers, an_abend_needs_no_pending_verb)
{
    verb& v = issue(make_on(running_, CONFIRM, CONV_7));
    sent_verb abend = node.last(CONFIRM);
    abend.message[112] = 0x71;
    node.sends(running_.path, with(node.answer_to(abend), 80, 0x1234));
    EXPECT_EQ(v.codes(), rc(COMMS_SUBSYSTEM_ABENDED));
    EXPECT_EQ(v.calls.size(), 1u);
    EXPECT_EQ(node.paths.at(running_.path).state, path_record::closed);
    ASSERT_NE(node.logged(220), nullptr);
    EXPECT_EQ(node.logged(220)->strings, std::vector<bytes>{running_.id});
    EXPECT_EQ(run(make_on(running_, TP_ENDED)).codes(), rc(COMMS_SUBSYSTEM_ABENDED));
}

}  // namespace tessaly::test
