// Verbs that end others, and callers that wait side by side.
#include "tests/support/library_test.h"

namespace tessaly::test {

using cancelling = running_tp_test;

constexpr char not_an_allocate[] = "VAV_HDR(tmpcb->vcb)->opcode == NAP_B_ALLOCATE";

TEST_F(cancelling, CANCEL_CONV_ends_the_verbs_of_its_conversation_in_order_and_then_itself)
{
    verb& receive = issue_on(running, RECEIVE_AND_WAIT, CONV_7);
    verb& other = issue_on(running, CONFIRM, CONV_8);
    verb& of_the_tp = issue_on(running, GET_LU_STATUS, CONV_7);  // no identifier of a conversation there
    verb& test = issue_on(running, TEST_RTS, CONV_7);
    node.answers_once(CANCEL_CONV, {.primary = UNSUCCESSFUL, .secondary = 9});
    verb& cancel = issue_on(running, CANCEL_CONV, CONV_7);
    verb& behind = issue_on(running, SEND_DATA, CONV_7);
    node.deliver();
    EXPECT_EQ(completion_order, (std::vector<verb*>{&receive, &test, &cancel, &behind}));
    for (verb* each : {&receive, &test, &behind})
        EXPECT_EQ(each->codes(), rc(CANCELLED, UNTOUCHED));
    EXPECT_EQ(cancel.codes(), rc(UNSUCCESSFUL, 9)) << "with its own codes";
    EXPECT_EQ(cancel.calls[0].conv_id, CONV_7);
    EXPECT_EQ(other.codes(), PENDING);
    EXPECT_EQ(of_the_tp.codes(), PENDING);
}

TEST_F(cancelling, TP_ENDED_ends_all_verbs_of_the_tp_and_the_tp)
{
    verb& elsewhere = issue_on(start_tp(), RECEIVE_AND_WAIT, CONV_7);
    verb& receive = issue_on(running, RECEIVE_AND_WAIT, CONV_7);
    verb& of_the_tp = issue_on(running, GET_LU_STATUS);
    verb& ended = issue_on(running, TP_ENDED);
    EXPECT_EQ(issue_on(running, CONFIRM, CONV_7).codes(), rc(PARAMETER_CHECK, SEC_BAD_TP_ID)) << "it is ending";
    EXPECT_EQ(ended.codes(), PENDING);
    ended.on_call = [&] { EXPECT_EQ(node.count(TP_STARTED), 2u) << "what has arrived comes before a synchronous verb"; };
    const tp fresh = start_tp();
    EXPECT_EQ(completion_order, (std::vector<verb*>{&receive, &of_the_tp, &ended}));
    EXPECT_EQ(receive.codes(), rc(CANCELLED, UNTOUCHED));
    EXPECT_EQ(ended.codes(), rc(OK));
    EXPECT_EQ(elsewhere.codes(), PENDING);
    EXPECT_EQ(node.held().entries, 2u);
    EXPECT_EQ(node.logged(212), (log_record{'a', 0x20010009, 212, "ba", {}, {running.id}}));
    EXPECT_EQ(codes_of(fresh, TP_ENDED), rc(OK)) << "under the handle that came free";
    EXPECT_EQ(codes_of(running, TP_ENDED), rc(PARAMETER_CHECK, SEC_BAD_TP_ID));
}

TEST_F(cancelling, a_verb_that_a_routine_issues_during_the_sweep_outlives_it)
{
    verb& receive = make_on(running, RECEIVE_AND_WAIT, CONV_7);
    verb& again = make_on(running, RECEIVE_AND_WAIT, CONV_7);
    receive.on_call = [&] { issue(again); };
    issue(receive);
    node.answers_once(CANCEL_CONV);
    issue_on(running, CANCEL_CONV, CONV_7);
    node.deliver();
    EXPECT_EQ(receive.codes(), rc(CANCELLED, UNTOUCHED));
    EXPECT_EQ(again.codes(), PENDING);
    node.answer(node.last(RECEIVE_AND_WAIT));
    EXPECT_EQ(again.codes(), rc(OK));
}

TEST_F(cancelling, an_ALLOCATE_is_cancelled_without_asking_the_node)
{
    EXPECT_EQ(codes_of(running, CANCEL_CONV), rc(PARAMETER_CHECK, SEC_NO_ALLOCATE_PENDING));
    for (const bool synchronous : {false, true}) {
        verb& allocate = make_on(running, ALLOCATE, 0, 1);
        node.logs.clear();
        enter(synchronous, allocate, [&] {
            verb& cancel = issue_on(running, CANCEL_CONV);
            EXPECT_EQ(cancel.result, VAV_COMPLETE);
            EXPECT_EQ(cancel.codes(), rc(OK, UNTOUCHED));
            node.answer(node.last(ALLOCATE));
            EXPECT_EQ(node.logs.back().point, 211) << "the late answer is dropped";
        });
        EXPECT_EQ(allocate.codes(), rc(CANCELLED));
    }
    EXPECT_EQ(node.count(CANCEL_CONV), 0u);
}

TEST_F(cancelling, behind_another_verb_the_first_ALLOCATE_is_the_one)
{
    verb& confirm = issue_on(running, CONFIRM, CONV_7);
    node.expect_assertion(not_an_allocate);
    EXPECT_EQ(codes_of(running, CANCEL_CONV), rc(OK, UNTOUCHED)) << "there is none";
    verb& allocate = issue(make_on(running, ALLOCATE, 0, 1));
    node.expect_assertion(not_an_allocate);
    EXPECT_EQ(codes_of(running, CANCEL_CONV), rc(OK, UNTOUCHED));
    EXPECT_EQ(allocate.codes(), rc(CANCELLED));
    EXPECT_EQ(confirm.codes(), PENDING);
}

TEST_F(cancelling, one_synchronous_verb_a_tp_but_any_number_through_the_second_family)
{
    node.answers(FLUSH);
    for (const auto family : {APPC, APPC_C, APPC_P}) {
        node.while_asleep([&] {
            EXPECT_EQ(run(make_on(running, FLUSH, CONV_8), family).codes(), rc(TP_BUSY));
            EXPECT_EQ(issue_on(running, FLUSH, CONV_8).codes(), PENDING);
            EXPECT_EQ(run(make_on(running, FLUSH, CONV_8), appc_c1).codes(), rc(OK));
            EXPECT_EQ(run(make_on(running, FLUSH, CONV_8), family).codes(), rc(TP_BUSY)) << "the first still waits";
            node.answer(node.last(CONFIRM));
        });
        EXPECT_EQ(codes_of(running, CONFIRM, CONV_7), rc(OK));
    }
    EXPECT_EQ(codes_of(running, FLUSH, CONV_7), rc(OK)) << "afterwards the TP is free again";
}

TEST_F(cancelling, a_tp_ends_under_its_sleepers_and_the_last_one_releases_it)
{
    node.while_asleep([&] {
        EXPECT_EQ(run(make_on(running, TP_ENDED), appc_c1).codes(), rc(OK));
        EXPECT_EQ(node.held().entries, 1u) << "a caller still sleeps";
        EXPECT_EQ(codes_of(running, FLUSH, CONV_7), rc(PARAMETER_CHECK, SEC_BAD_TP_ID));
    });
    EXPECT_EQ(codes_of(running, RECEIVE_AND_WAIT, CONV_7), rc(CANCELLED, UNTOUCHED));
    EXPECT_EQ(node.held_by_tps(), 0u);
}

}  // namespace tessaly::test
