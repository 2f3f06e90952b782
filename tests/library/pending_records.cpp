// The records of verbs in flight: up to a hundred stay allocated for reuse.
#include "tests/support/library_test.h"

namespace tessaly::test {

class pending_records : public library_test {
protected:
    u32 issue_confirm(const tp& of)
    {
        issue(make_on(of, CONFIRM, CONV_7));
        return node.last(CONFIRM).header().pend_handle;
    }

    void answer(u32 pend_handle)
    {
        for (const sent_verb& sent : node.sent)
            if (sent.header().pend_handle == pend_handle)
                node.answer(sent);
    }
};

TEST_F(pending_records, a_hundred_are_kept_and_the_next_is_freed)
{
    const tp running = start_tp();
    const u32 warm = node.held().memory;  // the TP, and the two records of its start
    std::vector<u32> handles;
    for (u32 i = 0; i < 101; ++i)
        handles.push_back(issue_confirm(running));
    EXPECT_EQ(node.held().memory, warm - 2 + 101);
    answer(handles[100]);
    EXPECT_EQ(node.held().memory, warm - 2 + 100) << "the hundred-and-first is not kept";
    for (u32 i = 0; i < 100; ++i)
        answer(handles[i]);
    EXPECT_EQ(node.held().memory, warm - 2 + 100) << "the others are";
    EXPECT_EQ(node.held().handles, 0u);
}

TEST_F(pending_records, the_lowest_idle_slot_is_reused_under_a_new_handle)
{
    const tp running = start_tp();
    std::vector<u32> handles;
    std::vector<void*> records;
    for (u32 i = 0; i < 100; ++i) {
        handles.push_back(issue_confirm(running));
        records.push_back(node.record_of(handles.back()));
    }
    answer(handles[70]);
    answer(handles[5]);
    const u32 memory = node.held().memory;
    const u32 first = issue_confirm(running);
    EXPECT_EQ(node.record_of(first), records[5]);
    EXPECT_NE(first, handles[5]);
    EXPECT_EQ(node.record_of(issue_confirm(running)), records[70]);
    EXPECT_EQ(node.held().memory, memory);
    EXPECT_EQ(node.record_of(handles[5]), nullptr) << "the old handle names nothing";
}

TEST_F(pending_records, the_warm_path_allocates_nothing)
{
    const tp running = start_tp();
    node.answers(CONFIRM);
    run(make_on(running, CONFIRM, CONV_7));
    node.calls.clear();
    run(make_on(running, CONFIRM, CONV_7));
    for (const char* call : node.calls)
        EXPECT_STRNE(call, "nba_mm_alloc");
}

TEST_F(pending_records, a_shortage_refuses_the_verb_and_keeps_the_record)
{
    const tp running = start_tp();
    const holdings before = node.held();
    constexpr may_fail resources[] = {may_fail::nba_create_handle, may_fail::vpm_allocate_wait_object};
    for (const may_fail resource : resources) {
        node.logs.clear();
        node.refuse(resource);
        EXPECT_EQ(run(make_on(running, CONFIRM, CONV_7)).codes(), rc(UNEXPECTED_SYSTEM_ERROR, SEC_NO_MEMORY));
        node.refuse_nothing();
        EXPECT_EQ(node.held(), before);
        ASSERT_NE(node.logged(201), nullptr);
        EXPECT_EQ(node.logged(206) != nullptr, resource == may_fail::vpm_allocate_wait_object);
    }
    EXPECT_EQ(node.count(CONFIRM), 0u);
}

TEST_F(pending_records, stop_frees_idle_ones_and_uncached_ones_alike)
{
    const tp running = start_tp();
    const u32 idle = issue_confirm(running);
    for (u32 i = 0; i < 102; ++i)
        issue_confirm(running);
    answer(idle);
    stop_library();
    EXPECT_EQ(node.held(), holdings{});
}

}  // namespace tessaly::test
