// When the library starts and stops, and what it holds in between.
#include "tests/support/library_test.h"

namespace tessaly::test {

using start_and_stop = library_test;

TEST_F(start_and_stop, begins_with_the_first_verb_that_makes_or_registers_a_tp)
{
    EXPECT_EQ(run(make(UNREGISTER_CPIC_TP)).codes(), rc(OK, UNTOUCHED));
    EXPECT_EQ(node.held(), holdings{}) << "UNREGISTER_CPIC_TP starts nothing";
    EXPECT_EQ(node.datagrams.size(), 1u) << "but tells the node";
    for (const u16 opcode :
         {REGISTER_CPIC_TP, RECEIVE_ALLOCATE, RECEIVE_ALLOCATE_CPIC, RECEIVE_ALLOCATE_EX, TP_STARTED}) {
        issue(make(opcode, opcode == RECEIVE_ALLOCATE_EX ? 1 : 0));
        EXPECT_EQ(node.held().path_users, 1u) << "opcode " << opcode;
        EXPECT_EQ(node.held().tables, 1u);
        stop_library();
        EXPECT_EQ(node.held(), holdings{}) << "opcode " << opcode;
    }
}

struct failed_start {
    may_fail what;
    u16 status;
    outcome codes;
    u16 log_point;
};

TEST_F(start_and_stop, a_failed_start_leaves_nothing_and_the_next_verb_tries_again)
{
    const failed_start cases[] = {
        {may_fail::vpm_init_path_user, 2, rc(COMMS_SUBSYSTEM_NOT_LOADED, 2), 202},
        {may_fail::vpm_init_path_user, 5, rc(COMMS_SUBSYSTEM_NOT_LOADED, 5), 202},
        {may_fail::vpm_init_path_user, 19, rc(COMMS_SUBSYSTEM_NOT_LOADED, 19), 202},
        {may_fail::vpm_init_path_user, 0x4321, rc(UNEXPECTED_SYSTEM_ERROR, 0x4321), 202},
        {may_fail::vtm_table_init, 1, rc(UNEXPECTED_SYSTEM_ERROR, SEC_NO_MEMORY), 203},
    };
    for (const failed_start& each : cases) {
        node.logs.clear();
        node.refuse(each.what, 1, false, each.status);
        EXPECT_EQ(run(tp_started()).codes(), each.codes);
        EXPECT_EQ(node.held(), holdings{});
        ASSERT_NE(node.logged(each.log_point), nullptr);
        node.refuse_nothing();
    }
    EXPECT_EQ(node.logs.back().id, 0x20010002u);
    EXPECT_EQ(node.logs.back().kind, 'e');
    start_tp();
}

// A verb whose resources are refused one after the other.
struct swept_verb {
    const char* name;
    u16 opcode;
    bool attached;
    entry through;
};

TEST_F(start_and_stop, a_verb_gets_all_its_resources_or_keeps_none)
{
    const swept_verb verbs[] = {
        {"TP_STARTED", TP_STARTED, false, entry::appc},
        {"asynchronous TP_STARTED", TP_STARTED, false, entry::appc_async},
        {"announced RECEIVE_ALLOCATE", RECEIVE_ALLOCATE, false, entry::appc_async},
        {"attached RECEIVE_ALLOCATE", RECEIVE_ALLOCATE, true, entry::appc_async},
        {"synchronous RECEIVE_ALLOCATE", RECEIVE_ALLOCATE, true, entry::appc},
        {"CONFIRM", CONFIRM, false, entry::appc_async},
        {"synchronous CONFIRM", CONFIRM, false, entry::appc},
    };
    node.answers(RECEIVE_ALLOCATE);
    node.answers(CONFIRM);
    issue(make(REGISTER_CPIC_TP));
    for (const swept_verb& each : verbs) {
        for (u32 nth = 1, refused = node.refused();; ++nth, refused = node.refused()) {
            SCOPED_TRACE(::testing::Message() << each.name << ", refused resource " << nth);
            ASSERT_LT(nth, 30u);
            const bool starts = each.opcode != CONFIRM;
            verb& v = starts ? make(each.opcode, each.attached ? 1 : 0) : make_on(start_tp(), CONFIRM, CONV_7);
            if (each.attached)
                v.as<appc_receive_allocate>().attach_id[0] = 1;
            holdings expected = node.held();
            node.refuse(std::nullopt, nth, true);
            enter(each.through, v);
            node.deliver();
            node.refuse_nothing();
            if (node.refused() == refused) {
                EXPECT_EQ(v.codes().primary, OK);
                break;
            }
            const holdings after = node.held();
            if (v.codes().primary == OK)
                expected.entries += starts;
            EXPECT_EQ(after.entries, expected.entries);
            EXPECT_EQ(after.handles, expected.handles);
            EXPECT_EQ(after.wait_objects, expected.wait_objects);
            EXPECT_LE(after.paths, expected.paths + starts);
            EXPECT_LE(v.calls.size(), 1u);
        }
    }
}

struct shortage {
    may_fail what;
    u32 nth;
    char kind;
    u32 log;
    u16 point;
    outcome codes;
};

TEST_F(start_and_stop, every_shortage_has_its_log)
{
    constexpr outcome no_memory = rc(UNEXPECTED_SYSTEM_ERROR, SEC_NO_MEMORY);
    const shortage cases[] = {
        {may_fail::nba_mm_alloc, 1, 'e', 0x20010002, 204, no_memory},
        {may_fail::vtm_get_free_entry, 1, 'p', 0x20010001, 205, no_memory},
        {may_fail::nba_mm_alloc, 2, 'e', 0x20010002, 200, no_memory},
        {may_fail::vpm_allocate_wait_object, 1, 'e', 0x20010002, 206, no_memory},
        {may_fail::nba_create_handle, 2, 'e', 0x20010002, 224, no_memory},
        {may_fail::nba_mm_alloc, 4, 'e', 0x20010002, 225, no_memory},
        {may_fail::vsm_query_services, 1, 'p', 0x20010004, 207, rc(COMMS_SUBSYSTEM_NOT_LOADED)},
        {may_fail::vpm_create_path, 1, 'p', 0x20010004, 207, no_memory},
    };
    for (const bool silent : {false, true}) {
        ptrc[8] = silent ? 0x01 : 0x00;
        for (const shortage& each : cases) {
            stop_library();
            issue(make(REGISTER_CPIC_TP));
            node.logs.clear();
            node.refuse(each.what, each.nth);
            EXPECT_EQ(run(tp_started()).codes(), each.codes) << each.point;
            node.refuse_nothing();
            const log_record* log = node.logged(each.point);
            ASSERT_EQ(log == nullptr, silent && each.kind == 'e') << each.point;
            if (log != nullptr) {
                EXPECT_EQ(log->id, each.log);
                EXPECT_EQ(log->kind, each.kind);
            }
        }
    }
}

TEST_F(start_and_stop, termination_completes_what_is_outstanding_and_a_new_start_succeeds)
{
    const tp first = start_tp();
    verb& outstanding = issue(make_on(first, RECEIVE_AND_WAIT, CONV_7));
    const u32 path = first.path;
    stop_library();
    EXPECT_EQ(outstanding.codes(), rc(COMMS_SUBSYSTEM_ABENDED));
    EXPECT_EQ(outstanding.calls.size(), 1u);
    EXPECT_EQ(node.held(), holdings{});
    EXPECT_EQ(node.paths.at(path).state, path_record::closed);
    ASSERT_NE(node.logged(217), nullptr);
    EXPECT_EQ(node.logged(217)->kind, 'p');
    EXPECT_EQ(run(make_on(first, CONFIRM, CONV_7)).codes(), rc(PARAMETER_CHECK, SEC_BAD_TP_ID));
    start_tp();
}

TEST_F(start_and_stop, the_last_sleeper_stops_a_terminated_library)
{
    const tp running = start_tp();
    verb& late = tp_started();
    node.while_asleep([&] {
        node.reports(NODE_EVENT_TERMINATED);
        EXPECT_EQ(node.held().path_users, 1u) << "a caller still sleeps";
        EXPECT_EQ(run(late).codes(), rc(COMMS_SUBSYSTEM_ABENDED)) << "nothing starts meanwhile";
    });
    EXPECT_EQ(run(make_on(running, CONFIRM, CONV_7)).codes(), rc(COMMS_SUBSYSTEM_ABENDED));
    EXPECT_EQ(node.held(), holdings{});
}

TEST_F(start_and_stop, a_lost_path_completes_its_tps_verbs_and_leaves_the_tp_for_TP_ENDED)
{
    const tp lost = start_tp();
    const tp other = start_tp();
    verb& waiting = issue(make_on(lost, RECEIVE_AND_WAIT, CONV_7));
    verb& elsewhere = issue(make_on(other, RECEIVE_AND_WAIT, CONV_7));
    node.loses_path(lost.path);
    EXPECT_EQ(waiting.codes(), rc(COMMS_SUBSYSTEM_ABENDED));
    EXPECT_EQ(waiting.calls.size(), 1u);
    EXPECT_TRUE(elsewhere.calls.empty());
    EXPECT_EQ(run(make_on(lost, CONFIRM, CONV_7)).codes(), rc(COMMS_SUBSYSTEM_ABENDED));
    EXPECT_EQ(run(make_on(lost, TP_ENDED)).codes(), rc(COMMS_SUBSYSTEM_ABENDED));
    EXPECT_EQ(run(make_on(lost, TP_ENDED)).codes(), rc(PARAMETER_CHECK, SEC_BAD_TP_ID));
}

}  // namespace tessaly::test
