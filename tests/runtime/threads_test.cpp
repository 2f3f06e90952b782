// The lock, wait objects, who delivers when several threads are there, and that nobody is kept out.
#include "runtime_fixture.h"

#include <chrono>
#include <filesystem>
#include <set>
#include <thread>

namespace tessaly {

class Threads : public RuntimeTest {
protected:
    static constexpr u32 THREADS = 4;
    static constexpr u32 VERBS = 500;

    Threads()
    {
        on_event = [this](u32, rcv_info&) {
            deliverers.insert(std::this_thread::get_id());
            return delivered.release(), NODE_RESULT_DONE;
        };
    }

    template <typename Story>
    static std::set<std::thread::id> in_threads(Story story)
    {
        std::vector<std::thread> threads;
        std::set<std::thread::id> ids;
        for (u32 i = 0; i < THREADS; ++i)
            ids.insert(threads.emplace_back(story).get_id());
        for (std::thread& thread : threads)
            thread.join();
        return ids;
    }

    static std::thread locked(std::function<void()> story)
    {
        return std::thread{[story] {
            const process_lock lock;
            story();
        }};
    }

    std::set<std::thread::id> deliverers;  // guarded by the lock
};

TEST_F(Threads, that_sleep_give_up_all_levels_of_the_lock_and_hold_all_of_them_afterwards)
{
    bool entered = false;  // guarded by the lock
    const u16 outer = vpm_lock();
    const u16 inner = vpm_lock();
    const u32 object = vpm_allocate_wait_object();
    const auto enter = [&] { entered = true, vpm_wakeup(object); };
    std::thread other = locked(enter);
    vpm_sleep(object, NO_LIMIT);
    EXPECT_TRUE(entered);
    other.join();
    EXPECT_EQ(vpm_lock(), inner + 1);
    vpm_unlock(static_cast<u16>(inner + 1));
    entered = false;
    std::thread late = locked(enter);
    vpm_unlock(inner);
    EXPECT_FALSE(entered) << "the outer level still holds the lock";
    vpm_unlock(outer);
    late.join();
    EXPECT_TRUE(entered);
}

TEST_F(Threads, sleep_until_woken_once_or_until_the_object_is_released)
{
    const process_lock lock;
    const u32 gone = vpm_allocate_wait_object();
    for (int twice = 0; twice < 2; ++twice)
        vpm_wakeup(gone);
    vpm_sleep(gone, NO_LIMIT);
    const auto begin = std::chrono::steady_clock::now();
    vpm_sleep(gone, 20);  // and nobody wakes it
    std::thread releases = locked([&] { vpm_release_wait_object(gone); });
    vpm_sleep(gone, NO_LIMIT);
    releases.join();
    vpm_release_wait_object(gone);
    const u32 fresh = vpm_allocate_wait_object();
    vpm_wakeup(gone);
    for (u32 wild : {gone, 0u, 0xFFFFFFFFu})
        vpm_sleep(wild, NO_LIMIT);
    vpm_sleep(fresh, 20);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds{40});
    vpm_release_wait_object(fresh);
}

TEST_F(Threads, without_the_lock_are_reported_and_survive)
{
    testing::internal::CaptureStderr();
    vpm_unlock(1);
    vpm_sleep(1, NO_LIMIT);
    vpm_process_pending_events();
    const std::string reports = testing::internal::GetCapturedStderr();
    for (const char* report : {"unlocks holds the lock", "sleeps holds the lock", "delivered under the lock"})
        EXPECT_NE(reports.find(report), std::string::npos) << reports;
}

TEST_F(Threads, that_only_issue_asynchronous_verbs_leave_delivery_to_one_other_thread)
{
    const auto senders = in_threads([this] {
        const u32 path = open_path();
        for (u32 n = 0; n < VERBS; ++n)
            EXPECT_EQ(send(path, 0), 0);
    });
    for (u32 n = 0; n < THREADS * VERBS; ++n)
        delivered.acquire();
    const process_lock lock;
    ASSERT_EQ(deliverers.size(), 1u);
    EXPECT_FALSE(senders.contains(*deliverers.begin()));
    EXPECT_NE(*deliverers.begin(), std::this_thread::get_id());
}

TEST_F(Threads, that_sleep_each_get_their_own_answer)
{
    in_threads([this] {
        const u32 path = open_path();
        for (u32 n = 0; n < VERBS; ++n)
            run_verb(path);
    });
    EXPECT_EQ(events.size(), THREADS * VERBS);
}

// There is a runtime thread, and a sleeper on each of two paths.
TEST_F(Threads, that_sleep_deliver_what_comes_on_their_own_path)
{
    const u32 paths[] = {open_path(), open_path(), open_path()};
    send(paths[0], 0);
    delivered.acquire();
    script.on_message = nullptr;
    u32 objects[2] = {};  // guarded by the lock
    std::thread sleepers[2];
    for (u32 i : {0u, 1u}) {
        sleepers[i] = locked([&, i] {
            send(paths[i], 0);
            objects[i] = vpm_allocate_wait_object();
            vpm_sleep(objects[i], NO_LIMIT);
        });
        for (bool asleep = false; !asleep;) {
            const process_lock lock;
            asleep = objects[i] != 0;
        }
    }
    for (u32 i : {0u, 1u}) {
        const auto id = sleepers[i].get_id();
        locked([&, i] {
            deliverers.clear();
            script.on_message = [&, i](const frame&, frame_sink& output) {
                node_sends(output, frame_kind::message, paths[i], verb(SEND_DATA, objects[i]));
            };
            send(paths[2], 0);
        }).join();
        sleepers[i].join();
        EXPECT_EQ(deliverers, (std::set{id}));
    }
}

TEST_F(Threads, are_not_kept_out_by_callbacks_that_never_stop_issuing_verbs)
{
    const u32 path = open_path();
    on_event = [this, path](u32, rcv_info&) {
        events.clear();
        script.seen.clear();
        send(path, 0);
        return delivered.release(), NODE_RESULT_DONE;
    };
    send(path, 0);
    delivered.acquire();
    for (u32 n = 0; n < VERBS; ++n) {
        const process_lock lock;
        const u32 object = vpm_allocate_wait_object();
        std::thread other = locked([object] { vpm_wakeup(object); });
        vpm_sleep(object, NO_LIMIT);
        vpm_release_wait_object(object);
        other.join();
    }
    const process_lock lock;
    on_event = nullptr;  // ends the chain, which would outlive this case
}

TEST_F(Threads, are_not_started_for_synchronous_verbs)
{
    const auto threads = [] { return std::distance(std::filesystem::directory_iterator{"/proc/self/task"}, {}); };
    const auto converse = [&] {
        const process_lock lock;
        vpm_init_path_user(0, 0, receive, 0, &user);
        const u32 path = open_path();
        const auto before = threads();
        for (u32 n = 0; n < VERBS; ++n)
            run_verb(path);
        std::_Exit(events.size() >= VERBS && threads() == before ? 0 : 1);
    };
    // In a process of its own: other cases have started the thread in this one.
    EXPECT_EXIT(converse(), testing::ExitedWithCode(0), "");
}

}  // namespace tessaly
