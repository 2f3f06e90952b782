// A fork's child: a new client of a new node, which hears of the fork before its first verb.
#include "runtime_fixture.h"

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <latch>
#include <thread>

namespace tessaly {

class Fork : public RuntimeTest {
protected:
    // Runs the story in a forked child; true when it met no failure there. Unseen: no handler of pthread_atfork runs.
    template <typename Story>
    static bool in_child(Story story, bool seen = true)
    {
        const pid_t child = seen ? fork() : static_cast<pid_t>(syscall(SYS_fork));
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
        ASSERT_EQ(vpm_init_path_user(0, 0, receive, 0, &user), 0);
        events.clear();
        run_verb(open_path());
        EXPECT_EQ(events.size(), 1u);
    }
};

TEST_F(Fork, tells_each_path_user_once_before_the_first_verb_and_leaves_the_rest_to_the_parent)
{
    for (const bool seen : {true, false}) {
        events.clear();
        u32 server = 0;
        u16 asks[2] = {4, DATAGRAM_ANNOUNCE};
        u16 token = vpm_lock();
        vpm_init_path_user(0x20, 1, receive, 0, &server);
        const u32 path = open_path();
        send(path, 1);  // the answers are the parent's
        vpm_send_datagram(DATAGRAM_DESTINATION, 0, asks, sizeof asks);
        const u32 engines = script.engines;
        const auto story = [&] {
            EXPECT_TRUE(events.empty());
            for (int twice = 0; twice < 2; ++twice)
                vpm_unlock(vpm_lock());
            EXPECT_EQ(events, (event_list{{NODE_EVENT_FORKED, 0, 0}, {NODE_EVENT_FORKED, 0, 0}}));
            EXPECT_NE(send(path, 2), 0);
            EXPECT_EQ(open_path(), 0u);
            vpm_unlock(seen ? token : vpm_lock());
            converse();
            EXPECT_EQ(script.engines, engines + 1);
        };
        if (seen)
            EXPECT_TRUE(in_child(story));
        else  // in another thread: the lock that this one holds stays behind
            std::thread{[&] { EXPECT_TRUE(in_child(story, seen)); }}.join();
        vpm_process_pending_events();
        EXPECT_EQ(events, (event_list{{NODE_EVENT_IPS, path, 1}, {NODE_EVENT_DATAGRAM, 0, 0}}));
        vpm_terminate_path_user(server);
        vpm_unlock(token);
    }
}

TEST_F(Fork, inside_a_callback_is_told_at_the_first_verb_there)
{
    const process_lock lock;
    bool child_was_told = false;
    on_event = [&](u32, rcv_info& info) -> u16 {
        if (info.event == NODE_EVENT_IPS)
            child_was_told = in_child([&] {
                events.clear();
                vpm_unlock(vpm_lock());
                EXPECT_EQ(events, (event_list{{NODE_EVENT_FORKED, 0, 0}}));
            });
        return NODE_RESULT_DONE;
    };
    send(open_path(), 1);
    vpm_process_pending_events();
    EXPECT_TRUE(child_was_told);
}

TEST_F(Fork, while_other_threads_sleep_and_deliver_leaves_a_child_that_works)
{
    constexpr int THREADS = 3;
    std::atomic<bool> stop{false};
    std::latch started{THREADS};
    std::vector<std::thread> busy;
    for (int i = 0; i < THREADS; ++i)
        busy.emplace_back([&] {
            const u32 path = open_path();
            for (started.count_down(); !stop; send(path, 0))  // and one that nobody sleeps for
                run_verb(path);
        });
    started.wait();
    for (int i = 0; i < 20; ++i)
        EXPECT_TRUE(in_child([&] {
            converse();
            on_event = [&](u32, rcv_info&) { return delivered.release(), NODE_RESULT_DONE; };
            send(open_path(), 1);
            delivered.acquire();  // by the child's own runtime thread
        }));
    stop = true;
    for (std::thread& thread : busy)
        thread.join();
}

}  // namespace tessaly
