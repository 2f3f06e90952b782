// SEND_ERROR on either side: what is dropped, who has the turn, and which verb tells the partner.
#include "tests/engine/playing.h"

namespace tessaly::node::playing {
namespace {

using Errors = EngineTest;

constexpr rc PURGED{PROG_ERROR_PURGING, 0};
constexpr rc NOT_TRUNCATED{PROG_ERROR_NO_TRUNC, 0};

TEST_F(Errors, of_the_sender_come_in_their_place_among_the_records)
{
    auto [a, b, at_a, at_b] = converse(w);
    a.run(send_data(at_a), as_bytes("before"));
    EXPECT_EQ(a.codes(send_error(at_a)), rc{});
    a.run(send_data(at_a), as_bytes("after"));
    EXPECT_EQ(b.run(receive(at_b)).text(), "before");
    const auto told = b.run(receive(at_b));
    EXPECT_EQ(told.codes(), NOT_TRUNCATED);
    EXPECT_EQ(told.block.dlen, 0);
    EXPECT_EQ(b.run(receive(at_b)).text(), "after");

    const u32 waiting = b.issue(receive(at_b));
    EXPECT_EQ(a.codes(send_error(at_a)), rc{});
    EXPECT_EQ(b.answer<appc_receive>(waiting)->codes(), NOT_TRUNCATED);
    EXPECT_EQ(state_of(b, at_b), APPC_STATE_RECEIVE);
}

TEST_F(Errors, of_the_receiver_purge_what_was_sent_and_take_the_turn)
{
    auto [a, b, at_a, at_b] = converse(w);
    a.run(send_data(at_a), as_bytes("never read"));
    EXPECT_EQ(b.codes(send_error(at_b)), rc{});
    EXPECT_EQ(state_of(b, at_b), APPC_STATE_SEND);
    EXPECT_EQ(b.codes(send_error(at_b)), rc{}) << "once more, now as the sender";
    EXPECT_EQ(b.codes(send_data(at_b), as_bytes("why")), rc{});
    EXPECT_EQ(a.codes(send_data(at_a), as_bytes("more")), PURGED);
    EXPECT_EQ(a.codes(send_data(at_a), as_bytes("more")), (rc{STATE_CHECK, APPC_SEC_SEND_DATA_NOT_SEND_STATE}));
    EXPECT_EQ(a.codes(receive(at_a)), NOT_TRUNCATED);
    EXPECT_EQ(a.run(receive(at_a)).text(), "why");
    EXPECT_EQ(b.codes(prepare_to_receive(at_b)), rc{});
    EXPECT_EQ(a.run(receive(at_a)).block.what_rcvd, APPC_WR_SEND);
    EXPECT_EQ(a.codes(send_data(at_a), as_bytes("again")), rc{});
    EXPECT_EQ(b.run(receive(at_b)).text(), "again");
}

TEST_F(Errors, answer_a_question_in_the_negative_and_the_conversation_goes_on)
{
    auto [a, b, at_a, at_b] = converse(w);
    for (const bool ends : {false, true}) {
        const u32 asked = ends ? a.issue(deallocate(at_a, APPC_DEALLOC_CONFIRM)) : a.issue(confirm(at_a));
        b.run(receive(at_b));
        EXPECT_EQ(b.codes(send_error(at_b)), rc{});
        EXPECT_EQ(a.answer<appc_header>(asked)->codes(), PURGED);
        EXPECT_EQ(state_of(a, at_a), APPC_STATE_RECEIVE);
        EXPECT_EQ(b.codes(prepare_to_receive(at_b)), rc{});
        EXPECT_EQ(a.run(receive(at_a)).block.what_rcvd, APPC_WR_SEND);
    }
}

TEST_F(Errors, after_data_and_turn_say_which_direction_they_concern)
{
    for (const bool received : {true, false}) {
        auto [a, b, at_a, at_b] = converse(w);
        a.run(send_data(at_a, APPC_SEND_P_TO_R_FLUSH), as_bytes("x"));
        EXPECT_EQ(b.run(receive(at_b, 10, 1)).block.what_rcvd, APPC_WR_DATA_COMPLETE | APPC_WR_SEND);
        EXPECT_EQ(b.codes(send_error(at_b, received ? APPC_ERROR_RECEIVE_DIRECTION : APPC_ERROR_SEND_DIRECTION)), rc{});
        EXPECT_EQ(a.codes(receive(at_a)), received ? PURGED : NOT_TRUNCATED);
    }
}

TEST_F(Errors, meet_the_end_of_the_conversation)
{
    auto [a, b, at_a, at_b] = converse(w);
    a.run(send_data(at_a), as_bytes("x"));
    a.run(deallocate(at_a));
    EXPECT_EQ(b.codes(send_error(at_b)), (rc{DEALLOC_NORMAL, 0}));

    auto [c, d, at_c, at_d] = converse(w);
    EXPECT_EQ(d.codes(send_error(at_d)), rc{});
    EXPECT_EQ(d.codes(deallocate(at_d)), rc{});
    EXPECT_EQ(c.codes(confirm(at_c)), PURGED);
    EXPECT_EQ(c.codes(receive(at_c)), (rc{DEALLOC_NORMAL, 0}));
}

}  // namespace
}  // namespace tessaly::node::playing
