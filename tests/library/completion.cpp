// How verbs complete: which routine is called, with what, and what it may do.
#include "tests/support/library_test.h"

namespace tessaly::test {

struct completing : running_tp_test {
    // A receive verb whose answer brings text, into a buffer that held dashes.
    verb& receive(u16 opcode, const char* text)
    {
        verb& v = make_on(running, opcode, CONV_7);
        std::strcpy(buffer, "-------");
        v.as<appc_receive>().max_len = sizeof buffer;
        v.as<appc_receive>().dptr = buffer;
        const u16 length = static_cast<u16>(std::strlen(text));
        const auto brings = [length](appc_receive& block) { block.dlen = length; };
        node.answers_once(opcode, filled<appc_receive>(brings, as_bytes(text, length)));
        return v;
    }

    // DEALLOCATE in format 1, whose forget routine gets 0x1234.
    verb& deallocate()
    {
        verb& v = make_on(running, DEALLOCATE, CONV_7, 1);
        v.as<appc_deallocate>().forget_callback = forget;
        v.as<appc_deallocate>().forget_value = 0x1234;
        return v;
    }

    // The node's news that a conversation is forgotten, for the verb that a message carried.
    void forgets(const sent_verb& verb, u8 type)
    {
        sent_verb news = verb;
        news.message.resize(112);
        news.message.resize(112 + 28, 0);
        news.message[112] = 0x80;
        node.answer(news, {.fill = [type](u8* block) { block[0x18] = type; }});
    }

    callback told(u16 type) const { return {callback::forget, running.id, CONV_7, 0x1234, type}; }
    callback done() const { return {callback::completion, running.id, CONV_7, CORR}; }

