// How a launcher comes, goes, reads its settings again, and what becomes of its work when it or the node is killed.
#include "tests/launcher/launcher.h"

#include <sys/stat.h>

namespace tessaly::launcher {
namespace {

using Launcher = LauncherTest;

TEST_F(Launcher, killed_while_a_start_is_under_way_leaves_it_to_another_or_the_client_with_a_code)
{
    const std::string closer = tp("ECHO", R"("echo", " from the first")", "partner = \"TESSALY.HERE\"");
    const struct { const char* other; const std::string& first; std::string others; answer gets, gets_later; } cases[] = {
        {"none", closer, tp("SINK"), {TRY_AGAIN, ""}, {TRY_AGAIN, ""}},
        {"one that is for any partner", closer, tp("ECHO"), {ok, "hello!"}, {ok, "hello!"}},
        // Two alike: the node takes the definition of one, and the other's when that one is gone.
        {"one with the same settings", closer, closer, {TRY_AGAIN, ""}, {ok, "hello from the first"}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.other);
        start(PATIENT);
        service_process first = launch(each.first), other = launch(each.others, 0, "other.toml");
        EXPECT_EQ(call("ECHO"), (answer{ok, "hello from the first"}));
        first.signal(SIGSTOP);
        client caller;
        caller.call("ECHO");
        EXPECT_NE(status().find("\"state\":\"ASKED\""), std::string::npos) << status();
        first.stop(SIGKILL);
        EXPECT_EQ(caller.ask(), each.gets);
        if (each.gets != each.gets_later) {
            EXPECT_TRUE(other.logs("TP ECHO: defined"));
        } else if (each.gets == answer{TRY_AGAIN, ""}) {
            write_config("[times]\nattach_seconds = 1");
            signal(SIGHUP);
            EXPECT_TRUE(logs("has read its settings again"));
        }
        EXPECT_EQ(call("ECHO"), each.gets_later);
        EXPECT_EQ(other.stop(SIGTERM), 0);
        EXPECT_EQ(stop(SIGTERM), 0);
    }
}

TEST_F(Launcher, leaves_its_programs_to_go_on_when_it_is_killed_or_stops)
{
    start(PATIENT);
    for (const int signal : {SIGKILL, SIGTERM, SIGINT}) {
        const std::string go = directory + "/go";
        ASSERT_EQ(mkfifo(go.c_str(), 0600), 0);
        service_process launcher = launch(tp("ECHO") + tp("HELD", R"("hold", "!", ")" + go + "\""));
        client talking, waiting;
        talking.call("ECHO");
        waiting.call("HELD");
        EXPECT_EQ(talking.ask(), (answer{ok, "hello!"}));
        std::string there = status();  // until the launcher has reported what it has started
        while (there.find("\"state\":\"STARTED\"") == there.npos)
            there = status();
        EXPECT_EQ(launcher.stop(signal), signal == SIGKILL ? SIGKILL : 0);
        EXPECT_EQ(talking.ask("still there?"), (answer{ok, "still there?!"}));
        std::ofstream(go) << "go";
        EXPECT_EQ(waiting.ask(), (answer{ok, "hello!"}));
        std::filesystem::remove(go);
    }
}

TEST_F(Launcher, waits_for_the_node_and_for_the_next_one_when_it_is_killed)
{
    service_process launcher = launch(tp("ECHO"));
    EXPECT_TRUE(launcher.logs("no node: "));
    for (int time = 0; time < 3; ++time) {
        start();
        EXPECT_TRUE(launcher.logs("TP ECHO: defined"));
        EXPECT_EQ(call("ECHO"), (answer{ok, "hello!"}));
        EXPECT_EQ(stop(SIGKILL), SIGKILL);
        EXPECT_TRUE(launcher.logs("the node is gone"));
    }
    EXPECT_EQ(launcher.stop(SIGTERM), 0) << "without a node";
}

TEST_F(Launcher, reads_its_settings_again_and_keeps_them_when_the_file_is_faulty)
{
    start("[times]\nattach_seconds = 1");
    service_process launcher = launch(tp("STAYS") + tp("CHANGES") + tp("GOES"));
    client talking;
    talking.call("GOES");
    EXPECT_EQ(talking.ask(), (answer{ok, "hello!"}));

    const auto reload = [&](const std::string& text) {
        write_settings(text);
        launcher.signal(SIGHUP);
    };
    reload(tp("STAYS") + tp("CHANGES", "\"echo\", \"?\"", "type = \"fast\""));
    EXPECT_TRUE(launcher.logs("must be \"queued\", \"manual\" or \"nonqueued\"") && launcher.logs("stay as they were"));
    EXPECT_EQ(call("CHANGES"), (answer{ok, "hello!"}));
    EXPECT_EQ(call("GOES"), (answer{ok, "hello!"}));

    reload(tp("COMES") + tp("CHANGES", "\"echo\", \"?\"", "type = \"queued\"") + tp("STAYS"));
    EXPECT_TRUE(launcher.logs("has read its settings again"));
    EXPECT_EQ(call("CHANGES"), (answer{ok, "hello?"}));
    EXPECT_NE(status().find("\"type\":\"QUEUED\""), std::string::npos) << status();
    EXPECT_EQ(call("COMES"), (answer{ok, "hello!"}));
    EXPECT_EQ(call("STAYS"), (answer{ok, "hello!"}));
    EXPECT_EQ(call("GOES"), (answer{TRY_AGAIN, ""}));
    EXPECT_EQ(talking.ask("still there?"), (answer{ok, "still there?!"}));
}

TEST_F(Launcher, reads_no_settings_that_somebody_else_could_write)
{
    const std::string file = write_settings(tp("ECHO"));
    const struct { mode_t mode; uid_t owner; int exit_code; const char* told; } cases[] = {
        {0644, 0,        0, ": no faults"},
        {0666, 0,        2, ": others than its owner can write it"},
        {0620, 0,        2, ": others than its owner can write it"},
        {0644, SOMEBODY, 2, ": belongs to another user"},
    };
    for (const auto& each : cases) {
        if (each.owner != 0 && geteuid() != 0)
            continue;
        ASSERT_EQ(chmod(file.c_str(), each.mode), 0);
        ASSERT_EQ(chown(file.c_str(), each.owner == 0 ? geteuid() : each.owner, getegid()), 0);
        std::vector<std::string> words{TESSALY_PROGRAM, "launcher", "--config", file};
        if (each.exit_code == 0)
            words.push_back("--check-config");
        const daemon::ending seen = daemon::run_to_the_end(words);
        EXPECT_EQ(seen.exit_code, each.exit_code) << seen.printed;
        EXPECT_NE(seen.printed.find(file + each.told), std::string::npos) << seen.printed;
    }
}

// The user's name that a client gives is for launchers of root.
TEST_F(Launcher, of_another_user_is_admitted_by_the_nodes_settings_alone_and_learns_no_names)
{
    if (!can_be(SOMEBODY))
        GTEST_SKIP() << "only root can be somebody else, who must reach what was built";
    const std::string admitted = std::string(OPEN_TO_ALL) + "[tp_servers]\nusers = [\"77001\"]\n";
    start(OPEN_TO_ALL);
    {
        const std::string file = write_settings(tp("ECHO", R"("echo", "!")", "user = \"nobody\""));
        const daemon::ending seen = daemon::run_to_the_end({TESSALY_PROGRAM, "launcher", "--config", file}, SOMEBODY);
        EXPECT_EQ(seen.exit_code, 2);
        EXPECT_NE(seen.printed.find("only root starts programs as another user"), std::string::npos) << seen.printed;
        service_process launcher = launch(tp("ECHO"), SOMEBODY);
        EXPECT_TRUE(launcher.logs("TP ECHO: not defined: the node admits no TP server of user 77001"));
        EXPECT_TRUE(logs("user 77001, group 77001: may not be a TP server"));
        write_config(admitted);
        signal(SIGHUP);
        EXPECT_TRUE(launcher.logs("TP ECHO: defined"));
    }
    for (const auto& [user, logged] : {std::pair{uid_t{0}, "asked by TESSALY.HERE, user JOE, for ECHO on THERE: started"},
                                       std::pair{SOMEBODY, "asked by TESSALY.HERE, for ECHO on THERE: started"}}) {
        service_process launcher = launch(tp("ECHO"), user);
        client caller;
        caller.call_with("ECHO", [](appc_allocate_format_0& allocating) {
            allocating.security = APPC_SECURITY_PGM;
            set_ebcdic(allocating.user_id, sizeof allocating.user_id, "JOE");
            set_ebcdic(allocating.pwd, sizeof allocating.pwd, "SECRET");
        });
        EXPECT_EQ(caller.ask(), (answer{ok, "hello!"}));
        EXPECT_TRUE(launcher.logs(logged)) << logged;
    }
}

}  // namespace
}  // namespace tessaly::launcher
