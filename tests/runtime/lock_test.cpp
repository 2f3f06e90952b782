// The process lock and wait objects.
#include "common/runtime_guards.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace tessaly {

namespace {

constexpr u32 NO_LIMIT = 0xFFFFFFFF;

TEST(Lock, is_given_up_at_all_levels_by_a_sleeper_and_held_at_all_levels_afterwards)
{
    int turns = 0;  // guarded by the lock
    const u16 outer = vpm_lock();
    const u16 inner = vpm_lock();
    const u32 object = vpm_allocate_wait_object();
    std::thread other{[&] {
        const process_lock lock;
        ++turns;
        vpm_wakeup(object);
    }};
    vpm_sleep(object, NO_LIMIT);
    EXPECT_EQ(turns, 1);
    other.join();

    bool entered = false;
    std::thread late{[&] {
        const process_lock lock;
        entered = true;
    }};
    vpm_unlock(inner);
    EXPECT_FALSE(entered) << "the outer level still holds the lock";
    vpm_release_wait_object(object);
    vpm_unlock(outer);
    late.join();
    EXPECT_TRUE(entered);
}

TEST(Wait, a_wake_up_before_the_sleep_ends_one_sleep)
{
    using clock = std::chrono::steady_clock;
    const process_lock lock;
    const u32 object = vpm_allocate_wait_object();
    vpm_wakeup(object);
    vpm_wakeup(object);
    vpm_sleep(object, NO_LIMIT);

    const auto begin = clock::now();
    vpm_sleep(object, 20);
    EXPECT_GE(clock::now() - begin, std::chrono::milliseconds{20}) << "nobody woke it a second time";
    vpm_release_wait_object(object);
}

TEST(Wait, on_an_object_that_is_gone_returns_and_wakes_nobody_else)
{
    const process_lock lock;
    const u32 gone = vpm_allocate_wait_object();
    vpm_wakeup(gone);
    vpm_release_wait_object(gone);
    vpm_release_wait_object(gone);
    const u32 fresh = vpm_allocate_wait_object();
    vpm_wakeup(gone);
    for (u32 wild : {gone, 0u, 0xFFFFFFFFu})
        vpm_sleep(wild, NO_LIMIT);

    const auto begin = std::chrono::steady_clock::now();
    vpm_sleep(fresh, 5);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds{5});
    vpm_release_wait_object(fresh);
}

TEST(Wait, ends_when_the_object_is_released_under_the_sleeper)
{
    u16 token = vpm_lock();
    const u32 object = vpm_allocate_wait_object();
    std::thread releases{[object] {
        const process_lock lock;
        vpm_release_wait_object(object);
    }};
    vpm_sleep(object, NO_LIMIT);
    vpm_unlock(token);
    releases.join();
}

TEST(Lock, misused_is_reported_and_survives)
{
    testing::internal::CaptureStderr();
    vpm_unlock(1);
    vpm_sleep(1, NO_LIMIT);
    vpm_process_pending_events();
    const std::string reports = testing::internal::GetCapturedStderr();
    EXPECT_NE(reports.find("the thread that unlocks holds the lock"), std::string::npos) << reports;
    EXPECT_NE(reports.find("the thread that sleeps holds the lock"), std::string::npos) << reports;
    EXPECT_NE(reports.find("events are delivered under the lock"), std::string::npos) << reports;
    vpm_unlock(vpm_lock());
}

}  // namespace

}  // namespace tessaly
