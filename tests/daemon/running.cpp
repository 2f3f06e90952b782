// How the node starts, stops, reads its settings again, and starts programs.
#include "tests/daemon/daemon.h"
#include "tests/e2e/talking.h"

#include <sys/prctl.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <fstream>

namespace tessaly::daemon {
namespace {

using node::frame_kind;
using talking::codes;
using talking::ok;
using talking::program;

constexpr codes NOT_AVAILABLE{APPC_ALLOCATION_ERROR, APPC_SEC_TRANS_PGM_NOT_AVAIL_RETRY};
constexpr codes NO_SUCH_LU{APPC_PARAMETER_CHECK, APPC_SEC_BAD_LU_ALIAS};

using Running = DaemonTest;

TEST_F(Running, node_stops_on_either_signal_and_tells_its_clients)
{
    for (const int number : {SIGTERM, SIGINT}) {
        start();
        raw_client client{socket}, silent{socket};
        ASSERT_TRUE(client.greet());
        EXPECT_EQ(stop(number), 0);
        EXPECT_EQ(client.receive(), packet(frame_kind::terminated, 0));
        EXPECT_TRUE(client.is_dropped() && silent.is_dropped());
        EXPECT_FALSE(std::filesystem::exists(socket));
    }
}

TEST_F(Running, node_that_stops_waits_only_so_long_for_those_who_take_nothing)
{
    start("[times]\nstop_seconds = 0");
    raw_client stuck{socket};
    ASSERT_TRUE(stuck.greet());
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(stuck.send(echo(100'000)));
    EXPECT_EQ(stop(SIGTERM), 0);
}

TEST_F(Running, socket_file_is_replaced_only_when_nobody_listens_on_it)
{
    const std::initializer_list<const char*> again = {"--foreground", "--socket", socket.c_str()};
    start();
    const ending second = run(again);
    EXPECT_EQ(second.exit_code, 1);
    EXPECT_EQ(second.printed, "tessaly-node: " + socket + ": a node listens there already\n");
    EXPECT_TRUE(raw_client{socket}.greet());
    stop(SIGKILL);
    EXPECT_TRUE(std::filesystem::exists(socket));
    start();
    EXPECT_TRUE(raw_client{socket}.greet());
    EXPECT_EQ(stop(SIGTERM), 0);
    std::ofstream(socket) << "kept";
    EXPECT_EQ(run(again).printed, "tessaly-node: " + socket + ": exists and is no socket\n");
    EXPECT_TRUE(std::filesystem::exists(socket));
}

TEST_F(Running, command_line_decides_how_the_program_ends)
{
    write_config("");
    const std::string faulty = directory + "/faulty.toml";
    std::ofstream(faulty) << "nmae = 1\n";
    const std::string told = faulty + ":1:1: unknown setting \"nmae\"; did you mean \"name\"?\n    nmae = 1\n    ^~~~\n";
    // clang-format off
    const struct { std::initializer_list<const char*> words; int exit_code; std::string printed; } cases[] = {
        {{"--check-config", "--config", config.c_str()}, 0, config + ": no faults\n"},
        {{"--check-config", "--config", faulty.c_str()}, 1, told},
        {{"--config", faulty.c_str()},                   1, told},
        {{"--foreground", "--socket", "/no/such/s"},     1, "tessaly-node: /no/such/s: No such file or directory\n"},
        {{"--sokcet"},                                   2, "The following argument was not expected: --sokcet\n"},
        {{"--help"},                                     0, "Example:\n  tessaly-node --socket"},
    };
    // clang-format on
    for (const auto& each : cases) {
        const ending seen = run(each.words);
        EXPECT_EQ(seen.exit_code, each.exit_code) << seen.printed;
        EXPECT_NE(seen.printed.find(each.printed), std::string::npos) << seen.printed;
    }
}

TEST_F(Running, node_goes_into_the_background_once_it_listens)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    EXPECT_EQ(run({"--socket", socket.c_str()}).exit_code, 0);
    const std::string document = status();
    const std::size_t at = document.find("\"pid\":");
    ASSERT_NE(at, document.npos) << document;
    const pid_t node = std::stoi(document.substr(at + 6));
    EXPECT_EQ(getsid(node), node);
    kill(node, SIGTERM);
    int how = -1;
    EXPECT_EQ(waitpid(node, &how, 0), node);
    EXPECT_EQ(how, 0);
}

TEST_F(Running, settings_are_read_again_and_conversations_go_on)
{
    const std::string before = "[[lu]]\nalias = \"HERE\"\n";
    start(before);
    program a = program::start("HERE", "A");
    a.allocate("HERE", "SINK");
    const program b = program::accept("SINK");
    program refused;
    EXPECT_EQ(refused.try_to_start("LATER", "X"), NO_SUCH_LU);
    write_config(before + "[[lu]]\nalias = 1\n");
    signal(SIGHUP);
    EXPECT_TRUE(logs(":5:9: must be a text in quotes") && logs("stay as they were"));
    write_config(before + "[[lu]]\nalias = \"LATER\"\n");
    signal(SIGHUP);
    EXPECT_TRUE(logs("has read its settings again"));
    EXPECT_EQ(a.send("still on"), ok);
    EXPECT_EQ(b.receive().data, "still on");
    program::start("LATER", "X");
}

// What becomes of a conversation with a TP for which the node starts a program.
TEST_F(Running, programs_are_started_for_the_attaches_that_nobody_takes)
{
    const std::string command = std::string("command = [\"") + TESSALY_STARTED_PROGRAM + "\", ";
    start("[[program]]\ntp_name = \"ECHO\"\n" + command + "\"echo\"]\nenvironment = { SIGN = \"!\" }\n" +
          "[[program]]\ntp_name = \"LEAVE\"\n" + command + "\"leave\"]\n" +
          "[[program]]\ntp_name = \"MISSING\"\ncommand = [\"/no/such/program\"]\n" + "[limits]\nprograms = 1\n");
    const struct { const char *tp_name, *logged; } failing[] = {
        {"LEAVE", "ended with exit code 3"}, {"MISSING", "/no/such/program: No such file"}};
    program self = program::start("HERE", "CALLER");
    for (const auto& each : failing) {
        self.allocate("HERE", each.tp_name);
        EXPECT_EQ(self.receive().outcome, NOT_AVAILABLE) << each.tp_name;
        EXPECT_TRUE(logs(each.logged));
    }
    for (int time = 0; time < 2; ++time) {
        self.allocate("HERE", "ECHO");
        program other = program::start("HERE", "OTHER");
        other.allocate("HERE", "ECHO");
        EXPECT_EQ(other.receive().outcome, NOT_AVAILABLE) << "one program at a time";
        EXPECT_EQ(self.send("hello"), ok);
        EXPECT_EQ(self.receive().data, "hello from echo!");
        EXPECT_EQ(self.receive().outcome, (codes{APPC_DEALLOC_NORMAL, 0}));
        EXPECT_TRUE(logs("ended with exit code 0"));
    }
}

}  // namespace
}  // namespace tessaly::daemon
