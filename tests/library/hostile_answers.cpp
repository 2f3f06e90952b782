// Messages that no sound node sends: they are dropped and logged, and what waits goes on waiting for its own answer.
#include "tests/support/library_test.h"

namespace tessaly::test {

namespace {

constexpr u32 DEST_CORR = 32, BUF_LEN = 52, MSG_LEN = 56, PEND_HANDLE = 80;

bytes with(bytes message, u32 at, u32 value)
{
    store<u32>(message.data(), at, value);
    return message;
}

bytes cut_to(u32 length, const bytes& message)
{
    bytes cut = with(with(message, BUF_LEN, length), MSG_LEN, length);
    cut.resize(length);
    return cut;
}

}  // namespace

struct hostile_answers : running_tp_test {
    // Delivers a message and expects it to be dropped with a log.
    void is_dropped(u32 path, const bytes& message, u16 point, const char* why)
    {
        node.logs.clear();
        node.sends(path, message);
        EXPECT_EQ(node.logs, (std::vector<log_record>{{'e', 0x20010000, point}})) << why;
    }
};

TEST_F(hostile_answers, that_name_nobody_and_unknown_events_are_dropped)
{
    const u32 other = start_tp().handle;
    const u32 stale = node.last(TP_STARTED).header().pend_handle;
    verb& v = issue_on(running, CONFIRM, CONV_7);
    const bytes answer = node.answer_to(node.last(CONFIRM));
    is_dropped(running.path, with(answer, DEST_CORR, 0), 210, "TP handle 0");
    is_dropped(running.path, with(answer, DEST_CORR, 0xFFFFFFFF), 210, "an unknown TP handle");
    is_dropped(running.path, with(answer, DEST_CORR, other), 211, "another TP's handle");
    is_dropped(running.path, with(answer, PEND_HANDLE, 0), 211, "pend handle 0");
    is_dropped(running.path, with(answer, PEND_HANDLE, 0xEEEEEEEE), 211, "an unknown pend handle");
    is_dropped(running.path, with(answer, PEND_HANDLE, stale), 211, "a stale pend handle");
    EXPECT_EQ(v.codes(), PENDING);
    node.sends(running.path, answer);
    EXPECT_EQ(v.codes(), rc(OK));
    is_dropped(running.path, answer, 211, "the answer once more");
    node.reports(0x0003);
    EXPECT_EQ(node.logs.back(), (log_record{'e', 0x20010000, 216}));
    ptrc[8] = 0x01;
    node.sends(running.path, answer);
    EXPECT_EQ(node.logs.back().point, 216) << "exceptions are off";
}

TEST_F(hostile_answers, that_are_too_short_for_their_verb_are_dropped)
{
    // clang-format off
    const struct { u16 opcode; u8 format; u32 shortest; } cases[] = {
        {CONFIRM, 0, 28}, {SEND_DATA, 0, 48}, {RECEIVE_AND_WAIT, 0, 56}, {DEALLOCATE, 1, 48}, {ALLOCATE, 0, 200},
        {GET_ATTRIBUTES, 1, 164}, {GET_TP_PROPERTIES, 1, 184}, {SEND_CONVERSATION, 0, 208}, {SET_TP_PROPERTIES, 0, 100},
        {TP_STARTED, 0, 112}, {RECEIVE_ALLOCATE, 1, 192},
    };
    // clang-format on
    node.stays_silent(TP_STARTED);
    node.stays_silent(SET_TP_PROPERTIES);
    node.user_name.reset();  // no SET_TP_PROPERTIES of the library's own
    for (const auto& each : cases) {
        SCOPED_TRACE(::testing::Message() << "opcode 0x" << std::hex << each.opcode);
        verb& v = issue(make_on(running, each.opcode, CONV_7, each.format));
        if (each.opcode == RECEIVE_ALLOCATE)
            conversation_ready(announced());
        const size_t datagrams = node.datagrams.size();
        const sent_verb& sent = node.last(each.opcode);
        const bytes answer = node.answer_to(sent);
        ASSERT_EQ(answer.size(), 112 + each.shortest);
        for (const u32 length : {0u, 4u, each.shortest - 1})
            is_dropped(sent.path, cut_to(112 + length, answer), 211, "short");
        EXPECT_EQ(v.codes(), PENDING);
        EXPECT_EQ(node.datagrams.size(), datagrams) << "no attach is answered";
        node.sends(sent.path, answer);
        EXPECT_EQ(v.codes(), rc(OK));
    }
}

TEST_F(hostile_answers, of_another_verb_return_what_the_applications_own_block_allows)
{
    for (const u8 opcode : {u8{GET_TP_PROPERTIES}, u8{0x15}}) {
        verb& v = issue_on(running, CONFIRM, CONV_7);
        sent_verb other = node.last(CONFIRM);
        other.message.resize(112 + 184, 0xEE);
        other.message[112] = opcode;
        other.message[115] = 1;
        node.expect_assertion("(opcode == VAV_HDR(pndcb->vcb)->opcode) || (opcode == NAP_B_SEND_CONVERSATION)");
        node.answer(other);
        EXPECT_EQ(v.completions(), 1) << "the block is 28 bytes long, and no byte more is written";
    }
}

TEST_F(hostile_answers, in_no_known_format_copy_nothing)
{
    char buffer[8] = "-------";
    verb& v = make_on(running, RECEIVE_AND_WAIT, CONV_7);
    v.as<appc_receive>().dptr = buffer;
    v.as<appc_receive>().max_len = sizeof buffer;
    v.as<appc_receive>().dlen = 5;  // left from before, not the node's
    const bytes before = issue(v).image();
    bytes answer = node.answer_to(node.last(RECEIVE_AND_WAIT), {.primary = STATE_CHECK, .data = as_bytes("hello", 5)});
    answer[115] = 2;
    node.sends(running.path, answer);
    EXPECT_EQ(v.completions(), 1);
    EXPECT_TRUE(same_bytes(v.image(), before));
    EXPECT_STREQ(buffer, "-------");
}

TEST_F(hostile_answers, an_abend_needs_no_pending_verb)
{
    verb& v = issue_on(running, CONFIRM, CONV_7);
    sent_verb abend = node.last(CONFIRM);
    abend.message[112] = 0x71;
    node.sends(running.path, with(node.answer_to(abend), PEND_HANDLE, 0x1234));
    EXPECT_EQ(v.codes(), rc(COMMS_SUBSYSTEM_ABENDED));
    EXPECT_FALSE(node.paths.at(running.path).open);
    EXPECT_EQ(node.logged(220), (log_record{'e', 0x20010003, 220, "ba", {}, {running.id}}));
    EXPECT_EQ(codes_of(running, TP_ENDED), rc(COMMS_SUBSYSTEM_ABENDED));
}

}  // namespace tessaly::test
