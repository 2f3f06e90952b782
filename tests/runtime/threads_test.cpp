// Who delivers when several threads are there, and that nobody is kept out. No case waits for time to pass.
#include "runtime_fixture.h"

#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <set>
#include <thread>

namespace tessaly {

namespace {

class Threads : public RuntimeTest {
protected:
    static constexpr u32 THREADS = 4;
    static constexpr u32 VERBS = 500;

    // A thread without the lock waits here until the callbacks have reported so many events.
    class counter {
    public:
        void add()
        {
            const std::lock_guard lock{mutex_};
            ++count_;
            changed_.notify_all();
        }
        void wait_for(u32 count)
        {
            std::unique_lock lock{mutex_};
            changed_.wait(lock, [&] { return count_ >= count; });
        }

    private:
        std::mutex mutex_;
        std::condition_variable changed_;
        u32 count_ = 0;
    };

    u32 locked_open_path() const
    {
        const process_lock lock;
        return open_path();
    }

    counter delivered;
    std::set<std::thread::id> deliverers;  // guarded by the lock
};

TEST_F(Threads, that_only_issue_asynchronous_verbs_leave_delivery_to_one_other_thread)
{
    on_event = [&](u32, rcv_info&) {
        deliverers.insert(std::this_thread::get_id());
        delivered.add();
        return NODE_RESULT_DONE;
    };
    std::vector<std::thread> senders;
    std::set<std::thread::id> sender_ids;
    for (u32 i = 0; i < THREADS; ++i)
        senders.emplace_back([this] {
            const u32 path = locked_open_path();
            for (u32 n = 0; n < VERBS; ++n) {
                const process_lock lock;
                EXPECT_EQ(send(path, verb(SEND_DATA, n + 1)), 0);
            }
        });
    for (std::thread& sender : senders)
        sender_ids.insert(sender.get_id());
    delivered.wait_for(THREADS * VERBS);
    for (std::thread& sender : senders)
        sender.join();

    const process_lock lock;
    EXPECT_EQ(deliverers.size(), 1u);
    EXPECT_FALSE(sender_ids.contains(*deliverers.begin()));
    EXPECT_NE(*deliverers.begin(), std::this_thread::get_id());
}

TEST_F(Threads, that_sleep_each_get_their_own_answer)
{
    u32 answers = 0;  // guarded by the lock
    on_event = [&](u32, rcv_info& info) {
        ++answers;
        vpm_wakeup(pend_of(info));  // the verbs below name their wait object
        return NODE_RESULT_DONE;
    };
    std::vector<std::thread> callers;
    for (u32 i = 0; i < THREADS; ++i)
        callers.emplace_back([this] {
            const u32 path = locked_open_path();
            for (u32 n = 0; n < VERBS; ++n) {
                const process_lock lock;
                const u32 object = vpm_allocate_wait_object();
                vpm_process_pending_events();
                send(path, verb(SEND_DATA, object));
                vpm_sleep(object, NO_LIMIT);
                vpm_release_wait_object(object);
            }
        });
    for (std::thread& caller : callers)
        caller.join();
    const process_lock lock;
    EXPECT_EQ(answers, THREADS * VERBS);
    for (const event& one : events)
        EXPECT_EQ(one.kind, NODE_EVENT_IPS);
}

TEST_F(Threads, that_sleep_deliver_for_others)
{
    const u32 path = locked_open_path();
    u32 object = 0;
    bool asleep = false;  // all guarded by the lock
    on_event = [&](u32, rcv_info& info) {
        deliverers.insert(std::this_thread::get_id());
        if (pend_of(info) == VERBS)
            vpm_wakeup(object);
        delivered.add();
        return NODE_RESULT_DONE;
    };
    {
        const process_lock lock;
        send(path, verb(SEND_DATA, 1));
    }
    delivered.wait_for(1);  // so there is a runtime thread
    std::thread sleeper{[&] {
        const process_lock lock;
        object = vpm_allocate_wait_object();
        asleep = true;
        vpm_sleep(object, NO_LIMIT);
        vpm_release_wait_object(object);
    }};
    const std::thread::id sleeper_id = sleeper.get_id();
    for (bool sleeps = false; !sleeps;) {
        const process_lock lock;
        sleeps = asleep;
        if (sleeps)
            deliverers.clear();
    }
    for (u32 n = 1; n <= VERBS; ++n) {
        const process_lock lock;
        send(path, verb(SEND_DATA, n));
    }
    sleeper.join();
    const process_lock lock;
    EXPECT_EQ(deliverers, (std::set{sleeper_id}));
}

TEST_F(Threads, are_not_kept_out_by_callbacks_that_never_stop_issuing_verbs)
{
    const u32 path = locked_open_path();
    bool stop = false;  // guarded by the lock
    on_event = [&](u32, rcv_info&) {
        events.clear();
        script.seen.clear();
        if (!stop)
            send(path, verb(SEND_DATA, 1));
        delivered.add();
        return NODE_RESULT_DONE;
    };
    {
        const process_lock lock;
        send(path, verb(SEND_DATA, 1));
    }
    delivered.wait_for(1);
    for (u32 n = 0; n < VERBS; ++n) {
        const process_lock lock;
        const u32 object = vpm_allocate_wait_object();
        std::thread other{[object] {
            const process_lock other_lock;
            vpm_wakeup(object);
        }};
        vpm_sleep(object, NO_LIMIT);
        vpm_release_wait_object(object);
        other.join();
    }
    const process_lock lock;
    stop = true;
}

std::size_t threads_of_process()
{
    using tasks = std::filesystem::directory_iterator;
    return static_cast<std::size_t>(std::distance(tasks{"/proc/self/task"}, tasks{}));
}

TEST_F(Threads, are_not_started_for_synchronous_verbs)
{
    const auto converse = [this] {
        u16 token = vpm_lock();
        vpm_init_path_user(0, 0, receive, 0, &user);
        const u32 path = open_path();
        on_event = [](u32, rcv_info& info) { return vpm_wakeup(pend_of(info)), NODE_RESULT_DONE; };
        const std::size_t before = threads_of_process();
        for (u32 n = 0; n < VERBS; ++n) {
            const u32 object = vpm_allocate_wait_object();
            vpm_process_pending_events();
            send(path, verb(SEND_DATA, object));
            vpm_sleep(object, NO_LIMIT);
            vpm_release_wait_object(object);
            vpm_unlock(token);
            token = vpm_lock();
        }
        std::_Exit(path != 0 && threads_of_process() == before ? 0 : 1);
    };
    // In a process of its own: other cases have started the thread in this one.
    EXPECT_EXIT(converse(), testing::ExitedWithCode(0), "");
}

}  // namespace

}  // namespace tessaly
