// The socket host over a node that the test plays: what it may send, when it may go, and who reads meanwhile.
#include "played_node.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <thread>

namespace tessaly {

namespace {

// Sends it on this process's own end of the connection until there is no room.
void fill_with(const bytes& filler)
{
    u32 filled = 0;
    for (int fd = 0; fd < 1024; ++fd) {
        sockaddr_un peer{};
        socklen_t length = sizeof peer;
        if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &length) != 0 || place != peer.sun_path)
            continue;
        while (::send(fd, filler.data(), filler.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {}
        filled += errno == EAGAIN;
    }
    EXPECT_EQ(filled, 1u);
}

bool waits_in_kernel(pid_t thread)
{
    std::ifstream stat("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string text;
    std::getline(stat, text);
    return text.find(") S ") != std::string::npos;
}

}  // namespace

// The node is there before the fixture's path user, and goes after it.
class SocketHost : public played_node, public RuntimeTest {
protected:
    SocketHost()
    {
        meet();
        const process_lock lock;
        on_event = [this](u32, rcv_info&) {
            deliverer = std::this_thread::get_id();
            return delivered.release(), NODE_RESULT_DONE;
        };
    }

    using RuntimeTest::send, played_node::send;

    // Once the runtime has delivered so many.
    void expect_events(const event_list& expected)
    {
        for (std::size_t i = 0; i < expected.size(); ++i)
            delivered.acquire();
        const process_lock lock;
        EXPECT_EQ(events, expected);
        events.clear();
    }

    u16 init()
    {
        const process_lock lock;
        vpm_terminate_path_user(std::exchange(user, 0));
        return vpm_init_path_user(0, 0, receive, 0, &user);
    }

    void connect_again()
    {
        expect_client();
        ASSERT_EQ(init(), 0);
        meet();
    }

    static event_list all_lost(const u32 (&paths)[2])
    {
        const auto [first, second] = std::minmax(paths[0], paths[1]);
        return {{NODE_EVENT_PATH_FAILURE, first, 0}, {NODE_EVENT_PATH_FAILURE, second, 0}, {NODE_EVENT_TERMINATED, 0, 0}};
    }

    // In a fork's child, which fails if it hangs.
    template <typename Story>
    static void in_child(Story story)
    {
        const pid_t child = fork();
        if (child == 0) {
            alarm(30);
            story();
            fflush(stdout);
            _exit(HasFailure() ? 1 : 0);
        }
        int how = 0;
        waitpid(child, &how, 0);
        EXPECT_EQ(how, 0);
    }

    std::thread sleeper(u32 path, u32& object)
    {
        return std::thread{[this, path, &object] {
            const process_lock lock;
            object = vpm_allocate_wait_object();
            send(path, object);
            vpm_sleep(object, NO_LIMIT);
            vpm_release_wait_object(object);
        }};
    }

