// Who waits for what, how long records live, and what callbacks may do meanwhile.
#include "tests/tp_server/serving.h"

#include "common/runtime_guards.h"
#include "vtpsrv/vtpsmain_dispatch.h"

namespace tessaly::test {

namespace {

constexpr rc BAD_HANDLE(PARAMETER_CHECK, SEC_BAD_SERVER_HANDLE), ABENDED(COMMS_SUBSYSTEM_ABENDED), BUSY(TPS_SERVER_BUSY);

}  // namespace

class serving : public serving_test {
public:
    // A synchronous verb during whose sleep something happens.
    verb& sleep_through(u32 on, const std::function<void()>& happening)
    {
        verb& sleeper = make(NAP_REGISTER_TP, on);
        node.while_asleep([this, happening] {
            sleeping_for = correlator();
            const u32 own = sleeping_for;
            happening();
            node.while_asleep([this, own] { answers_update(0, 1, own); });  // should nothing else have woken it
        });
        wait_for(sleeper);
        node.steps.clear();
        return sleeper;
    }
    verb& unregister(u32 which) { return start(NAP_UNREGISTER_TP_SERVER, which); }

    u32 sleeping_for = 0;
    const u32 server = register_server();
};

TEST_F(serving, runs_one_synchronous_verb_at_a_time)
{
    const u32 other = register_server();
    verb& sleeper = sleep_through(server, [&] {
        for (u16 opcode = NAP_UNREGISTER_TP_SERVER; opcode <= NAP_APPL_FAILED; ++opcode)
            EXPECT_EQ(wait_for(make(opcode, server)).codes(), BUSY);
        EXPECT_EQ(start(NAP_START_APPL_ERR, server).codes(), rc(OK));
        EXPECT_EQ(wait_for(make(NAP_START_APPL_ERR, other)).codes(), rc(OK));
        EXPECT_EQ(wait_for(make(NAP_REGISTER_TP_SERVER)).codes(), rc(OK));
        answers_update(11, 0, sleeping_for);
        answers_update(0, 0x5678, sleeping_for);  // the sleeper has not woken yet
        EXPECT_EQ(node.last_result, NODE_RESULT_DONE);
    });
    EXPECT_EQ(sleeper.codes(), rc(STATE_CHECK, SEC_TP_NOT_DEFINED));
    EXPECT_EQ(wait_for(make(NAP_START_APPL_ERR, server)).codes(), rc(OK));
}

TEST_F(serving, reports_a_wake_up_for_nobody)
{
    const process_lock lock;
    node.expect_assertion("FALSE");
    u8 id[8] = {};
    tps_sync_callback(nullptr, id, 0, 99);
    EXPECT_EQ(node.broken[0].module, "vtpsmain");
    EXPECT_EQ(node.broken[0].line, 127u);
}

TEST_F(serving, hands_on_start_requests_and_changes_of_TPs)
{
    const u32 told = register_server(1);
    register_server();
    asks_to_start(server);
    EXPECT_EQ(node.last_result, NODE_RESULT_FREED);
    reports_file_status();
    EXPECT_EQ(node.last_result, NODE_RESULT_FREED);
    EXPECT_EQ(server_calls, (std::vector<server_call>{{1, words({START_1, START_2}), START_VALUE}, {2, {}, told}}));
}

TEST_F(serving, ends_for_one_server_and_completes_its_verbs)
{
    const u32 other = register_server();
    verb &update = start(NAP_REGISTER_TP, server), &query = start_query(server), &others = start_query(other);
    update.on_call = [&] { EXPECT_EQ(unregister(server).codes(), BAD_HANDLE); };
    const size_t users = node.users.size();
    EXPECT_EQ(unregister(server).codes(), rc(OK));
    EXPECT_EQ(node.users.size(), users - 1);
    EXPECT_EQ(completion_order, (std::vector{&update, &query}));
    EXPECT_EQ(update.codes(), ABENDED);
    EXPECT_EQ(others.codes(), PENDING);
    EXPECT_EQ(wait_for(make(NAP_UNREGISTER_TP, server)).codes(), BAD_HANDLE);
    asks_to_start(server);
    EXPECT_TRUE(server_calls.empty());
    answers_query({}, 0, 3);
    EXPECT_EQ(others.codes(), rc(OK));
    EXPECT_EQ(wait_for(make(NAP_UNREGISTER_TP_SERVER, other)).codes(), rc(OK));
    EXPECT_EQ(node.held().path_users + node.held().wait_objects + node.held().entries, 0u);
}

TEST_F(serving, ends_while_its_caller_sleeps)
{
    size_t waiting = 0;
    verb& sleeper = sleep_through(server, [&] {
        EXPECT_EQ(unregister(server).codes(), rc(OK));
        EXPECT_EQ(unregister(server).codes(), BAD_HANDLE);
        waiting = node.held().wait_objects;  // the record lives on
    });
    EXPECT_EQ(sleeper.codes(), ABENDED);
    EXPECT_EQ(waiting, 1u);
    EXPECT_EQ(node.held().wait_objects + node.held().entries, 0u);
}

TEST_F(serving, ends_with_the_node_and_begins_anew)
{
    const u32 other = register_server();
    verb &first = start(NAP_REGISTER_TP, server), &second = start_query(other, 10), &third = start(NAP_START_APPL_OK, other);
    first.on_call = [&] {
        EXPECT_EQ(tps_main_cb->state, TPS_STATE_TERMINATING);
        EXPECT_EQ(start(NAP_START_APPL_ERR, server).codes(), ABENDED);
        EXPECT_EQ(wait_for(make(NAP_REGISTER_TP_SERVER)).codes(), ABENDED);  // and leaves the rest to the sweep
        node.interrupts_with({NODE_EVENT_TERMINATED, 0, {}});
    };
    const size_t calls = node.calls.size();
    stop_library();
    EXPECT_EQ(completion_order, (std::vector{&first, &second, &third}));
    EXPECT_EQ(third.codes(), ABENDED);
    EXPECT_FALSE(is_loaded());
    const std::vector<std::string_view> new_calls(node.calls.begin() + static_cast<i32>(calls), node.calls.end());
    EXPECT_EQ(std::ranges::count(new_calls, "vpm_terminate_path_user"), 0);

    reports_file_status();  // the path users are still there
    EXPECT_EQ(node.last_result, NODE_RESULT_FREED);
    asks_to_start(server);
    answers_update(0, 1, 1);
    answers_query({}, 0, 1);
    node.reports(NODE_EVENT_FORKED + 0x10);
    EXPECT_EQ(node.last_result, NODE_RESULT_DONE);
    EXPECT_EQ(wait_for(make(NAP_REGISTER_TP, server)).codes(), BAD_HANDLE);
    EXPECT_TRUE(is_loaded());
}

TEST_F(serving, outlives_the_node_until_the_last_sleeper_has_left)
{
    const u32 other = register_server();
    verb* inner = nullptr;
    verb& outer = sleep_through(server, [&] {
        inner = &sleep_through(other, [&] {
            stop_library();
            EXPECT_EQ(tps_main_cb->state, TPS_STATE_TERMINATING);
            stop_library();
        });
        EXPECT_EQ(inner->codes(), ABENDED);
        ASSERT_TRUE(is_loaded());
        EXPECT_EQ(tps_main_cb->state, TPS_STATE_TERMINATING);
        EXPECT_EQ(start(NAP_REGISTER_TP, server).codes(), ABENDED);
    });
    EXPECT_EQ(outer.codes(), ABENDED);
    EXPECT_FALSE(is_loaded());
}

TEST_F(serving, is_gone_in_a_fork_s_child_without_completing_anything)
{
    const u32 other = register_server();
    start_query(server, 10);
    answers_query_with_pip();
    start(NAP_REGISTER_TP, other);
    node.reports(NODE_EVENT_FORKED);
    EXPECT_FALSE(is_loaded());
    EXPECT_EQ(node.held(), holdings{});
    EXPECT_TRUE(completion_order.empty());
    EXPECT_FALSE(std::ranges::count(node.calls, std::string_view("vpm_terminate_path_user")));
    EXPECT_EQ(start(NAP_REGISTER_TP, server).codes(), BAD_HANDLE);
    forget_what_waits();
}

// clang-format off
// Each act in the first callback that each occasion leads to, with and without a caller asleep below.
struct callback_run : serving {
    void fill_with_verbs()
    {
        for (const u32 on : {server, other}) {
            start_query(on, 10);
            answers_query_with_pip();
            start_query(on, 10);
            start(NAP_START_APPL_OK, on);
            start(NAP_REGISTER_TP, on);
        }
    }
    void waits_for(u32 on)
    {
        node.while_asleep([this] { answers_update(); });
        wait_for(make(NAP_REGISTER_TP, on));
        if (!node.steps.empty())
            node.steps.pop_back();  // the verb was refused
    }
    void interrupted_by(u16 event) { node.interrupts_with({event, 0, {}}); }
    void forks()
    {
        interrupted_by(NODE_EVENT_FORKED);
        forget_what_waits();
    }
    void registers() { wait_for(make(NAP_REGISTER_TP_SERVER)); }
    void TestBody() override {}

