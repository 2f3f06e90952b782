// How verbs complete: which routine is called, with what, and what it may do.
#include "tests/support/library_test.h"

#include <cstring>

namespace tessaly::test {

class completing : public library_test {
protected:
    verb& receive(const tp& of, u16 opcode, char* buffer, u16 room)
    {
        verb& v = make_on(of, opcode, CONV_7);
        v.as<appc_receive>().max_len = room;
        v.as<appc_receive>().dptr = buffer;
        return v;
    }

    // DEALLOCATE in format 1, whose forget routine gets 0x1234.
    verb& deallocate(const tp& of)
    {
        verb& v = make_on(of, DEALLOCATE, CONV_7, 1);
        v.as<appc_deallocate>().forget_callback = forget;
        v.as<appc_deallocate>().forget_value = 0x1234;
        return v;
    }

    // The node's news that a conversation is forgotten, for the DEALLOCATE that a message carried.
    void forgets(const sent_verb& deallocate, u8 type)
    {
        sent_verb news = deallocate;
        news.message.assign(112 + 28, 0);
        const verb_message_header header = deallocate.header();
        std::memcpy(news.message.data(), &header, sizeof header);
        news.message[112] = 0x80;
        node.answer(news, {.fill = [type](u8* block) { block[0x18] = type; }});
        node.deliver();
    }
};

struct argument_case {
    u16 opcode;
    u8 format;
    u32 conv_id;  // what the routine is told
};

TEST_F(completing, tells_the_routine_which_conversation_and_which_tp)
{
    // clang-format off
    const argument_case cases[] = {
        {ALLOCATE, 0, CONV_7}, {ALLOCATE, 1, CONV_7}, {CONFIRM, 0, CONV_8}, {CONFIRM, 1, CONV_8}, {CONFIRMED, 0, CONV_8},
        {DEALLOCATE, 0, CONV_8}, {DEALLOCATE, 1, CONV_8}, {FLUSH, 0, CONV_8}, {GET_ATTRIBUTES, 1, CONV_8},
        {SEND_DATA, 0, CONV_8}, {RECEIVE_AND_WAIT, 0, CONV_8}, {RECEIVE_AND_POST, 0, CONV_8}, {IMPLIED_FORGET, 0, CONV_8},
        {TEST_RTS_AND_POST, 1, CONV_8}, {RECEIVE_EXPEDITED_DATA, 0, CONV_8}, {GET_TP_PROPERTIES, 0, 0},
        {SET_TP_PROPERTIES, 0, 0}, {GET_LU_STATUS, 0, 0}, {SEND_CONVERSATION, 0, 0}, {TP_ENDED, 0, 0},
    };
    // clang-format on
    const tp running = start_tp();
    for (const argument_case& row : cases) {
        SCOPED_TRACE(::testing::Message() << "opcode 0x" << std::hex << row.opcode << " format " << u32{row.format});
        verb& v = make_on(running, row.opcode, CONV_8, row.format);
        node.answers_once(row.opcode);
        EXPECT_EQ(issue(v).result, VAV_IN_PROGRESS);
        EXPECT_TRUE(v.calls.empty()) << "not before the answer";
        node.deliver();
        ASSERT_EQ(v.calls.size(), 1u);
        EXPECT_EQ(v.calls[0].by, callback::completion);
        EXPECT_EQ(v.calls[0].conv_id, row.conv_id);
        EXPECT_EQ(v.calls[0].corr, CORR);
        EXPECT_EQ(v.calls[0].tp_id, running.id);
    }
}

TEST_F(completing, TP_STARTED_waits_for_the_librarys_own_SET_TP_PROPERTIES)
{
    node.stays_silent(SET_TP_PROPERTIES);
    verb& v = issue(tp_started());
    node.deliver();
    EXPECT_TRUE(v.calls.empty());
    node.answer(node.last(SET_TP_PROPERTIES), {.primary = PARAMETER_CHECK, .secondary = 0x99});
    ASSERT_EQ(v.calls.size(), 1u);
    EXPECT_EQ(v.codes(), rc(OK)) << "whatever SET_TP_PROPERTIES returned";
    EXPECT_EQ(v.calls[0].conv_id, 0u);
    EXPECT_EQ(v.calls[0].tp_id, tp_of(v).id);
    ASSERT_NE(node.logged(226), nullptr);
    EXPECT_EQ(node.logged(226)->id, 0x2001000Du);
    EXPECT_EQ(node.logged(226)->numbers, (std::vector<u32>{PARAMETER_CHECK, 0x99}));
}

TEST_F(completing, TP_STARTED_of_a_nameless_user_completes_at_once)
{
    node.user_name.reset();
    start_tp();
    EXPECT_EQ(node.count(SET_TP_PROPERTIES), 0u);
    ASSERT_NE(node.logged(227), nullptr);
    EXPECT_EQ(node.logged(227)->id, 0x2001000Cu);
}

TEST_F(completing, an_applications_own_SET_TP_PROPERTIES_is_a_verb_like_any_other)
{
    const tp running = start_tp();
    node.answers_once(SET_TP_PROPERTIES, {.primary = PARAMETER_CHECK, .secondary = 0x99});
    EXPECT_EQ(run(make_on(running, SET_TP_PROPERTIES)).codes(), rc(PARAMETER_CHECK, 0x99));
    EXPECT_EQ(node.logged(226), nullptr);
}

TEST_F(completing, post_verbs_call_the_routine_of_their_block)
{
    const tp running = start_tp();
    for (const u16 opcode : {RECEIVE_AND_POST, TEST_RTS_AND_POST}) {
        for (const entry through : {entry::appc, entry::appc_c1, entry::appc_async}) {
            verb& v = make_on(running, opcode, CONV_7);
            store(v.block(), opcode == RECEIVE_AND_POST ? 0x28 : 0x1C, post);
            u32 in_callback_refusals = 0;
            v.on_call = [&] {
                in_callback_refusals +=
                    run(make_on(running, CONFIRM, CONV_7)).codes() == rc(STATE_CHECK, SEC_IN_CALLBACK);
            };
            node.answers_once(opcode);
            node.answers_once(CONFIRM);
            enter(through, v);
            EXPECT_TRUE(v.calls.empty()) << "it is not waited for";
            node.deliver();
            ASSERT_EQ(v.calls.size(), 1u);
            EXPECT_EQ(v.calls[0].by, callback::post);
            EXPECT_EQ(v.calls[0].conv_id, CONV_7);
            EXPECT_EQ(v.calls[0].tp_id, running.id);
            EXPECT_EQ(in_callback_refusals, opcode == RECEIVE_AND_POST ? 0u : 1u)
                << "only RECEIVE_AND_POST routines may wait";
        }
    }
}

TEST_F(completing, routines_issue_asynchronous_verbs_only)
{
    const tp running = start_tp();
    verb& allocate = issue(make_on(running, ALLOCATE, 0, 1));
    verb& first = make_on(running, CONFIRM, CONV_7);
    verb& refused = make_on(running, FLUSH, CONV_7);
    verb& refused_too = make_on(running, FLUSH, CONV_7);
    verb& accepted = make_on(running, FLUSH, CONV_7);
    first.on_call = [&] {
        run(refused);
        issue(make_on(running, CANCEL_CONV));  // calls the ALLOCATE's routine in here
        EXPECT_EQ(allocate.calls.size(), 1u);
        run(refused_too);
        issue(accepted);
    };
    node.answers_once(CONFIRM);
    node.answers_once(FLUSH);
    issue(first);
    node.deliver();
    EXPECT_EQ(refused.codes(), rc(STATE_CHECK, SEC_IN_CALLBACK));
    EXPECT_EQ(refused_too.codes(), rc(STATE_CHECK, SEC_IN_CALLBACK));
    EXPECT_EQ(accepted.codes(), rc(OK));
    EXPECT_EQ(accepted.calls.size(), 1u);
    node.answers_once(CONFIRM);
    EXPECT_EQ(run(make_on(running, CONFIRM, CONV_7)).codes(), rc(OK)) << "outside, a synchronous verb runs again";
}

TEST_F(completing, the_routine_of_a_failed_start_finds_its_tp_gone)
{
    for (const u16 opcode : {TP_STARTED, RECEIVE_ALLOCATE}) {
        node.answers(opcode, {.primary = STATE_CHECK});
        verb& v = opcode == TP_STARTED ? tp_started() : make(opcode, 1);
        if (opcode == RECEIVE_ALLOCATE)
            v.as<appc_receive_allocate>().attach_id[0] = 1;
        v.on_call = [&] {
            const tp of_the_call{v.calls[0].tp_id, 0, 0};
            verb& inside = issue(make_on(of_the_call, CONFIRM, CONV_7));
            EXPECT_EQ(inside.codes(), rc(PARAMETER_CHECK, SEC_BAD_TP_ID)) << opcode;
        };
        issue(v);
        node.deliver();
        EXPECT_EQ(v.calls.size(), 1u);
        EXPECT_EQ(node.held().handles, 0u);
    }
}

TEST_F(completing, what_has_arrived_is_delivered_before_a_synchronous_verb_is_looked_at)
{
    const tp running = start_tp();
    verb& ended = make_on(running, TP_ENDED);
    ended.on_call = [&] { EXPECT_EQ(node.count(TP_STARTED), 1u); };
    issue(ended);
    start_tp();
    EXPECT_EQ(ended.calls.size(), 1u);
}

TEST_F(completing, a_null_routine_makes_the_call_synchronous)
{
    const tp running = start_tp();
    node.answers(CONFIRM, {.primary = CONV_FAILURE_RETRY});
    verb& v = make_on(running, CONFIRM, CONV_7);
    EXPECT_EQ(APPC_Async(v.block(), nullptr, 0), VAV_COMPLETE);
    EXPECT_EQ(v.codes(), rc(CONV_FAILURE_RETRY));
    EXPECT_EQ(appc_async1(v.block(), nullptr, 0), VAV_COMPLETE);
    EXPECT_EQ(appc_async_int(v.block(), nullptr, 0), VAV_COMPLETE);
    EXPECT_EQ(appc_c_async_version(2, v.block(), nullptr, 0), VAV_COMPLETE);
    EXPECT_EQ(node.count(CONFIRM), 4u);
}

TEST_F(completing, received_data_goes_straight_to_the_applications_buffer)
{
    const tp running = start_tp();
    for (const u16 opcode : {RECEIVE_AND_WAIT, RECEIVE_IMMEDIATE, RECEIVE_AND_POST, RECEIVE_EXPEDITED_DATA}) {
        char buffer[8] = "-------";
        std::string at_call;
        verb& v = receive(running, opcode, buffer, sizeof buffer);
        v.on_call = [&] { at_call = buffer; };
        node.answers_once(opcode,
                          filled<appc_receive>([](appc_receive& block) { block.dlen = 5; }, as_bytes("hello", 5)));
        issue(v);
        node.deliver();
        EXPECT_EQ(at_call, "hello--") << "opcode " << opcode;
        EXPECT_EQ(v.as<appc_receive>().dlen, 5);
        EXPECT_EQ(v.as<appc_receive>().dptr, buffer);
        EXPECT_EQ(v.calls.size(), 1u);
    }
    char buffer[8] = "-------";
    node.answers_once(RECEIVE_AND_WAIT,
                      filled<appc_receive>([](appc_receive& block) { block.dlen = 3; }, as_bytes("abc", 3)));
    run(receive(running, RECEIVE_AND_WAIT, buffer, sizeof buffer));
    EXPECT_STREQ(buffer, "abc----");
}

TEST_F(completing, a_tp_that_ends_between_an_answer_and_its_data_forgets_the_delivery)
{
    const tp running = start_tp();
    char buffer[8] = "-------";
    verb& v = receive(running, RECEIVE_AND_WAIT, buffer, sizeof buffer);
    node.answers_once(RECEIVE_AND_WAIT, filled<appc_receive>([](appc_receive& b) { b.dlen = 2; }, as_bytes("ab", 2)));
    node.before_data = [&] { stop_library(); };
    issue(v);
    node.deliver();
    EXPECT_EQ(v.codes(), rc(COMMS_SUBSYSTEM_ABENDED));
    EXPECT_EQ(v.calls.size(), 1u);
}

TEST_F(completing, a_deallocated_conversation_is_forgotten_once)
{
    const tp running = start_tp();
    for (const bool synchronous : {false, true}) {
        const holdings before = node.held();
        verb& v = deallocate(running);
        node.answers_once(DEALLOCATE);
        enter(synchronous ? entry::appc : entry::appc_async, v);
        node.deliver();
        const size_t completions = synchronous ? 0 : 1;
        ASSERT_EQ(v.calls.size(), completions);
        EXPECT_EQ(node.held().handles, before.handles + 1) << "its record is kept";
        EXPECT_EQ(node.held().wait_objects, before.wait_objects);
        const sent_verb sent = node.last(DEALLOCATE);
        node.answer(sent);
        EXPECT_EQ(node.logs.back().point, 211) << "it waits for nothing but the news";
        forgets(sent, 1);
        forgets(sent, 1);
        ASSERT_EQ(v.calls.size(), completions + 1);
        EXPECT_EQ(v.calls.back().by, callback::forget);
        EXPECT_EQ(v.calls.back().conv_id, CONV_7);
        EXPECT_EQ(v.calls.back().type, APPC_FORGET_UNBIND);
        EXPECT_EQ(v.calls.back().corr, 0x1234u);
        EXPECT_EQ(v.calls.back().tp_id, running.id);
        EXPECT_EQ(node.held().handles, before.handles);
    }
}

TEST_F(completing, news_before_the_synchronous_caller_has_woken_are_delivered_once)
{
    const tp running = start_tp();
    const holdings before = node.held();
    verb& v = deallocate(running);
    node.while_asleep([&] {
        const sent_verb sent = node.last(DEALLOCATE);
        node.answer(sent);
        forgets(sent, 0);
        forgets(sent, 0);
        EXPECT_EQ(node.logs.back().point, 211);
        node.answer(sent);
        EXPECT_EQ(node.logs.back().point, 211);
    });
    run(v);
    EXPECT_EQ(v.calls.size(), 1u);
    EXPECT_EQ(node.held(), before);
}

TEST_F(completing, only_a_successful_format_1_DEALLOCATE_is_kept)
{
    const tp running = start_tp();
    const holdings before = node.held();
    node.answers_once(DEALLOCATE, {.primary = STATE_CHECK});
    run(deallocate(running));
    node.answers_once(DEALLOCATE);
    run(make_on(running, DEALLOCATE, CONV_7, 0));
    node.answers_once(DEALLOCATE);
    run(make_on(running, DEALLOCATE, CONV_7, 1));
    EXPECT_EQ(node.held().handles, before.handles);
}

TEST_F(completing, news_that_overtake_the_DEALLOCATEs_answer_are_delivered_once)
{
    const tp running = start_tp();
    verb& v = issue(deallocate(running));
    const sent_verb sent = node.last(DEALLOCATE);
    forgets(sent, 0);
    ASSERT_EQ(v.calls.size(), 1u);
    EXPECT_EQ(v.calls[0].by, callback::forget);
    node.answer(sent);
    ASSERT_EQ(v.calls.size(), 2u);
    EXPECT_EQ(v.calls[1].by, callback::completion);
    forgets(sent, 0);
    EXPECT_EQ(v.calls.size(), 2u);
}

TEST_F(completing, a_lost_path_or_node_forgets_what_is_kept)
{
    for (const bool path_only : {true, false}) {
        const tp running = start_tp();
        node.answers_once(DEALLOCATE);
        verb& v = run(deallocate(running));
        if (path_only) {
            node.loses_path(running.path);
        } else {
            stop_library();
        }
        ASSERT_EQ(v.calls.size(), 1u);
        EXPECT_EQ(v.calls[0].type, APPC_FORGET_FAILURE);
    }
}

TEST_F(completing, the_end_of_the_tp_releases_what_is_kept_without_a_call)
{
    const tp running = start_tp();
    node.answers_once(DEALLOCATE);
    verb& v = run(deallocate(running));
    run(make_on(running, TP_ENDED));
    EXPECT_TRUE(v.calls.empty());
    EXPECT_EQ(node.held().handles, 0u);
}

TEST_F(completing, news_for_a_verb_that_keeps_no_record_are_reported_and_call_nothing)
{
    const tp running = start_tp();
    verb& v = issue(make_on(running, CONFIRM, CONV_7));
    node.expect_assertion("(deallocate->opcode == NAP_B_DEALLOCATE) && (deallocate->format == 1)");
    forgets(node.last(CONFIRM), 0);
    EXPECT_TRUE(v.calls.empty() || v.calls[0].by == callback::completion);
    node.answer(node.last(CONFIRM));
    EXPECT_EQ(v.calls.size(), 1u);
}

}  // namespace tessaly::test
