// The records of verbs in flight: up to a hundred stay allocated for reuse.
#include "tests/support/library_test.h"

namespace tessaly::test {

struct pending_records : running_tp_test {
    std::vector<sent_verb> confirms(u32 count)
    {
        std::vector<sent_verb> sent;
        for (u32 i = 0; i < count; ++i) {
            issue_on(running, CONFIRM, CONV_7);
            sent.push_back(node.sent.back());
        }
        return sent;
    }
};

TEST_F(pending_records, a_hundred_are_kept_and_what_is_beyond_is_freed_at_once_or_when_the_library_stops)
{
    const size_t others = node.held().memory - 2;  // the TP; and the two records of its start
    const std::vector<sent_verb> pending = confirms(102);
    EXPECT_EQ(node.held().memory, others + 102);
    node.answer(pending[100]);
    EXPECT_EQ(node.held().memory, others + 101) << "the hundred-and-first is not kept";
    for (u32 i = 0; i < 100; ++i)
        node.answer(pending[i]);
    EXPECT_EQ(node.held().memory, others + 101) << "the others are";
    EXPECT_EQ(node.held().handles, 1u);
    confirms(1);
    stop_library();
    EXPECT_EQ(node.held(), holdings{});
}

TEST_F(pending_records, the_lowest_idle_slot_is_reused_under_a_new_handle)
{
    const std::vector<sent_verb> pending = confirms(100);
    const std::map<u32, void*> records = node.handles;
    for (const u32 idle : {70, 9, 5})
        node.answer(pending[idle]);
    for (const u32 reused : {5, 9, 70}) {
        const u32 old = pending[reused].header().pend_handle;
        EXPECT_EQ(node.handles.at(confirms(1)[0].header().pend_handle), records.at(old));
        EXPECT_FALSE(node.handles.contains(old)) << "the old handle names nothing";
    }
}

TEST_F(pending_records, the_warm_path_allocates_nothing)
{
    node.answers(CONFIRM);
    node.refuse(may_fail::nba_mm_alloc, 1, true);
    EXPECT_EQ(codes_of(running, CONFIRM, CONV_7), rc(OK));
    EXPECT_EQ(node.refused(), 0u);
}

TEST_F(pending_records, a_shortage_refuses_the_verb_and_keeps_the_record)
{
    const holdings before = node.held();
    for (const may_fail resource : {may_fail::nba_create_handle, may_fail::vpm_allocate_wait_object}) {
        node.logs.clear();
        node.refuse(resource);
        EXPECT_EQ(codes_of(running, CONFIRM, CONV_7), rc(UNEXPECTED_SYSTEM_ERROR, SEC_NO_MEMORY));
        EXPECT_EQ(node.held(), before);
        EXPECT_EQ(node.logs.front().point, resource == may_fail::nba_create_handle ? 201 : 206);
        EXPECT_EQ(node.logs.back().point, 201);
    }
    EXPECT_EQ(node.count(CONFIRM), 0u);
}

}  // namespace tessaly::test
