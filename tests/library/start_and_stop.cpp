// When the library starts and stops, and what it holds in between.
#include "tests/support/library_test.h"

namespace tessaly::test {

using start_and_stop = library_test;

constexpr rc no_memory{UNEXPECTED_SYSTEM_ERROR, SEC_NO_MEMORY};

TEST_F(start_and_stop, begins_with_the_first_verb_that_makes_or_registers_a_tp)
{
    EXPECT_EQ(run(make(SEND_DATA)).codes(), rc(PARAMETER_CHECK, SEC_BAD_TP_ID));
    EXPECT_EQ(run(make(CANCEL_CONV)).codes(), rc(OK, UNTOUCHED));
    EXPECT_EQ(run(make(UNREGISTER_CPIC_TP)).codes(), rc(OK, UNTOUCHED));
    EXPECT_EQ(node.held(), holdings{}) << "these start nothing";
    EXPECT_EQ(node.datagrams.size(), 1u) << "but tells the node";
    for (const u16 opcode : {REGISTER_CPIC_TP, RECEIVE_ALLOCATE, RECEIVE_ALLOCATE_CPIC, RECEIVE_ALLOCATE_EX, TP_STARTED}) {
        issue(make(opcode, opcode == RECEIVE_ALLOCATE_EX ? 1 : 0));
        EXPECT_TRUE(node.held().path_users == 1 && node.held().tables == 1) << "opcode " << opcode;
        stop_library();
        EXPECT_EQ(node.held(), holdings{}) << "opcode " << opcode;
    }
}

TEST_F(start_and_stop, a_failed_start_leaves_nothing_and_the_next_verb_tries_again)
{
    // clang-format off
    const struct { may_fail what; u16 status; rc codes; log_record log; } cases[] = {
        {may_fail::vpm_init_path_user, 2,      {COMMS_SUBSYSTEM_NOT_LOADED, 2},   {'p', 0x2001000B, 202, "x", {2}}},
        {may_fail::vpm_init_path_user, 5,      {COMMS_SUBSYSTEM_NOT_LOADED, 5},   {'p', 0x2001000B, 202, "x", {5}}},
        {may_fail::vpm_init_path_user, 19,     {COMMS_SUBSYSTEM_NOT_LOADED, 19},  {'p', 0x2001000B, 202, "x", {19}}},
        {may_fail::vpm_init_path_user, 0x4321, {UNEXPECTED_SYSTEM_ERROR, 0x4321}, {'p', 0x2001000B, 202, "x", {0x4321}}},
        {may_fail::vtm_table_init,     1,      no_memory,                         {'e', 0x20010002, 203}},
    };
    // clang-format on
    for (const auto& each : cases) {
        node.refuse(each.what, 1, false, each.status);
        EXPECT_EQ(run(tp_started()).codes(), each.codes);
        EXPECT_EQ(node.held(), holdings{});
        EXPECT_EQ(node.logs.back(), each.log);
    }
    start_tp();
}

TEST_F(start_and_stop, every_shortage_of_a_TP_STARTED_has_its_log)
{
    // clang-format off
    const struct { may_fail what; u32 nth; log_record log; rc codes; } cases[] = {
        {may_fail::nba_mm_alloc,             1, {'e', 0x20010002, 204}, no_memory},
        {may_fail::vtm_get_free_entry,       1, {'p', 0x20010001, 205}, no_memory},
        {may_fail::nba_mm_alloc,             2, {'e', 0x20010002, 200}, no_memory},
        {may_fail::vpm_allocate_wait_object, 1, {'e', 0x20010002, 206}, no_memory},
        {may_fail::nba_create_handle,        2, {'e', 0x20010002, 224}, no_memory},
        {may_fail::nba_mm_alloc,             4, {'e', 0x20010002, 225}, no_memory},
        {may_fail::vsm_query_services,       1, {'p', 0x20010004, 207}, rc{COMMS_SUBSYSTEM_NOT_LOADED}},
        {may_fail::vpm_create_path,          1, {'p', 0x20010004, 207}, no_memory},
    };
    // clang-format on
    for (const auto& each : cases) {
        restart_with({});
        issue(make(REGISTER_CPIC_TP));
        node.logs.clear();
        node.refuse(each.what, each.nth);
        EXPECT_EQ(run(tp_started()).codes(), each.codes);
        ASSERT_FALSE(node.logs.empty()) << each.log;
        EXPECT_EQ((log_record{node.logs[0].kind, node.logs[0].id, node.logs[0].point}), each.log);
    }
}

TEST_F(start_and_stop, the_last_sleeper_stops_a_terminated_library)
{
    const tp running = start_tp();
    node.while_asleep([&] {
        stop_library();
        EXPECT_EQ(node.logs.back(), (log_record{'p', 0x20010007, 217}));
        EXPECT_EQ(node.held().path_users, 1u) << "a caller still sleeps";
        EXPECT_EQ(run(tp_started()).codes(), rc(COMMS_SUBSYSTEM_ABENDED)) << "nothing starts meanwhile";
    });
    EXPECT_EQ(codes_of(running, CONFIRM, CONV_7), rc(COMMS_SUBSYSTEM_ABENDED));
    EXPECT_EQ(node.held(), holdings{});
}

}  // namespace tessaly::test