    std::thread::id deliverer;  // guarded by the lock
};

TEST_F(SocketHost, takes_only_a_node_that_greets_it_as_one_and_keeps_no_descriptor_of_others)
{
    hang_up();
    expect_events({{NODE_EVENT_TERMINATED, 0, 0}});
    const auto before = open_descriptors();
    const bytes sound = packet_of({});
    bytes longer = sound;
    longer.push_back(0);
    const std::pair<const char*, bytes> greetings[] = {
        {"closes", {}},
        {"another magic", packet_of({.magic = 1})},
        {"another version", packet_of({.version = PACKET_VERSION + 1})},
        {"too old", packet_of({.version = PACKET_VERSION + 1, .refused = refusal::version})},
        {"not permitted", packet_of({.refused = refusal::not_permitted})},
        {"too many clients", packet_of({.refused = refusal::too_many_clients})},
        {"a reason that is none", packet_of({.refused = static_cast<refusal>(99)})},
        {"short", {sound.begin(), sound.end() - 1}},
        {"long", longer}};
    for (const auto& [name, greeting] : greetings) {
        expect_client(greeting);
        std::thread closes{[this] { hang_up(); }};  // as soon as it has said its word
        EXPECT_EQ(init(), 2) << name;
        closes.join();
        EXPECT_EQ(open_descriptors(), before) << name;
    }
    stop_listening();
    EXPECT_EQ(init(), 2) << "nobody listens";
    EXPECT_EQ(open_descriptors(), before - 1);
    const std::string no_nodes[] = {"unix:", "unix:/nowhere/node", "tcp:here", "unix:/" + std::string(107, 'x')};
    for (const std::string& wrong : no_nodes)
        in_child([&] {
            setenv("TESSALY_NODE", wrong.c_str(), 1);
            EXPECT_EQ(init(), 2) << wrong;
        });
    listen_again();
    expect_client();
    EXPECT_EQ(init(), 0);
}

TEST_F(SocketHost, takes_a_node_that_sends_what_is_no_packet_for_lost_and_connects_again)
{
    const auto message = static_cast<u8>(frame_kind::message);
    const std::pair<const char*, bytes> packets[] = {
        {"empty", {}},
        {"short", bytes(sizeof(packet_header) - 1)},
        {"unknown kind", packet(77, 1)},
        {"a client's kind", packet(frame_kind::path_opened, 1)},
        {"more than it says", packet(message, 1, bytes(8), 0xFFFFFFFF)},
        {"less than it says", packet(message, 1, bytes(8), 1)},
        {"data", packet(message, 1, bytes(8), 0, 1)},
        {"too long", packet(message, 1, bytes(LONGEST_PACKET))}};
    for (const auto& [name, hostile] : packets) {
        SCOPED_TRACE(name);
        const u32 paths[] = {open_path(), open_path()};
        send(paths[0], 1);  // nobody sleeps for it
        send(hostile);
        for (int i = 0; i < 3; ++i)
            delivered.acquire();
        EXPECT_NE(send(paths[1], 1), 0);
        EXPECT_EQ(std::exchange(events, {}), all_lost(paths));
        while (!take().empty()) {}  // to the end of the connection
        hang_up();
        connect_again();
    }
}

TEST_F(SocketHost, delivers_in_order_from_its_own_thread_and_leaves_out_what_concerns_no_path)
{
    const u32 paths[] = {open_path(), open_path()};
    send(paths[0], 1);
    event_list expected;
    for (u32 n = 1; n <= 200; ++n) {
        send(packet(ECHO, 0));  // that nobody has asked for
        send(packet(frame_kind::message, 0x00FF1001, verb(SEND_DATA, n)));
        send(packet(frame_kind::message, paths[n % 2], verb(SEND_DATA, n)));
        expected.push_back({NODE_EVENT_IPS, paths[n % 2], n});
    }
    send(packet(frame_kind::path_failed, paths[1]));
    send(packet(frame_kind::message, paths[0], bytes(sizeof(verb_message_header) - 1)));
    expected.push_back({NODE_EVENT_PATH_FAILURE, paths[1], 0});
    expected.push_back({NODE_EVENT_PATH_FAILURE, paths[0], 0});
    expect_events(expected);
    EXPECT_NE(deliverer, std::this_thread::get_id());
    EXPECT_EQ(header_of(take(frame_kind::path_closed)).path, paths[0]) << "the node is told of a path that it has not failed";
}

TEST_F(SocketHost, goes_on_reading_for_one_caller_when_another_has_its_answer)
{
    const u32 paths[] = {open_path(), open_path()};
    for (const bool older_first : {true, false}) {
        u32 objects[2] = {};
        bytes verbs[2];
        std::thread sleepers[2];
        for (u32 i : {0u, 1u}) {
            sleepers[i] = sleeper(paths[i], objects[i]);
            verbs[i] = take(frame_kind::message);
        }
        for (const bool first : {true, false}) {
            const u32 answered = first == older_first ? 0 : 1;
            send(answer(verbs[answered]));
            sleepers[answered].join();
        }
        EXPECT_EQ(events.size(), 2u);
        events.clear();
    }
}

// With no room left for the request that is to bring the reader back.
TEST_F(SocketHost, brings_back_a_caller_that_another_thread_wakes_though_the_node_is_busy)
{
    u32 object = 0;  // guarded by the lock
    std::thread asleep = sleeper(open_path(), object);
    take(frame_kind::message);
    fill_with(packet(frame_kind::path_closed, 0));
    std::atomic<pid_t> waker = 0;
    std::atomic<bool> has_woken = false;
    std::thread wakes{[&] {
        const process_lock lock;
        waker = gettid();
        vpm_wakeup(object);
        has_woken = true;
    }};
    while (!has_woken && (waker == 0 || !waits_in_kernel(waker)))
        std::this_thread::yield();
    send(take(ECHO));
    wakes.join();
    asleep.join();
}

TEST_F(SocketHost, that_loses_its_node_wakes_all_who_sleep)
{
    const u32 paths[] = {open_path(), open_path()};
    u32 objects[2] = {};
    on_event = [&](u32, rcv_info& info) -> u16 {
        if (info.event == NODE_EVENT_TERMINATED)
            for (const u32 object : objects)
                vpm_wakeup(object);
        return NODE_RESULT_DONE;
    };
    std::thread sleepers[2];
    for (u32 i : {0u, 1u}) {
        sleepers[i] = sleeper(paths[i], objects[i]);
        take(frame_kind::message);
    }
    hang_up();
    for (std::thread& each : sleepers)
        each.join();
    EXPECT_EQ(events, all_lost(paths));
}

TEST_F(SocketHost, without_a_descriptor_is_not_there_until_it_has_all_that_it_needs)
{
    const auto find_no_descriptor = [] {
        const process_lock lock;  // so the fork is reported before
        u32 none = 0;
        rlimit before{};
        getrlimit(RLIMIT_NOFILE, &before);
        const int lowest_free = dup(0);
        close(lowest_free);
        const rlimit none_free{static_cast<rlim_t>(lowest_free), before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none_free);
        const u16 refused = vpm_init_path_user(0, 0, receive, 0, &none);
        setrlimit(RLIMIT_NOFILE, &before);
        EXPECT_EQ(refused, 2);
    };
    hang_up();
    expect_events({{NODE_EVENT_TERMINATED, 0, 0}});  // by the runtime's thread, so it is not just starting when the fork comes
    in_child([&] {
        find_no_descriptor();
        connect_again();
        for (events.clear(); delivered.try_acquire();) {}  // of the fork
        const u32 path = open_path();
        send(path, 1);
        send(answer(take(frame_kind::message)));
        expect_events({{NODE_EVENT_IPS, path, 1}});
        EXPECT_NE(send(path, bytes(3)), 0);  // which breaks the path while the runtime's thread waits for the node
        expect_events({{NODE_EVENT_PATH_FAILURE, path, 0}});
    });
}

TEST_F(SocketHost, of_a_parent_ends_with_the_parent_though_its_child_lives)
{
    hang_up();
    expect_events({{NODE_EVENT_TERMINATED, 0, 0}});
    expect_client();
    int talk[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, talk), 0);
    char alive = 0;
    in_child([&] {
        EXPECT_EQ(init(), 0);
        if (fork() == 0) {
            close(talk[0]);
            alarm(30);
            _exit(recv(talk[1], &alive, 1, 0) == 1 && ::send(talk[1], &alive, 1, 0) == 1 ? 0 : 1);
        }
    });
    meet();
    close(talk[1]);
    EXPECT_TRUE(take().empty());
    EXPECT_EQ(::send(talk[0], "?", 1, MSG_NOSIGNAL), 1);
    EXPECT_EQ(recv(talk[0], &alive, 1, 0), 1) << "the child has not outlived the connection";
    close(talk[0]);
}

}  // namespace tessaly
