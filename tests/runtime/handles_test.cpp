// Handle tables and record handles: what stays valid, what never does, and walks over a table that changes.
#include "common/runtime_guards.h"

#include <gtest/gtest.h>

#include <set>

namespace tessaly {

class Handles : public testing::Test {
protected:
    Handles() { vtm_table_init(&table, 0); }
    ~Handles() override { vtm_table_terminate(&table); }

    u32 add(int which) { return vtm_get_free_entry(table, &things[which]); }

    process_lock lock;
    u32 table = 0;
    int things[2] = {};
};

TEST_F(Handles, walk_visits_each_entry_once_in_order_while_entries_come_and_go)
{
    std::set<u32> expected;
    for (u32 i = 0; i < 10'000; ++i)
        expected.insert(add(0));
    const u32 gone = *std::next(expected.begin(), 20);
    std::set<u32> visited;
    void* found = nullptr;
    u32 last = 0;
    for (u32 handle = vtm_get_next_used(table, 0, &found); handle != 0; handle = vtm_get_next_used(table, handle, &found)) {
        ASSERT_GT(handle, last);
        last = handle;
        vtm_release_entry(table, handle);  // the walk goes on from a handle that is gone
        if (found != &things[0])
            continue;
        visited.insert(handle);
        if (visited.size() % 3 == 0)
            add(1);
        if (visited.size() == 10 && expected.erase(gone) != 0)
            vtm_release_entry(table, gone);  // and is not sent to one that went meanwhile
    }
    EXPECT_EQ(visited, expected);
}

TEST_F(Handles, that_nobody_gave_out_are_unknown_everywhere)
{
    const u32 entry = add(0);
    u32 other_table = 0;
    vtm_table_init(&other_table, 0);
    const u32 ended = other_table;
    const u32 known = vtm_get_free_entry(ended, &things[1]);
    vtm_table_terminate(&other_table);
    EXPECT_EQ(other_table, 0u);
    void* out = &things[1];
    for (u32 wild : {ended, 0u, entry + 1, entry + 0x100000, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        vtm_release_entry(table, wild);
        vtm_release_entry(wild, entry);
        nba_destroy_handle(wild);
        EXPECT_EQ(vtm_get_pointer(wild, known), nullptr) << wild;
        EXPECT_EQ(vtm_get_free_entry(wild, &things[1]), 0u) << wild;
        EXPECT_EQ(vtm_get_next_used(wild, 0, &out), 0u) << wild;
        EXPECT_EQ(nba_validate_handle(wild), nullptr) << wild;
    }
    EXPECT_EQ(out, &things[1]);
    EXPECT_EQ(vtm_get_pointer(table, entry), &things[0]);
}

TEST_F(Handles, of_records_are_not_reused_soon)
{
    std::set<u32> before;
    for (int i = 0; i < 100'000; ++i) {
        const u32 handle = nba_create_handle(&things[i % 2]);
        for (u32 stale : before.empty() ? std::set<u32>{} : std::set{*before.begin(), *before.rbegin()}) {
            nba_destroy_handle(stale);  // must not take the live one along
            ASSERT_EQ(nba_validate_handle(stale), nullptr);
        }
        ASSERT_EQ(nba_validate_handle(handle), &things[i % 2]);
        ASSERT_TRUE(before.insert(handle).second) << "used again after " << i;
        nba_destroy_handle(handle);
    }
}

}  // namespace tessaly
