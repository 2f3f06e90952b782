// Conversations that end otherwise than by DEALLOCATE and CONFIRMED, and what the partner learns.
#include "tests/engine/playing.h"

namespace tessaly::node::playing {
namespace {

using Ending = EngineTest;

struct abrupt {
    const char* how;
    void (*end)(world& w, program& tp, u32 conv);
    rc partner_learns;
};

// clang-format off
const abrupt abrupt_ends[] = {
    {"DEALLOCATE, abend",
     [](world&, program& tp, u32 conv) { EXPECT_EQ(tp.codes(deallocate(conv, APPC_DEALLOC_TYPE_ABEND)), rc{}); },
     {DEALLOC_ABEND, 0}},
    {"CANCEL_CONV", [](world&, program& tp, u32 conv) { EXPECT_EQ(tp.codes(plain(CANCEL_CONV, conv)), rc{}); },
     {DEALLOC_ABEND, 0}},
    {"TP_ENDED", [](world&, program& tp, u32) { EXPECT_EQ(tp.codes(tp_ended()), rc{}); }, {DEALLOC_ABEND, 0}},
    {"path closed", [](world&, program& tp, u32) { tp.close(); }, {CONV_FAILURE_NO_RETRY, 0}},
    {"client gone", [](world& w, program& tp, u32) { w.client_gone(tp.client); }, {CONV_FAILURE_NO_RETRY, 0}},
    {"malformed message", [](world& w, program& tp, u32 conv) {
         verb_bytes message = tp.compose(&static_cast<const appc_header&>(plain(FLUSH, conv)), {});
         message.header.msg_len += 1;
         tp.send(message);
         EXPECT_TRUE(w.take(tp.client, frame_kind::path_failed, tp.path));
     }, {CONV_FAILURE_NO_RETRY, 0}},
};
// clang-format on

TEST_F(Ending, by_the_sender_reaches_the_receiver_behind_the_data)
{
    for (const abrupt& each : abrupt_ends) {
        SCOPED_TRACE(each.how);
        auto [a, b, at_a, at_b] = converse(w);
        EXPECT_EQ(a.codes(send_data(at_a), as_bytes("last words")), rc{});
        each.end(w, a, at_a);
        EXPECT_EQ(b.run(receive(at_b)).text(), "last words");
        EXPECT_EQ(b.codes(receive(at_b)), each.partner_learns);
        EXPECT_EQ(b.codes(receive(at_b)), (rc{PARAMETER_CHECK, APPC_SEC_BAD_CONV_ID}));
    }
}

TEST_F(Ending, completes_the_verb_that_the_partner_has_waiting)
{
    for (const abrupt& each : abrupt_ends) {
        SCOPED_TRACE(each.how);
        auto [a, b, at_a, at_b] = converse(w);
        const u32 waiting = b.issue(receive(at_b));
        each.end(w, a, at_a);
        const auto answer = b.answer<appc_receive>(waiting);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->codes(), each.partner_learns);
    }
}

TEST_F(Ending, by_the_receiver_reaches_the_sender_with_its_next_verb)
{
    for (const abrupt& each : abrupt_ends) {
        SCOPED_TRACE(each.how);
        auto [a, b, at_a, at_b] = converse(w);
        EXPECT_EQ(a.codes(send_data(at_a), as_bytes("unread")), rc{});
        each.end(w, b, at_b);
        EXPECT_EQ(a.codes(send_data(at_a), as_bytes("more")), each.partner_learns);
    }
}

TEST_F(Ending, takes_a_waiting_verb_along_without_an_answer)
{
    for (const abrupt& each : {abrupt_ends[1], abrupt_ends[2], abrupt_ends[3], abrupt_ends[4]}) {
        SCOPED_TRACE(each.how);
        auto [a, b, at_a, at_b] = converse(w);
        b.issue(receive(at_b));
        each.end(w, b, at_b);
        EXPECT_EQ(a.codes(send_data(at_a), as_bytes("x")), each.partner_learns);
        EXPECT_TRUE(w.frames.empty());
    }
}

TEST_F(Ending, by_abend_cancels_the_receive_that_waits_beside_it)
{
    auto [a, b, at_a, at_b] = converse(w);
    const u32 waiting = b.issue(receive(at_b, 10, 0, RECEIVE_AND_POST));
    EXPECT_EQ(b.codes(deallocate(at_b, APPC_DEALLOC_TYPE_ABEND)), rc{});
    EXPECT_EQ(b.answer<appc_receive>(waiting)->codes(), (rc{CANCELLED, 0}));
    EXPECT_EQ(a.codes(plain(FLUSH, at_a)), (rc{DEALLOC_ABEND, 0}));
}

TEST_F(Ending, of_a_format_1_deallocate_is_followed_by_the_implied_forget_that_it_asked_for)
{
    for (const bool wanted : {false, true}) {
        auto [a, b, at_a, at_b] = converse(w);
        appc_deallocate verb = deallocate(at_a, APPC_DEALLOC_CONFIRM);
        verb.format = 1;
        verb.forget_callback = wanted;  // a flag as it travels
        const u32 number = a.issue(verb);
        EXPECT_EQ(b.run(receive(at_b)).block.what_rcvd, APPC_WR_CONFIRM_DEALLOCATE);
        EXPECT_TRUE(w.frames.empty());
        EXPECT_EQ(b.codes(plain(CONFIRMED, at_b)), rc{});
        const auto answer = a.answer<appc_deallocate>(number);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->block.opcode, DEALLOCATE);
        const auto forget = a.answer<appc_get_type>(number);
        ASSERT_EQ(forget.has_value(), wanted);
        if (wanted) {
            EXPECT_EQ(forget->block.opcode, IMPLIED_FORGET);
            EXPECT_EQ(forget->block.conv_id, at_a);
            EXPECT_EQ(forget->block.conv_type, APPC_FORGET_UNBIND);
        }
    }
}