    char buffer[8];
};

TEST_F(completing, TP_STARTED_waits_for_the_librarys_own_SET_TP_PROPERTIES_and_nobody_knows_the_tp_before)
{
    node.stays_silent(TP_STARTED);
    node.stays_silent(SET_TP_PROPERTIES);
    verb& v = issue(tp_started());
    const tp early{words({0, node.last(TP_STARTED).header().src_corr}), 0, 0};
    for (const u16 opcode : {CONFIRM, TP_ENDED}) {
        EXPECT_EQ(issue_on(early, opcode).codes(), rc(PARAMETER_CHECK, SEC_BAD_TP_ID));
        node.answer(node.last(TP_STARTED));
    }
    EXPECT_EQ(node.logs.back().point, 211) << "it had been answered already";
    EXPECT_EQ(v.codes(), PENDING);
    node.answer(node.last(SET_TP_PROPERTIES), {.primary = PARAMETER_CHECK, .secondary = 0x99});
    EXPECT_EQ(v.calls, (std::vector<callback>{{callback::completion, tp_of(v).id, 0, CORR}}));
    EXPECT_EQ(v.codes(), rc(OK)) << "whatever SET_TP_PROPERTIES returned";
    EXPECT_EQ(node.logged(226), (log_record{'e', 0x2001000D, 226, "x lx", {PARAMETER_CHECK, 0x99}}));
    EXPECT_EQ(node.count(SET_TP_PROPERTIES), 2u) << "one for each TP of this test";
}

TEST_F(completing, TP_STARTED_of_a_nameless_user_completes_at_once_and_an_applications_SET_TP_PROPERTIES_is_like_any_verb)
{
    node.user_name.reset();
    start_tp();
    EXPECT_EQ(node.count(SET_TP_PROPERTIES), 1u) << "that of the TP before";
    EXPECT_EQ(node.logged(227), (log_record{'e', 0x2001000C, 227}));
    node.answers(SET_TP_PROPERTIES, {.primary = PARAMETER_CHECK, .secondary = 0x99});
    EXPECT_EQ(codes_of(running, SET_TP_PROPERTIES), rc(PARAMETER_CHECK, 0x99));
    EXPECT_EQ(node.logged(226), log_record{});
}

TEST_F(completing, post_verbs_call_the_routine_of_their_block)
{
    node.answers(FLUSH);
    for (const u16 opcode : {RECEIVE_AND_POST, TEST_RTS_AND_POST}) {
        for (const auto entry : {APPC, appc_c1, static_cast<void (*)(void*)>(nullptr)}) {
            verb& nameless = make_on(running, opcode, CONV_7);
            EXPECT_EQ((entry != nullptr ? run(nameless, entry) : issue(nameless)).codes(),
                      entry != nullptr ? rc(PARAMETER_CHECK, SEC_NO_POST_CALLBACK) : PENDING);
            verb& v = make_on(running, opcode, CONV_7);
            store(v.block(), opcode == RECEIVE_AND_POST ? 0x28 : 0x1C, post);
            rc in_routine{};
            v.on_call = [&] { in_routine = codes_of(running, CONFIRM, CONV_7); };
            node.answers_once(opcode);
            node.answers_once(CONFIRM);
            entry != nullptr ? run(v, entry) : issue(v);
            EXPECT_TRUE(v.calls.empty()) << "it is not waited for";
            EXPECT_EQ(codes_of(running, FLUSH, CONV_8), rc(OK)) << "and does not make the TP busy";
            EXPECT_EQ(v.calls, (std::vector<callback>{{callback::post, running.id, CONV_7}}));
            EXPECT_EQ(in_routine, opcode == RECEIVE_AND_POST ? rc(OK) : rc(STATE_CHECK, SEC_IN_CALLBACK))
                << "only RECEIVE_AND_POST routines may wait";
        }
    }
}

TEST_F(completing, routines_issue_asynchronous_verbs_only)
{
    verb& allocate = issue(make_on(running, ALLOCATE, 0, 1));
    verb& first = make_on(running, CONFIRM, CONV_7);
    verb& accepted = make_on(running, FLUSH, CONV_7);
    first.on_call = [&] {
        EXPECT_EQ(codes_of(running, FLUSH, CONV_7), rc(STATE_CHECK, SEC_IN_CALLBACK));
        issue_on(running, CANCEL_CONV);  // calls the ALLOCATE's routine in here
        EXPECT_EQ(allocate.codes(), rc(CANCELLED));
        EXPECT_EQ(codes_of(running, FLUSH, CONV_7), rc(STATE_CHECK, SEC_IN_CALLBACK)) << "still inside the outer routine";
        issue(accepted);
    };
    node.answers_once(FLUSH);
    issue(first);
    node.answer(node.last(CONFIRM));
    node.deliver();
    EXPECT_EQ(accepted.codes(), rc(OK));
    node.answers_once(CONFIRM);
    EXPECT_EQ(codes_of(running, CONFIRM, CONV_7), rc(OK)) << "outside, a synchronous verb runs again";
}

TEST_F(completing, the_routine_of_a_failed_start_finds_its_tp_gone)
{
    for (const u16 opcode : {TP_STARTED, RECEIVE_ALLOCATE})
        for (const bool path_lost : {false, true}) {
            node.answers(opcode, {.primary = STATE_CHECK});
            if (path_lost)
                node.stays_silent(opcode);
            verb& v = opcode == TP_STARTED ? tp_started() : make(opcode, 1);
            if (opcode == RECEIVE_ALLOCATE)
                v.as<appc_receive_allocate>().attach_id[0] = 1;
            const bool failed = path_lost && opcode == RECEIVE_ALLOCATE;  // what the sweep leaves to be ended
            const rc refusal = failed ? rc(COMMS_SUBSYSTEM_ABENDED) : rc(PARAMETER_CHECK, SEC_BAD_TP_ID);
            v.on_call = [&] {
                const tp gone{v.calls[0].tp_id, 0, 0};
                for (const u16 issued : {CONFIRM, CANCEL_CONV})
                    EXPECT_EQ(issue_on(gone, issued).codes(), refusal) << opcode << (path_lost ? " path lost" : "");
            };
            issue(v);
            path_lost ? node.loses_path(node.sent.back().path) : node.deliver();
            EXPECT_EQ(v.completions(), 1);
            EXPECT_EQ(node.held().handles, 0u);
        }
}

TEST_F(completing, a_null_routine_makes_the_call_synchronous)
{
    node.answers(CONFIRM, {.primary = CONV_FAILURE_RETRY});
    verb& v = make_on(running, CONFIRM, CONV_7);
    for (const auto entry : {APPC_Async, appc_async1, appc_async_int}) {
        EXPECT_EQ(entry(v.block(), nullptr, 0), VAV_COMPLETE);
        EXPECT_EQ(v.codes(), rc(CONV_FAILURE_RETRY));
    }
    EXPECT_EQ(appc_c_async_version(2, v.block(), nullptr, 0), VAV_COMPLETE);
    EXPECT_EQ(node.count(CONFIRM), 4u);
}

TEST_F(completing, received_data_goes_straight_to_the_applications_buffer_and_nowhere_once_the_tp_has_ended)
{
    for (const u16 opcode : {RECEIVE_AND_WAIT, RECEIVE_IMMEDIATE, RECEIVE_AND_POST, RECEIVE_EXPEDITED_DATA}) {
        verb& v = receive(opcode, "hello");
        v.on_call = [&] { EXPECT_STREQ(buffer, "hello--") << opcode; };
        issue(v);
        node.deliver();
        EXPECT_EQ(v.codes(), rc(OK));
        EXPECT_EQ(v.as<appc_receive>().dlen, 5);
        EXPECT_EQ(v.as<appc_receive>().dptr, buffer);
    }
    run(receive(RECEIVE_AND_WAIT, "abc"));
    EXPECT_STREQ(buffer, "abc----");
    verb& v = issue(receive(RECEIVE_AND_WAIT, "ab"));
    node.before_data = [&] { stop_library(); };
    node.deliver();
    EXPECT_EQ(v.codes(), rc(COMMS_SUBSYSTEM_ABENDED));
}

TEST_F(completing, a_deallocated_conversation_is_forgotten_once)
{
    const holdings before = node.held();
    for (const bool synchronous : {false, true}) {
        verb& v = deallocate();
        node.answers_once(DEALLOCATE);
        enter(synchronous, v);
        node.deliver();
        std::vector<callback> calls = synchronous ? std::vector<callback>{} : std::vector<callback>{done()};
        EXPECT_EQ(v.calls, calls);
        EXPECT_EQ(node.held().handles, before.handles + 1) << "its record is kept";
        EXPECT_EQ(node.held().wait_objects, before.wait_objects);
        const sent_verb sent = node.last(DEALLOCATE);
        node.answer(sent);
        EXPECT_EQ(node.logs.back().point, 211) << "it waits for nothing but the news";
        forgets(sent, 1);
        forgets(sent, 1);
        calls.push_back(told(APPC_FORGET_UNBIND));
        EXPECT_EQ(v.calls, calls);
        EXPECT_EQ(node.held().handles, before.handles);
    }
}

TEST_F(completing, news_before_the_synchronous_caller_has_woken_are_delivered_once)
{
    const holdings before = node.held();
    verb& v = deallocate();
    node.while_asleep([&] {
        const sent_verb sent = node.last(DEALLOCATE);
        node.answer(sent);
        forgets(sent, 0);
        for (const bool answer : {false, true}) {
            node.logs.clear();
            answer ? node.answer(sent) : forgets(sent, 0);
            EXPECT_EQ(node.logs.back().point, 211);
        }
    });
    run(v);
    EXPECT_EQ(v.calls, std::vector<callback>{told(0)});
    EXPECT_EQ(node.held(), before);
}

TEST_F(completing, news_that_overtake_the_DEALLOCATEs_answer_are_delivered_once)
{
    verb& v = issue(deallocate());
    const sent_verb sent = node.last(DEALLOCATE);
    forgets(sent, 0);
    forgets(sent, 0);
    EXPECT_EQ(v.calls, std::vector<callback>{told(0)});
    node.answer(sent);
    forgets(sent, 0);
    EXPECT_EQ(v.calls, (std::vector<callback>{told(0), done()}));
}

TEST_F(completing, only_a_successful_format_1_DEALLOCATE_is_kept)
{
    node.answers(DEALLOCATE, {.primary = STATE_CHECK});
    run(deallocate());
    node.answers(DEALLOCATE);
    verb& format_0 = deallocate();
    format_0.header().format = 0;
    run(format_0);
    run(make_on(running, DEALLOCATE, CONV_7, 1));  // names no routine
    EXPECT_EQ(node.held().handles, 0u);
}

TEST_F(completing, a_lost_node_forgets_what_is_kept_and_the_end_of_the_tp_does_without_a_call)
{
    node.answers(DEALLOCATE);
    verb& node_lost = run(deallocate());
    stop_library();
    EXPECT_EQ(node_lost.calls, std::vector<callback>{told(APPC_FORGET_FAILURE)});
    running = start_tp();
    verb& ended = run(deallocate());
    EXPECT_EQ(codes_of(running, TP_ENDED), rc(OK));
    EXPECT_TRUE(ended.calls.empty());
    EXPECT_EQ(node.held_by_tps(), 0u);
}

TEST_F(completing, news_for_a_verb_that_keeps_no_record_are_reported_and_call_nothing)
{
    verb& v = issue_on(running, CONFIRM, CONV_7);
    node.expect_assertion("(deallocate->opcode == NAP_B_DEALLOCATE) && (deallocate->format == 1)");
    forgets(node.last(CONFIRM), 0);
    EXPECT_TRUE(v.calls.empty());
    node.answer(node.last(CONFIRM));
    EXPECT_EQ(v.calls, std::vector<callback>{done()});
}

}  // namespace tessaly::test
