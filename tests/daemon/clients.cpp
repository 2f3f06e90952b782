// What clients can do to the node, and that the others go on.
#include "tests/daemon/daemon.h"

#include "localnode/runtime/slots.h"
#include "tests/e2e/talking.h"
#include "wire/tp_server_datagrams.h"

#include <grp.h>
#include <sys/wait.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>

namespace tessaly::daemon {
namespace {

using node::frame_kind;
using talking::ok;

// A client that behaves: two TPs of this process converse through the node.
class good_client {
public:
    good_client()
    {
        caller.allocate("THERE", "SINK");
        EXPECT_EQ(called.try_to_accept("SINK"), ok);
    }
    void expect_to_go_on()
    {
        EXPECT_EQ(caller.send("hello"), ok);
        EXPECT_EQ(called.receive().data, "hello");
    }

private:
    talking::program caller = talking::program::start("HERE", "CALLER");
    talking::program called;
};

struct hostile {
    const char* what;
    std::string first;   // sent instead of a hello; empty: a hello
    std::string packet;  // sent then
    const char* logged;
};

std::string in_slot(u8 slot, u32 block_bytes, u32 data_bytes = 0)
{
    return bytes_of(node::packet_header{.kind = static_cast<u8>(frame_kind::message),
                                        .slot = slot,
                                        .path = 7,
                                        .block_bytes = block_bytes,
                                        .data_bytes = data_bytes});
}

const std::string HELLO = bytes_of(node::hello{});

// clang-format off
const hostile hostiles[] = {
    {"no hello",            "GET / HTTP/1.0\r\n", "",                                       "did not greet"},
    {"half a hello",        HELLO.substr(0, 4),   "",                                       "did not greet"},
    {"another magic",       bytes_of(node::hello{.magic = 1}), "",                          "did not greet"},
    {"a frame first",       packet(frame_kind::path_opened, 1), "",                         "did not greet"},
    {"a short packet",      "", std::string(15, '\0'),                                      "no frame"},
    {"an unknown kind",     "", packet(static_cast<frame_kind>(200), 1),                    "no frame"},
    {"the host's frames",   "", packet(frame_kind::time_passed, 0),                         "no frame"},
    {"another's end",       "", packet(frame_kind::client_gone, 0),                         "no frame"},
    {"a program's end",     "", packet(frame_kind::program_ended, 0x10001),                 "no frame"},
    {"a block too long",    "", packet(frame_kind::message, 1, 100) + std::string(99, 'x'), "no frame"},
    {"a huge block",        "", packet(frame_kind::message, 1, 0xFFFFFFF0, 16),             "no frame"},
    {"bytes left over",     "", packet(frame_kind::message, 1, 99) + std::string(100, 'x'), "no frame"},
    {"a path with a block", "", packet(frame_kind::path_opened, 1, 4) + "bloc",             "no frame"},
    {"a server with data",  "", packet(frame_kind::tp_server_opened, 1, 4) + "bloc",        "no frame"},
    {"a datagram's data",   "", packet(frame_kind::datagram, 0, 0, 4) + "data",             "no frame"},
    {"a packet too long",   "", echo(node::LONGEST_PACKET),                                 "too long"},
    {"the node's own slot", "", in_slot(1, 100),                                            "not there"},
    {"a slot too many",     "", in_slot(5, 100),                                            "not there"},
    {"more than a slot",    "", in_slot(3, node::SLOT_BYTES, 1),                            "not there"},
    {"far more than that",  "", in_slot(3, 0xFFFFFFFF, 1),                                  "not there"},
    {"a slot and bytes",    "", in_slot(3, 100) + "x",                                      "not there"},
};
// clang-format on

using Clients = DaemonTest;

TEST_F(Clients, that_send_nonsense_are_dropped_with_a_line_and_harm_nobody)
{
    start();
    good_client good;
    for (const hostile& each : hostiles) {
        SCOPED_TRACE(each.what);
        raw_client client{socket};
        if (!each.first.empty())
            EXPECT_TRUE(client.send(each.first));
        else
            EXPECT_TRUE(client.greet() && client.send(each.packet));
        EXPECT_TRUE(client.is_dropped());
        EXPECT_TRUE(logs(each.logged));
        good.expect_to_go_on();
    }
}

TEST_F(Clients, messages_that_no_verb_is_fail_their_path_only)
{
    start();
    good_client good;
    raw_client client{socket};
    ASSERT_TRUE(client.greet());
    for (const u32 bytes : {0u, 3u, 112u, 300u, 100'001u}) {
        EXPECT_TRUE(client.send(packet(frame_kind::path_opened, 7)));
        EXPECT_TRUE(client.send(packet(frame_kind::message, 7, bytes) + std::string(bytes, 'x')));
        EXPECT_EQ(client.receive(), packet(frame_kind::path_failed, 7)) << bytes;
        EXPECT_TRUE(client.send(packet(frame_kind::datagram, 0, bytes) + std::string(bytes, 'x')));
    }
    runtime::slots memory;
    ASSERT_TRUE(memory.take_over(client.memory()));
    const std::vector<u8> long_one(node::SLOT_BYTES, 'x');
    for (int i = 0; i < 3; ++i) {
        const u8 slot = memory.put(long_one, {});
        EXPECT_EQ(slot, node::SLOTS_EACH_WAY + 1) << "the node has freed it before it answered";
        EXPECT_TRUE(client.send(packet(frame_kind::path_opened, 7)) && client.send(in_slot(slot, node::SLOT_BYTES)));
        EXPECT_EQ(client.receive(), packet(frame_kind::path_failed, 7));
    }
    EXPECT_TRUE(client.send(echo(10)));
    EXPECT_EQ(client.receive(), echo(10));
    good.expect_to_go_on();
}

TEST_F(Clients, that_take_nothing_lose_their_place_and_keep_nobody_waiting)
{
    start("[limits]\nqueued_mib_per_client = 1\npaths_per_client = 3\nclients = 3");
    good_client good;
    raw_client greedy{socket};
    ASSERT_TRUE(greedy.greet());
    raw_client third{socket};
    EXPECT_TRUE(third.greet());
    raw_client fourth{socket};
    EXPECT_TRUE(fourth.send(bytes_of(node::hello{})));
    EXPECT_EQ(fourth.receive(), bytes_of(node::welcome{.refused = node::refusal::too_many_clients}));
    EXPECT_TRUE(fourth.is_dropped());
    u32 sent = 0;
    while (sent < 100 && greedy.send(echo(100'000)))  // the node goes on reading, so this never blocks for good
        ++sent;
    EXPECT_GE(sent, 10u);
    EXPECT_TRUE(logs("does not take what it is sent"));
    good.expect_to_go_on();
    for (u32 path = 1; path <= 4; ++path)
        EXPECT_TRUE(third.send(packet(frame_kind::path_opened, path)));
    EXPECT_EQ(third.receive(), packet(frame_kind::path_failed, 4));
    EXPECT_TRUE(third.send(packet(frame_kind::path_closed, 1)) && third.send(packet(frame_kind::path_opened, 4)));
    EXPECT_TRUE(third.send(echo()));
    EXPECT_EQ(third.receive(), echo()) << "a path is free again";
}

TEST_F(Clients, another_version_is_told_so_and_the_status_shows_who_is_there)
{
    start("name = \"NODE1\"");
    raw_client newer{socket};
    EXPECT_TRUE(newer.send(bytes_of(node::hello{.version = node::PACKET_VERSION + 1})));
    EXPECT_EQ(newer.receive(), bytes_of(node::welcome{.refused = node::refusal::version}));
    EXPECT_TRUE(newer.is_dropped());
    good_client good;
    const std::string document = status();
    for (const std::string& part : std::initializer_list<std::string>
             {"\"node\":\"NODE1\"", "\"paths\":2", "\"pid\":" + std::to_string(getpid()) + ",", "\"tp_name\":\"SINK\"",
              "\"state\":\"SEND\"", "\"lu\":\"THERE\"", "\"name\":\"CALLER\"", "\"queued_bytes\":0"})
        EXPECT_NE(document.find(part), document.npos) << part << " in " << document;
}

// What a process of that user, with these groups, is answered as a TP server: the status of its definition.
int define_as(const std::string& socket, uid_t user, std::vector<gid_t> groups)
{
    const pid_t child = fork();
    if (child == 0) {
        if (setgroups(groups.size(), groups.data()) != 0 || setgid(user) != 0 || setuid(user) != 0)
            _exit(100);
        raw_client client{socket};
        update_tp_info_datagram wanted{};
        wanted.header = {sizeof wanted, TPS_MSG_UPDATE_TP_INFO};
        wanted.action = TPS_TP_ADD;
        wanted.tp_type = 1;
        std::memset(wanted.tp_name, 0xC1, sizeof wanted.tp_name);
        const std::string define = packet(frame_kind::datagram, 0, sizeof wanted) + bytes_of(wanted);
        const bool asked = client.greet() && client.send(packet(frame_kind::tp_server_opened, 7)) && client.send(define);
        const std::string got = asked ? client.receive().value_or("") : "";
        update_tp_rsp_datagram answer{};
        if (got.size() == sizeof(node::packet_header) + sizeof answer)
            std::memcpy(&answer, got.data() + sizeof(node::packet_header), sizeof answer);
        _exit(answer.header.type == TPS_MSG_UPDATE_TP_RSP ? static_cast<int>(answer.status) : 101);
    }
    int how = 0;
    waitpid(child, &how, 0);
    return WEXITSTATUS(how);
}

TEST_F(Clients, are_tp_servers_only_when_the_settings_admit_them_and_the_log_tells_who_is_not)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can be somebody else";
    constexpr uid_t SOMEBODY = 77'001;
    const std::string open_to_all = "[access]\nmode = \"0666\"\n[tp_servers]\n";
    // clang-format off
    const struct { const char* admitted; uid_t user; std::vector<gid_t> groups; int status; } cases[] = {
        {"",                         0,        {},              0},
        {"",                         SOMEBODY, {77'003, 0},     1},
        {"users = [\"77001\"]",      SOMEBODY, {},              0},
        {"users = [\"77002\"]",      SOMEBODY, {},              1},
        {"groups = [\"77001\"]",     SOMEBODY, {},              0},  // the child's group is as its user
        {"groups = [\"77003\"]",     SOMEBODY, {77'002, 77'003}, 0},
        {"groups = [\"77003\"]",     SOMEBODY, {77'002},        1},
    };
    // clang-format on
    std::filesystem::permissions(directory, std::filesystem::perms(0755));
    start(open_to_all);
    for (const auto& each : cases) {
        write_config(open_to_all + each.admitted);
        signal(SIGHUP);
        EXPECT_TRUE(logs("has read its settings again"));
        EXPECT_EQ(define_as(socket, each.user, each.groups), each.status) << each.admitted << " as " << each.user;
        EXPECT_TRUE(each.status == 0 || logs("user 77001, group 77001: may not be a TP server"));
    }
    EXPECT_EQ(define_as(socket, SOMEBODY, std::vector<gid_t>(100, 77'004)), 1) << "with more groups than most have";
    EXPECT_TRUE(logs("may not be a TP server"));
}

TEST_F(Clients, only_those_who_may_connect_do)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can be somebody else";
    constexpr uid_t ALLOWED = 77'001, OTHER = 77'002;
    // clang-format off
    const struct { const char* access; uid_t user; int expected; } cases[] = {
        {"mode = \"0666\"\nusers = [\"77001\"]",             ALLOWED, 0},
        {"mode = \"0666\"\nusers = [\"77001\"]",             OTHER,   1},
        {"mode = \"0666\"\ngroups = [\"77002\"]",            OTHER,   0},  // the child's group is as its user
        {"mode = \"0600\"",                                  OTHER,   2},
        {"mode = \"0660\"\ngroup = \"daemon\"",              OTHER,   2},
    };
    // clang-format on
    std::filesystem::permissions(directory, std::filesystem::perms(0755));
    for (const auto& each : cases) {
        start(std::string("[access]\n") + each.access);
        const pid_t child = fork();
        if (child == 0) {
            const bool dropped = setgid(each.user) == 0 && setuid(each.user) == 0 && access(socket.c_str(), W_OK) == 0;
            if (!dropped)
                _exit(2);
            raw_client client{socket};
            client.send(bytes_of(node::hello{}));
            const std::optional<std::string> got = client.receive();
            _exit(got == bytes_of(node::welcome{})                                                  ? 0
                  : got == bytes_of(node::welcome{.refused = node::refusal::not_permitted}) ? 1 : 3);
        }
        int how = 0;
        waitpid(child, &how, 0);
        EXPECT_EQ(WEXITSTATUS(how), each.expected) << each.access << " as " << each.user;
        EXPECT_EQ(stop(SIGTERM), 0);
    }
}

}  // namespace
}  // namespace tessaly::daemon
