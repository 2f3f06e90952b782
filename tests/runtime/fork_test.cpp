// A fork's child: a new client of a new node, which hears of the fork before its first verb.
#include "runtime_fixture.h"

#include <sys/wait.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace tessaly {

namespace {

class Fork : public RuntimeTest {
protected:
    // Runs the story in a forked child; true when it met no failure there.
    template <typename Story>
    bool in_child(Story story)
    {
        const pid_t child = fork();
        if (child == 0) {
            alarm(60);  // a child that hangs fails
            story();
            fflush(stdout);
            _exit(HasFailure() ? 1 : 0);
        }
        int how = 0;
        waitpid(child, &how, 0);
        return how == 0;
    }

    // What any process can do: one verb and its answer.
    void converse()
    {
        const process_lock lock;
        events.clear();
        u32 own_user = 0;
        ASSERT_EQ(vpm_init_path_user(0, 0, receive, 0, &own_user), 0);
        const u32 path = vpm_create_path(own_user, node::NODE_ADDRESS, 1, nullptr);
        const u32 object = vpm_allocate_wait_object();
        on_event = [object](u32, rcv_info&) { return vpm_wakeup(object), NODE_RESULT_DONE; };
        send(path, verb(SEND_DATA, 5));
        vpm_sleep(object, NO_LIMIT);
        EXPECT_EQ(events, (std::vector<event>{{NODE_EVENT_IPS, path, 5}}));
        vpm_release_wait_object(object);
        vpm_terminate_path_user(own_user);
        on_event = nullptr;
    }

    const std::vector<event> told_of_fork{{NODE_EVENT_FORKED, 0, 0}, {NODE_EVENT_FORKED, 0, 0}};
};

TEST_F(Fork, tells_each_path_user_once_before_the_first_verb_and_leaves_the_rest_to_the_parent)
{
    const u16 token = vpm_lock();
    u32 server = 0;
    vpm_init_path_user(0x20, 1, receive, 0, &server);
    const u32 path = open_path();
    u16 asks[2] = {4, DATAGRAM_ANNOUNCE};
    send(path, verb(SEND_DATA, 1));  // the answers are the parent's
    vpm_send_datagram(DATAGRAM_DESTINATION, 0, asks, sizeof asks);
    const u32 engines = script.engines;

    EXPECT_TRUE(in_child([&] {
        EXPECT_TRUE(events.empty());
        vpm_unlock(vpm_lock());
        EXPECT_EQ(events, told_of_fork);
        EXPECT_NE(send(path, verb(SEND_DATA, 2)), 0);
        EXPECT_EQ(open_path(), 0u);
        vpm_unlock(token);
        converse();
        EXPECT_EQ(script.engines, engines + 1);
    }));

    vpm_process_pending_events();
    EXPECT_EQ(events, (std::vector<event>{{NODE_EVENT_IPS, path, 1}, {NODE_EVENT_DATAGRAM, 0, 0}}));
    vpm_terminate_path_user(server);
    vpm_unlock(token);
}

TEST_F(Fork, inside_a_callback_is_told_at_the_first_verb_there)
{
    const process_lock lock;
    const u32 path = open_path();
    bool child_was_told = false;
    on_event = [&](u32, rcv_info& info) -> u16 {
        if (info.event == NODE_EVENT_IPS)
            child_was_told = in_child([&] {
                events.clear();
                vpm_unlock(vpm_lock());
                EXPECT_EQ(events, (std::vector<event>{{NODE_EVENT_FORKED, 0, 0}}));
            });
        return NODE_RESULT_DONE;
    };
    send(path, verb(SEND_DATA, 1));
    vpm_process_pending_events();
    EXPECT_TRUE(child_was_told);
}

TEST_F(Fork, while_other_threads_sleep_and_deliver_leaves_a_child_that_works)
{
    constexpr u32 FORKS = 20;
    bool stop = false;  // guarded by the lock
    on_event = [&](u32, rcv_info& info) {
        events.clear();
        if (info.event == NODE_EVENT_IPS)
            vpm_wakeup(pend_of(info));
        return NODE_RESULT_DONE;
    };
    std::vector<std::thread> busy;
    for (u32 i = 0; i < 3; ++i)
        busy.emplace_back([&] {
            u16 token = vpm_lock();
            const u32 path = open_path();
            while (!stop) {
                const u32 object = vpm_allocate_wait_object();
                send(path, verb(SEND_DATA, object));
                send(path, verb(SEND_DATA, 0));  // and one that nobody sleeps for
                vpm_sleep(object, NO_LIMIT);
                vpm_release_wait_object(object);
                vpm_unlock(token);
                token = vpm_lock();
            }
            vpm_unlock(token);
        });
    for (u32 i = 0; i < FORKS; ++i)
        EXPECT_TRUE(in_child([&] {
            vpm_unlock(vpm_lock());
            converse();
            // And its own runtime thread delivers.
            std::mutex mutex;
            std::condition_variable delivered;
            bool done = false;
            on_event = [&](u32, rcv_info&) {
                const std::lock_guard guard{mutex};
                done = true;
                delivered.notify_all();
                return NODE_RESULT_DONE;
            };
            {
                const process_lock lock;
                ASSERT_EQ(vpm_init_path_user(0, 0, receive, 0, &user), 0);
                send(open_path(), verb(SEND_DATA, 1));
            }
            std::unique_lock guard{mutex};
            delivered.wait(guard, [&] { return done; });
        }));
    {
        const process_lock lock;
        stop = true;
    }
    for (std::thread& thread : busy)
        thread.join();
}

}  // namespace

}  // namespace tessaly
