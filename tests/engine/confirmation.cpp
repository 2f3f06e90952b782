// Questions and their answers: every verb that asks for confirmation, and what both sides may do next.
#include "tests/engine/playing.h"

namespace tessaly::node::playing {
namespace {

using Confirmation = EngineTest;

constexpr u8 GONE = 0;

struct question {
    const char* asked_by;
    u32 (*ask)(program& tp, u32 conv);
    u16 what_rcvd;
    u8 asker_then;
    u8 partner_then;
};

u32 send_and(program& tp, u32 conv, u8 type)
{
    return tp.issue(send_data(conv, type), as_bytes("data"));
}

// clang-format off
const question questions[] = {
    {"CONFIRM",
     [](program& tp, u32 conv) { return tp.issue(confirm(conv)); },
     APPC_WR_CONFIRM, APPC_STATE_SEND, APPC_STATE_RECEIVE},
    {"PREPARE_TO_RECEIVE, confirm",
     [](program& tp, u32 conv) { return tp.issue(prepare_to_receive(conv, APPC_P_TO_R_CONFIRM)); },
     APPC_WR_CONFIRM_SEND, APPC_STATE_RECEIVE, APPC_STATE_SEND},
    {"PREPARE_TO_RECEIVE, sync level",
     [](program& tp, u32 conv) { return tp.issue(prepare_to_receive(conv, APPC_P_TO_R_SYNC_LEVEL)); },
     APPC_WR_CONFIRM_SEND, APPC_STATE_RECEIVE, APPC_STATE_SEND},
    {"DEALLOCATE, confirm",
     [](program& tp, u32 conv) { return tp.issue(deallocate(conv, APPC_DEALLOC_CONFIRM)); },
     APPC_WR_CONFIRM_DEALLOCATE, GONE, GONE},
    {"DEALLOCATE, sync level",
     [](program& tp, u32 conv) { return tp.issue(deallocate(conv, APPC_DEALLOC_SYNC_LEVEL)); },
     APPC_WR_CONFIRM_DEALLOCATE, GONE, GONE},
    {"SEND_DATA and confirm",
     [](program& tp, u32 conv) { return send_and(tp, conv, APPC_SEND_CONFIRM); },
     APPC_WR_CONFIRM, APPC_STATE_SEND, APPC_STATE_RECEIVE},
    {"SEND_DATA and turn",
     [](program& tp, u32 conv) { return send_and(tp, conv, APPC_SEND_P_TO_R_SYNC_LEVEL); },
     APPC_WR_CONFIRM_SEND, APPC_STATE_RECEIVE, APPC_STATE_SEND},
    {"SEND_DATA and end",
     [](program& tp, u32 conv) { return send_and(tp, conv, APPC_SEND_DEALLOC_SYNC_LEVEL); },
     APPC_WR_CONFIRM_DEALLOCATE, GONE, GONE},
};
// clang-format on

void expect_state(program& tp, u32 conv, u8 state)
{
    if (state == GONE)
        EXPECT_EQ(tp.codes(plain(FLUSH, conv)), (rc{PARAMETER_CHECK, APPC_SEC_BAD_CONV_ID}));
    else
        EXPECT_EQ(state_of(tp, conv), state);
}

// The receiver gets data, if there are any, and then the question.
u16 receive_question(program& tp, u32 conv)
{
    auto received = tp.run(receive(conv));
    if (received.block.what_rcvd == APPC_WR_DATA_COMPLETE) {
        EXPECT_EQ(received.text(), "data");
        received = tp.run(receive(conv));
    }
    return received.block.what_rcvd;
}

TEST_F(Confirmation, completes_the_verb_that_asked_when_the_partner_confirms)
{
    for (const question& each : questions) {
        SCOPED_TRACE(each.asked_by);
        auto [a, b, at_a, at_b] = converse(w);
        const u32 asked = each.ask(a, at_a);
        EXPECT_EQ(receive_question(b, at_b), each.what_rcvd);
        EXPECT_FALSE(a.answer<appc_header>(asked)) << "answered before the partner confirmed";
        EXPECT_EQ(b.codes(plain(CONFIRMED, at_b)), rc{});
        const auto answer = a.answer<appc_header>(asked);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->codes(), rc{});
        expect_state(a, at_a, each.asker_then);
        expect_state(b, at_b, each.partner_then);
    }
}

TEST_F(Confirmation, is_refused_by_ending_the_conversation)
{
    for (const question& each : questions) {
        SCOPED_TRACE(each.asked_by);
        auto [a, b, at_a, at_b] = converse(w);
        const u32 asked = each.ask(a, at_a);
        EXPECT_EQ(receive_question(b, at_b), each.what_rcvd);
        EXPECT_EQ(b.codes(deallocate(at_b, APPC_DEALLOC_TYPE_ABEND)), rc{});
        const auto answer = a.answer<appc_header>(asked);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->codes(), (rc{DEALLOC_ABEND, 0}));
        expect_state(a, at_a, GONE);
    }
}

