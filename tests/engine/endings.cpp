// Conversations that end otherwise than by DEALLOCATE and CONFIRMED, and what the partner learns.
#include "tests/engine/scripts.h"

namespace tessaly::node::playing {
namespace {

using Ending = ScriptTest;

constexpr rc UNKNOWN_CONV{PARAMETER_CHECK, APPC_SEC_BAD_CONV_ID};
constexpr rc LOST{CONV_FAILURE_NO_RETRY, 0};

struct end {
    const char *how, *partner_learns;
    bool takes_waiting_verbs_along = true;  // without an answer
};

constexpr end ends[] = {
    {"end.3", "500", false}, {"cancel", "500"}, {"leave", "500"}, {"closes", "1000"}, {"gone", "1000"}, {"babbles", "1000"},
};

TEST_F(Ending, reaches_the_partner_whatever_it_does)
{
    for (const end& each : ends) {
        const std::string how = each.how, learns = std::string(" => ") + each.partner_learns;
        play("a send words | a " + how + " | b get => words | b get" + learns + " | b get => 100/2000000");
        play("b get => waits | a " + how + " | b then" + learns);
        play("a send unread | b " + how + " | a send x" + learns);
        if (each.takes_waiting_verbs_along)
            play("b get => waits | b test-post => waits | b x-wait => waits | b " + how + " | b then => waits | a get" +
                 learns);
    }
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
        EXPECT_EQ(outcome_of(a, number), rc{}) << "the DEALLOCATE itself comes first";
        const auto forget = a.answer<appc_get_type>(number);
        ASSERT_EQ(forget.has_value(), wanted);
        const appc_get_type told = forget ? forget->block : appc_get_type{};
        EXPECT_TRUE(!wanted || (told.opcode == IMPLIED_FORGET && told.conv_id == at_a && told.conv_type == APPC_FORGET_UNBIND));
    }
    program a = start_tp(w);
    EXPECT_EQ(a.codes(plain(CANCEL_CONV, 12345)), UNKNOWN_CONV);
}

TEST_F(Ending, of_one_client_leaves_the_others_alone)
{
    auto [a, b, at_a, at_b] = converse(w);
    program other = announce(w, "ECHO", 7);
    w.client_gone(9);
    w.client_gone(7);
    converse_with(a, "ECHO");
    EXPECT_TRUE(w.frames.empty()) << "the announcement went with its client";
    expect_flows(a, at_a, b, at_b);
    (void)other;
}

TEST_F(Ending, of_a_client_that_converses_with_itself_sends_it_nothing)
{
    program b = announce(w, "ECHO", 1);
    program a = start_tp(w, 1);
    const u32 conv = converse_with(a, "ECHO");
    accept(b);
    b.issue(receive(b.conv));
    a.issue(confirm(conv));
    program never_taken = announce(w, "ECHO", 1);
    w.frames.clear();
    converse_with(a, "ECHO");
    EXPECT_TRUE(w.take_ready(1, never_taken.handle));
    w.client_gone(1);
    EXPECT_TRUE(w.frames.empty());
    EXPECT_EQ(w.node.deadline_ms(), std::nullopt);
}

TEST_F(Ending, comes_when_there_is_no_memory_for_an_answer)
{
    auto [a, b, at_a, at_b] = converse(w);
    const u32 waiting = b.issue(receive(at_b));
    w.refuse_next = 1;  // b's answer, the first frame that SEND_DATA causes
    EXPECT_EQ(a.codes(send_data(at_a), as_bytes("lost")), rc{});
    EXPECT_EQ(outcome_of(b, waiting), WAITS);
    EXPECT_EQ(a.codes(send_data(at_a), as_bytes("more")), LOST);

    auto [c, d, at_c, at_d] = converse(w);
    const u32 left = d.issue(receive(at_d));
    w.refuse_next = 1;
    c.issue(plain(FLUSH, at_c));
    EXPECT_EQ(outcome_of(d, left), LOST);

    auto [e, f, at_e, at_f] = converse(w);
    appc_deallocate last = deallocate(at_e);
    last.format = 1;
    last.forget_callback = 1;
    w.refuse_next = 1;
    e.issue(last);
    EXPECT_TRUE(w.frames.empty()) << "nothing follows on a path that has lost a frame";
}

TEST_F(Ending, makes_room_for_any_number_of_conversations_to_come)
{
    auto [a, b, at_a, at_b] = converse(w);
    for (int i = 0; i < 1000; ++i) {
        program c = announce(w, "MORE", 4);
        const u32 conv = converse_with(a, "MORE");
        ASSERT_NE(conv, at_a);
        accept(c);
        ASSERT_EQ(a.codes(deallocate(conv)), rc{});
        ASSERT_EQ(c.codes(receive(c.conv)), (rc{DEALLOC_NORMAL, 0}));
        ASSERT_EQ(c.codes(tp_ended()), rc{});
        c.close();
    }
    expect_flows(a, at_a, b, at_b);
}

}  // namespace
}  // namespace tessaly::node::playing