    const u32 other = register_server(1);
};

const struct { const char* name; void (*run)(callback_run& t); } occasions[] = {
    {"an answer",               [](auto& t) { t.answers_update(0, 1, 4); }},
    {"an answer to a query",    [](auto& t) { t.answers_query({}, 0, 2); }},
    {"PIP data",                [](auto& t) { t.answers_pip({1, 2}, 2); }},
    {"no PIP data",             [](auto& t) { t.answers_pip({}, 0, {STATE_CHECK}); }},
    {"a lost path",             [](auto& t) { t.node.loses_path(t.node.last(NAP_EXTRACT_PIP).path); }},
    {"a start request",         [](auto& t) { t.asks_to_start(t.server); }},
    {"changes of TPs",          [](auto& t) { t.reports_file_status(); }},
    {"unregistering",           [](auto& t) { t.unregister(t.server); }},
    {"unregistering the other", [](auto& t) { t.wait_for(t.make(NAP_UNREGISTER_TP_SERVER, t.other)); }},
    {"the node's end",          [](auto& t) { t.stop_library(); }},
};

const struct { const char* name; void (*run)(callback_run& t); } acts[] = {
    {"does nothing",                   [](auto&) {}},
    {"unregisters the first server",   [](auto& t) { t.unregister(t.server); }},
    {"unregisters the second server",  [](auto& t) { t.unregister(t.other); }},
    {"unregisters both",               [](auto& t) { t.unregister(t.other), t.unregister(t.server); }},
    {"unregisters and waits for it",   [](auto& t) { t.wait_for(t.make(NAP_UNREGISTER_TP_SERVER, t.other)); }},
    {"sees the node end",              [](auto& t) { t.interrupted_by(NODE_EVENT_TERMINATED); }},
    {"sees it end and registers",      [](auto& t) { t.interrupted_by(NODE_EVENT_TERMINATED), t.registers(); }},
    {"forks",                          [](auto& t) { t.forks(); }},
    {"forks and registers",            [](auto& t) { t.forks(), t.registers(); }},
    {"loses the path",                 [](auto& t) { t.node.interrupts_with({NODE_EVENT_PATH_FAILURE,
                                                                             t.node.last(NAP_EXTRACT_PIP).path, {}}); }},
    {"issues verbs",                   [](auto& t) { t.fill_with_verbs(); }},
    {"registers another server",       [](auto& t) { t.registers(); }},
    {"waits on the first server",      [](auto& t) { t.waits_for(t.server); }},
    {"waits on the second server",     [](auto& t) { t.waits_for(t.other); }},
    {"unregisters, issues and loses",  [](auto& t) { t.unregister(t.server), t.fill_with_verbs(); t.answers_query_with_pip(2);
                                                     t.interrupted_by(NODE_EVENT_TERMINATED); }},
};
// clang-format on

TEST(in_a_callback, the_application_may_do_anything)
{
    for (const auto& occasion : occasions)
        for (const auto& act : acts)
            for (const bool sleeping : {false, true}) {
                SCOPED_TRACE(std::string(act.name) + " in the callback of " + occasion.name + (sleeping ? ", asleep" : ""));
                callback_run run;
                bool has_acted = false;
                const std::function<void()> act_once = [&] {
                    if (!std::exchange(has_acted, true))
                        act.run(run);
                };
                run.fill_with_verbs();
                run.on_server_call = act_once;
                for (verb& each : run.verbs)
                    each.on_call = act_once;
                if (sleeping)
                    run.sleep_through(run.server, [&] { occasion.run(run); });
                else
                    occasion.run(run);
                EXPECT_TRUE(has_acted);
                const u32 afterwards = run.register_server();
                verb& last = run.start(NAP_REGISTER_TP, afterwards);
                run.answers_update();
                EXPECT_EQ(last.codes(), rc(OK));
                run.TearDown();
                if (callback_run::HasFailure())
                    return;
            }
}

}  // namespace tessaly::test
