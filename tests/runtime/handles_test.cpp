// Handle tables and record handles: what stays valid, what never does, and walks over a table that changes.
#include "common/runtime_guards.h"

#include <gtest/gtest.h>

#include <set>
#include <vector>

namespace tessaly {

namespace {

class Handles : public testing::Test {
protected:
    Handles() { vtm_table_init(&table, 0); }
    ~Handles() override { vtm_table_terminate(&table); }

    u32 add(int& thing) const { return vtm_get_free_entry(table, &thing); }

    process_lock lock;
    u32 table = 0;
    int things[4] = {};
};

TEST_F(Handles, of_a_released_entry_stay_invalid_while_the_table_lives_on)
{
    const u32 first = add(things[0]);
    vtm_release_entry(table, first);
    for (int i = 0; i < 200'000; ++i) {
        const u32 other = add(things[1]);
        ASSERT_NE(other, first);
        ASSERT_EQ(vtm_get_pointer(table, first), nullptr);
        vtm_release_entry(table, first);  // must not take the other along
        ASSERT_EQ(vtm_get_pointer(table, other), &things[1]);
        vtm_release_entry(table, other);
    }
}

TEST_F(Handles, walk_visits_each_entry_once_in_order_while_entries_come_and_go)
{
    constexpr u32 ENTRIES = 10'000;
    std::set<u32> expected;
    for (u32 i = 0; i < ENTRIES; ++i)
        expected.insert(add(things[0]));
    ASSERT_EQ(expected.size(), ENTRIES);

    std::set<u32> visited;
    void* found = nullptr;
    u32 last = 0;
    for (u32 handle = vtm_get_next_used(table, 0, &found); handle != 0; handle = vtm_get_next_used(table, handle, &found)) {
        ASSERT_GT(handle, last);
        last = handle;
        if (found == &things[0])
            visited.insert(handle);
        vtm_release_entry(table, handle);  // the walk goes on from a handle that is gone
        if (visited.size() % 3 == 0 && found == &things[0])
            add(things[1]);
        if (visited.size() == 10)  // and is not sent to one that went meanwhile
            for (u32 gone : {*std::next(expected.begin(), 20), *std::next(expected.begin(), 21)})
                if (expected.erase(gone) != 0)
                    vtm_release_entry(table, gone);
    }
    EXPECT_EQ(visited, expected);
}

TEST_F(Handles, that_nobody_gave_out_are_unknown_everywhere)
{
    const u32 known = add(things[0]);
    void* out = &things[3];
    for (u32 wild : {0u, 2u, known + 1, known ^ 0x1000u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        EXPECT_EQ(vtm_get_pointer(table, wild), nullptr) << wild;
        EXPECT_EQ(vtm_get_pointer(wild, known), nullptr) << wild;
        EXPECT_EQ(vtm_get_free_entry(wild, &things[1]), 0u) << wild;
        EXPECT_EQ(vtm_get_next_used(wild, 0, &out), 0u) << wild;
        EXPECT_EQ(nba_validate_handle(wild), nullptr) << wild;
        vtm_release_entry(table, wild);
        vtm_release_entry(wild, known);
        nba_destroy_handle(wild);
    }
    EXPECT_EQ(out, &things[3]);
    EXPECT_EQ(vtm_get_pointer(table, known), &things[0]);
}

TEST_F(Handles, of_a_table_end_with_it)
{
    const u32 entry = add(things[0]);
    const u32 old_table = table;
    vtm_table_terminate(&table);
    EXPECT_EQ(table, 0u);
    vtm_table_init(&table, 0);
    EXPECT_NE(table, old_table);
    EXPECT_EQ(vtm_get_pointer(old_table, entry), nullptr);
    EXPECT_EQ(vtm_get_pointer(table, entry), nullptr);
}

TEST_F(Handles, of_records_are_not_reused_soon)
{
    std::set<u32> before;
    for (int i = 0; i < 100'000; ++i) {
        const u32 handle = nba_create_handle(&things[i % 2]);
        ASSERT_TRUE(before.insert(handle).second) << "used again after " << i;
        ASSERT_EQ(nba_validate_handle(handle), &things[i % 2]);
        nba_destroy_handle(handle);
        ASSERT_EQ(nba_validate_handle(handle), nullptr);
    }
}

}  // namespace

}  // namespace tessaly
