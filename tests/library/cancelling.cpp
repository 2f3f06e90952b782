// Verbs that end others, and callers that wait side by side.
#include "tests/support/library_test.h"

namespace tessaly::test {

class cancelling : public library_test {
protected:
    verb& started(const tp& of, u16 opcode, u32 conv_id = 0)
    {
        verb& v = make_on(of, opcode, conv_id);
        v.on_call = [this, &v] { order_.push_back(&v); };
        return issue(v);
    }

    std::vector<verb*> order_;  // of completion
};

TEST_F(cancelling, CANCEL_CONV_ends_the_verbs_of_its_conversation_in_order_and_then_itself)
{
    const tp running = start_tp();
    verb& receive = started(running, RECEIVE_AND_WAIT, CONV_7);
    verb& other = started(running, CONFIRM, CONV_8);
    verb& of_the_tp = started(running, GET_LU_STATUS, CONV_7);  // no identifier of a conversation there
    verb& test = started(running, TEST_RTS, CONV_7);
    node.answers_once(CANCEL_CONV, {.primary = UNSUCCESSFUL, .secondary = 9});
    verb& cancel = started(running, CANCEL_CONV, CONV_7);
    verb& behind = started(running, SEND_DATA, CONV_7);
    node.deliver();
    EXPECT_EQ(order_, (std::vector<verb*>{&receive, &test, &cancel, &behind}));
    for (verb* each : {&receive, &test, &behind})
        EXPECT_EQ(each->codes(), rc(CANCELLED, UNTOUCHED));
    EXPECT_EQ(cancel.codes(), rc(UNSUCCESSFUL, 9)) << "with its own codes";
    EXPECT_EQ(cancel.calls[0].conv_id, CONV_7);
    EXPECT_TRUE(other.calls.empty());
    EXPECT_TRUE(of_the_tp.calls.empty());
}

TEST_F(cancelling, TP_ENDED_ends_all_verbs_of_the_tp_and_the_tp)
{
    const tp running = start_tp();
    const tp other = start_tp();
    verb& receive = started(running, RECEIVE_AND_WAIT, CONV_7);
    verb& of_the_tp = started(running, GET_LU_STATUS);
    verb& elsewhere = started(other, RECEIVE_AND_WAIT, CONV_7);
    verb& ended = started(running, TP_ENDED);
    node.deliver();
    EXPECT_EQ(order_, (std::vector<verb*>{&receive, &of_the_tp, &ended}));
    EXPECT_EQ(receive.codes(), rc(CANCELLED, UNTOUCHED));
    EXPECT_EQ(ended.codes(), rc(OK));
    EXPECT_TRUE(elsewhere.calls.empty());
    EXPECT_EQ(node.paths.at(running.path).state, path_record::closed);
    EXPECT_EQ(node.paths.at(running.path).close_flags, 0xC000u);
    EXPECT_EQ(node.held().entries, 1u);
    ASSERT_NE(node.logged(212), nullptr);
    EXPECT_EQ(node.logged(212)->id, 0x20010009u);
    EXPECT_EQ(node.logged(212)->strings, std::vector<bytes>{running.id});
    EXPECT_EQ(run(make_on(running, TP_ENDED)).codes(), rc(PARAMETER_CHECK, SEC_BAD_TP_ID));
}

TEST_F(cancelling, a_verb_that_a_routine_issues_during_the_sweep_outlives_it)
{
    const tp running = start_tp();
    verb& receive = make_on(running, RECEIVE_AND_WAIT, CONV_7);
    verb& again = make_on(running, RECEIVE_AND_WAIT, CONV_7);
    receive.on_call = [&] { issue(again); };
    issue(receive);
    node.answers_once(CANCEL_CONV);
    issue(make_on(running, CANCEL_CONV, CONV_7));
    node.deliver();
    EXPECT_EQ(receive.calls.size(), 1u);
    EXPECT_TRUE(again.calls.empty());
    node.answer(node.last(RECEIVE_AND_WAIT));
    EXPECT_EQ(again.codes(), rc(OK));
}

TEST_F(cancelling, an_ALLOCATE_is_cancelled_without_asking_the_node)
{
    const tp running = start_tp();
    EXPECT_EQ(run(make_on(running, CANCEL_CONV)).codes(), rc(PARAMETER_CHECK, SEC_NO_ALLOCATE_PENDING));
    verb& allocate = make_on(running, ALLOCATE, 0, 1);
    issue(allocate);
    const sent_verb sent = node.last(ALLOCATE);
    verb& cancel = issue(make_on(running, CANCEL_CONV));
    EXPECT_EQ(cancel.result, VAV_COMPLETE);
    EXPECT_EQ(cancel.codes(), rc(OK, UNTOUCHED));
    EXPECT_EQ(allocate.codes(), rc(CANCELLED));
    EXPECT_EQ(allocate.calls.size(), 1u);
    EXPECT_EQ(node.count(CANCEL_CONV), 0u);
    node.answer(sent);
    EXPECT_EQ(node.logs.back().point, 211) << "the late answer is dropped";
    EXPECT_EQ(allocate.codes(), rc(CANCELLED));
}

TEST_F(cancelling, behind_another_verb_the_first_ALLOCATE_is_the_one)
{
    const tp running = start_tp();
    verb& confirm = issue(make_on(running, CONFIRM, CONV_7));
    node.expect_assertion("VAV_HDR(tmpcb->vcb)->opcode == NAP_B_ALLOCATE");
    EXPECT_EQ(run(make_on(running, CANCEL_CONV)).codes(), rc(OK, UNTOUCHED));
    EXPECT_TRUE(confirm.calls.empty());
    verb& allocate = issue(make_on(running, ALLOCATE, 0, 1));
    node.expect_assertion("VAV_HDR(tmpcb->vcb)->opcode == NAP_B_ALLOCATE");
    EXPECT_EQ(run(make_on(running, CANCEL_CONV)).codes(), rc(OK, UNTOUCHED));
    EXPECT_EQ(allocate.codes(), rc(CANCELLED));
    EXPECT_TRUE(confirm.calls.empty());
}

TEST_F(cancelling, an_answer_between_cancel_and_wake_up_is_dropped)
{
    const tp running = start_tp();
    verb& allocate = make_on(running, ALLOCATE, 0, 1);
    node.while_asleep([&] {
        issue(make_on(running, CANCEL_CONV));
        node.answer(node.last(ALLOCATE));
    });
    run(allocate);
    EXPECT_EQ(allocate.codes(), rc(CANCELLED));
    ASSERT_NE(node.logged(211), nullptr);
}

TEST_F(cancelling, one_synchronous_verb_a_tp_but_any_number_through_the_second_family)
{
    const tp running = start_tp();
    node.answers(FLUSH);
    for (const entry family : {entry::appc, entry::appc_c, entry::appc_p}) {
        node.while_asleep([&] {
            EXPECT_EQ(enter(family, make_on(running, FLUSH, CONV_8)).codes(), rc(TP_BUSY));
            EXPECT_EQ(enter(entry::appc_async, make_on(running, FLUSH, CONV_8)).result, VAV_IN_PROGRESS);
            EXPECT_EQ(enter(entry::appc_c1, make_on(running, FLUSH, CONV_8)).codes(), rc(OK));
            node.answer(node.last(CONFIRM));
        });
        EXPECT_EQ(run(make_on(running, CONFIRM, CONV_7)).codes(), rc(OK));
    }
    EXPECT_EQ(run(make_on(running, FLUSH, CONV_7)).codes(), rc(OK)) << "afterwards the TP is free again";
}

TEST_F(cancelling, a_posted_receive_does_not_make_the_tp_busy)
{
    const tp running = start_tp();
    verb& posted = make_on(running, RECEIVE_AND_POST, CONV_7);
    posted.as<appc_receive>().callback = post;
    run(posted);
    node.answers(FLUSH);
    EXPECT_EQ(run(make_on(running, FLUSH, CONV_8)).codes(), rc(OK));
    EXPECT_TRUE(posted.calls.empty());
}

TEST_F(cancelling, a_tp_ends_under_its_sleepers_and_the_last_one_releases_it)
{
    const tp running = start_tp();
    verb& ended = make_on(running, TP_ENDED);
    node.while_asleep([&] {
        enter(entry::appc_c1, ended);
        EXPECT_EQ(ended.codes(), rc(OK));
        EXPECT_EQ(node.held().entries, 1u) << "a caller still sleeps";
        EXPECT_EQ(run(make_on(running, FLUSH, CONV_7)).codes(), rc(PARAMETER_CHECK, SEC_BAD_TP_ID));
    });
    verb& receive = run(make_on(running, RECEIVE_AND_WAIT, CONV_7));
    EXPECT_EQ(receive.codes(), rc(CANCELLED, UNTOUCHED));
    EXPECT_EQ(node.held().entries, 0u);
    EXPECT_EQ(node.held().wait_objects, 0u);
}

}  // namespace tessaly::test