TEST_F(Ending, of_what_does_not_exist_is_refused)
{
    program a = start_tp(w);
    EXPECT_EQ(a.codes(plain(CANCEL_CONV, 12345)), (rc{PARAMETER_CHECK, APPC_SEC_BAD_CONV_ID}));
}

TEST_F(Ending, of_one_client_leaves_the_others_alone)
{
    auto [a, b, at_a, at_b] = converse(w);
    program other = announce(w, "ECHO", 7);
    w.client_gone(9);
    w.client_gone(7);
    EXPECT_EQ(a.codes(allocate("ECHO")), rc{});
    EXPECT_TRUE(w.frames.empty()) << "the announcement went with its client";
    EXPECT_EQ(a.codes(send_data(at_a), as_bytes("x")), rc{});
    EXPECT_EQ(b.run(receive(at_b)).text(), "x");
    (void)other;
}

TEST_F(Ending, of_a_client_that_converses_with_itself_sends_it_nothing)
{
    program b = announce(w, "ECHO", 1);
    program a = start_tp(w, 1);
    const u32 conv = a.run(allocate("ECHO")).block.conv_id;
    accept(b);
    b.issue(receive(b.conv));
    a.issue(confirm(conv));
    program never_taken = announce(w, "ECHO", 1);
    w.frames.clear();
    EXPECT_EQ(a.codes(allocate("ECHO")), rc{});
    EXPECT_TRUE(w.take_ready(1, never_taken.handle));
    w.client_gone(1);
    EXPECT_TRUE(w.frames.empty());
    EXPECT_EQ(w.node.deadline_ms(), std::nullopt);
}

TEST_F(Ending, of_a_client_that_was_offered_an_attach_offers_it_to_the_next)
{
    program b = announce(w, "ECHO", 2);
    program c = announce(w, "ECHO", 3);
    program a = start_tp(w);
    EXPECT_EQ(a.codes(allocate("ECHO")), rc{});
    EXPECT_TRUE(w.take_ready(2, b.handle));
    w.client_gone(2);
    accept(c);
}

TEST_F(Ending, comes_when_there_is_no_memory_for_an_answer)
{
    auto [a, b, at_a, at_b] = converse(w);
    const u32 waiting = b.issue(receive(at_b));
    w.refuse_next = 1;  // b's answer, the first frame that SEND_DATA causes
    EXPECT_EQ(a.codes(send_data(at_a), as_bytes("lost")), rc{});
    EXPECT_FALSE(b.answer<appc_receive>(waiting));
    EXPECT_EQ(a.codes(send_data(at_a), as_bytes("more")), (rc{CONV_FAILURE_NO_RETRY, 0}));

    auto [c, d, at_c, at_d] = converse(w);
    const u32 left = d.issue(receive(at_d));
    w.refuse_next = 1;
    c.issue(plain(FLUSH, at_c));
    EXPECT_EQ(d.answer<appc_receive>(left)->codes(), (rc{CONV_FAILURE_NO_RETRY, 0}));
}

TEST_F(Ending, makes_room_for_any_number_of_conversations_to_come)
{
    auto [a, b, at_a, at_b] = converse(w);
    for (int i = 0; i < 1000; ++i) {
        program c = announce(w, "MORE", 4);
        const u32 conv = a.run(allocate("MORE")).block.conv_id;
        ASSERT_NE(conv, at_a);
        accept(c);
        ASSERT_EQ(a.codes(deallocate(conv)), rc{});
        ASSERT_EQ(c.codes(receive(c.conv)), (rc{DEALLOC_NORMAL, 0}));
        ASSERT_EQ(c.codes(tp_ended()), rc{});
        c.close();
    }
    EXPECT_EQ(a.codes(send_data(at_a), as_bytes("x")), rc{});
    EXPECT_EQ(b.run(receive(at_b)).text(), "x");
}

}  // namespace
}  // namespace tessaly::node::playing