TEST_F(Confirmation, with_long_locks_completes_when_the_partner_sends)
{
    auto [a, b, at_a, at_b] = converse(w);
    const u32 asked = a.issue(prepare_to_receive(at_a, APPC_P_TO_R_CONFIRM, APPC_LOCKS_LONG));
    EXPECT_EQ(b.run(receive(at_b)).block.what_rcvd, APPC_WR_CONFIRM_SEND);
    EXPECT_EQ(b.codes(plain(CONFIRMED, at_b)), rc{});
    EXPECT_FALSE(a.answer<appc_prepare_to_receive>(asked));
    EXPECT_EQ(b.codes(send_data(at_b), as_bytes("go on")), rc{});
    const auto answer = a.answer<appc_prepare_to_receive>(asked);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->codes(), rc{});
    EXPECT_EQ(a.run(receive(at_a)).text(), "go on");
}

TEST_F(Confirmation, comes_together_with_the_data_when_status_is_asked_for)
{
    auto [a, b, at_a, at_b] = converse(w);
    const u32 waiting = b.issue(receive(at_b, 100, 1));
    const u32 asked = a.issue(send_data(at_a, APPC_SEND_DEALLOC_SYNC_LEVEL), as_bytes("all"));
    const auto received = b.answer<appc_receive>(waiting);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->block.what_rcvd, APPC_WR_DATA_COMPLETE | APPC_WR_CONFIRM_DEALLOCATE);
    EXPECT_EQ(received->text(), "all");
    EXPECT_EQ(b.codes(plain(CONFIRMED, at_b)), rc{});
    EXPECT_TRUE(a.answer<appc_send_data>(asked));
}

TEST_F(Confirmation, needs_a_sync_level)
{
    auto [a, b, at_a, at_b] = converse(w, APPC_SYNC_NONE);
    EXPECT_EQ(a.codes(confirm(at_a)), (rc{PARAMETER_CHECK, APPC_SEC_CONFIRM_ON_SYNC_LEVEL_NONE}));
    EXPECT_EQ(a.codes(send_data(at_a, APPC_SEND_CONFIRM)),
              (rc{PARAMETER_CHECK, APPC_SEC_SEND_DATA_CONFIRM_ON_SYNC_LEVEL_NONE}));
    EXPECT_EQ(a.codes(prepare_to_receive(at_a, APPC_P_TO_R_CONFIRM)),
              (rc{PARAMETER_CHECK, APPC_SEC_P_TO_R_INVALID_TYPE}));
    EXPECT_EQ(a.codes(deallocate(at_a, APPC_DEALLOC_CONFIRM)), (rc{PARAMETER_CHECK, APPC_SEC_DEALLOC_BAD_TYPE}));
    EXPECT_EQ(a.codes(deallocate(at_a, APPC_DEALLOC_SYNC_LEVEL)), rc{}) << "without sync level this asks nothing";
    EXPECT_EQ(b.codes(receive(at_b)), (rc{DEALLOC_NORMAL, 0}));
}

}  // namespace
}  // namespace tessaly::node::playing
