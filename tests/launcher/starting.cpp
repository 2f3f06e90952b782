// What a started program is given, and what clients get where none can be.
#include "tests/launcher/launcher.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>

#include <deque>
#include <regex>
#include <set>
#include <sstream>

namespace tessaly::launcher {
namespace {

using Launcher = LauncherTest;

// What a program of that user tells of itself, up to the data of its stdin.
std::string expected_of(const std::string& user, const std::string& socket, const char* sign)
{
    const passwd& who = user.empty() ? *getpwuid(geteuid()) : *getpwnam(user.c_str());
    std::vector<gid_t> groups(100);
    int count = 100;
    count = user.empty() ? getgroups(count, groups.data())
                         : (getgrouplist(who.pw_name, who.pw_gid, groups.data(), &count), count);
    groups.resize(static_cast<std::size_t>(count));
    unsigned char user_id[10];
    set_ebcdic(user_id, sizeof user_id, "JOE");
    std::ostringstream text;
    text << "user " << std::string(user_id, user_id + sizeof user_id) << "\nAPPC_ATTACH_ID=its own\nHOME=" << who.pw_dir
         << "\nLOGNAME=" << who.pw_name << "\nPATH=/usr/local/bin:/usr/bin:/bin\nSHELL=" << who.pw_shell << sign
         << "\nTESSALY_NODE=unix:" << socket << "\nUSER=" << who.pw_name << "\ndescriptors 0 1 2\nids " << who.pw_uid << ' '
         << who.pw_uid << ' ' << who.pw_gid << ' ' << who.pw_gid << "\ngroups";
    for (const gid_t each : std::set<gid_t>(groups.begin(), groups.end()))
        text << ' ' << each;
    return text.str() + "\nstdin ";
}

TEST_F(Launcher, gives_a_program_its_conversation_its_users_rights_and_nothing_else)
{
    const struct { const char *user, *more, *sign, *launchers; std::size_t pip; } cases[] = {
        {"", "", "", "", 0},
        {"", "environment = { SIGN = \"of its own\", HOME = \"/\" }", "\nSIGN=of its own", "", 32'767},
        {"", "", "", "<&- >&- 2>&-", 10},
        {"nobody", "user = \"nobody\"", "", "", 1000},
    };
    const int left_open = open("/dev/null", O_RDONLY);  // not for programs
    setenv("SECRET", "of the launcher", 1);
    start(OPEN_TO_ALL);
    for (const auto& each : cases) {
        SCOPED_TRACE(each.more + std::string(each.launchers));
        if (*each.user != '\0' && !can_be(getpwnam(each.user)->pw_uid))
            GTEST_SKIP() << "only root can be somebody else, who must reach what was built";
        const std::string file = write_settings(tp("TELL", R"("tell")", each.more));
        const std::string command = std::string("exec \"$0\" launcher --config \"$1\" ") + each.launchers;
        const service_process launcher{{"/bin/sh", "-c", command, TESSALY_PROGRAM, file}, directory};
        std::string pip(each.pip, '\0');
        for (std::size_t at = 0; at < pip.size(); ++at)
            pip[at] = static_cast<char>(at * at >> 3);
        client caller;
        caller.call_with("TELL", [&](appc_allocate_format_0& allocating) {
            allocating.security = APPC_SECURITY_PGM;
            set_ebcdic(allocating.user_id, sizeof allocating.user_id, "JOE");
            allocating.pip_dptr = pip.data();
            allocating.pip_dlen = static_cast<appc_u16>(pip.size());
        });
        const answer told = caller.ask();
        EXPECT_EQ(told.outcome, ok);
        const std::size_t input = told.data.find("stdin ") + 6;
        EXPECT_TRUE(told.data.substr(input) == pip) << told.data.size() - input << " bytes instead of " << pip.size();
        std::string expected = expected_of(each.user, socket, each.sign);
        if (pip.size() == 32'767)
            expected = std::regex_replace(expected, std::regex("HOME=.*"), "HOME=/");
        EXPECT_EQ(std::regex_replace(told.data.substr(0, input), std::regex("ID=[0-9a-f]{16}\n"), "ID=its own\n"), expected);
    }
    close(left_open);
}

TEST_F(Launcher, answers_for_programs_that_cannot_be_started_or_leave)
{
    start(PATIENT);
    service_process launcher =
        launch("[[tp]]\ntp_name = \"MISSING\"\ncommand = [\"/no/such/program\"]\n" +
               std::string("[[tp]]\ntp_name = \"DATA\"\ncommand = [\"/etc/passwd\"]\n") + tp("LEAVES", R"("leave")") +
               tp("ECHO"));
    const struct { const char* name; answer gets; const char* logged; } cases[] = {
        {"MISSING",   {NOT_THERE, ""}, "for MISSING on THERE: cannot be started: /no/such/program: No such file or directory"},
        {"DATA",      {NOT_THERE, ""}, "cannot be started: /etc/passwd: Permission denied"},
        {"LEAVES",    {TRY_AGAIN, ""}, "ended with exit code 3"},
        {"ECHO",      {ok, "hello!"},  "asked by TESSALY.HERE, for ECHO on THERE: started as process"},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(call(each.name), each.gets) << each.name;
        EXPECT_TRUE(launcher.logs(each.logged)) << each.logged;
    }
}

TEST_F(Launcher, runs_as_many_programs_as_it_may_and_refuses_the_others)
{
    start(PATIENT);
    for (const auto& [general, of_the_tp] : {std::pair{"", "most = 1"}, std::pair{"[limits]\nprograms = 1\n", ""}}) {
        service_process launcher = launch(general + tp("ECHO", R"("echo", "!")", of_the_tp));
        for (int time = 0; time < 2; ++time) {
            {
                client first;
                first.call("ECHO");
                EXPECT_EQ(first.ask(), (answer{ok, "hello!"})) << time;
                EXPECT_EQ(call("ECHO"), (answer{TRY_AGAIN, ""}));
                EXPECT_TRUE(launcher.logs("refused, since 1 of these and 1 programs in all run already"));
            }
            EXPECT_TRUE(launcher.logs("ended with exit code 0"));
        }
    }
}

TEST_F(Launcher, lets_those_call_whom_its_settings_name)
{
    start(PATIENT);
    service_process launcher = launch(tp("ECHO", R"("echo", " for a friend")", "partner = \"TESSALY.FR*\"\nlu = \"THERE\"") +
                                      tp("LOCAL", R"("echo", "!")", "lu = \"AWAY\""));
    EXPECT_EQ(call("ECHO", "FRIEND"), (answer{ok, "hello for a friend"}));
    write_config("[times]\nattach_seconds = 1");  // for which a conversation waits for some other program
    signal(SIGHUP);
    ASSERT_TRUE(logs("has read its settings again"));
    EXPECT_EQ(call("ECHO", "OTHER"), (answer{TRY_AGAIN, ""}));
    EXPECT_EQ(call("LOCAL", "FRIEND"), (answer{TRY_AGAIN, ""})) << "on another LU";
    EXPECT_EQ(launcher.stop(SIGTERM), 0);
    const std::string log = launcher.rest_of_log();
    EXPECT_NE(log.find("asked by TESSALY.FRIEND, for ECHO"), log.npos) << log;
    EXPECT_EQ(log.find("OTHER"), log.npos) << log;
    EXPECT_EQ(log.find("LOCAL on"), log.npos) << log;
}

TEST_F(Launcher, loses_none_of_very_many_conversations)
{
    constexpr std::size_t MANY = 500;
    const struct { const char* most; bool refuses; } cases[] = {{"most = 500", false}, {"most = 5", true}};
    start(std::string("[log]\nlevel = \"warning\"\n") + PATIENT);
    for (const auto& each : cases) {
        SCOPED_TRACE(each.most);
        const service_process launcher =
            launch("[log]\nlevel = \"error\"\n[limits]\nprograms = 500\n" + tp("ECHO", R"("echo", "!")", each.most));
        std::deque<client> clients;
        std::deque<std::string> buffers;
        std::deque<talking::issued<appc_receive>> waits;
        for (std::size_t at = 0; at < MANY; ++at) {
            clients.emplace_back().call("ECHO");
            waits.emplace_back(clients.back().receiving(buffers.emplace_back(100, '\0')));
        }
        std::size_t answered = 0, refused = 0;
        for (std::size_t at = 0; at < MANY; ++at) {
            const codes outcome = waits[at].outcome();
            answered += outcome == ok && buffers[at].substr(0, waits[at].vcb.dlen) == "!";
            refused += outcome == TRY_AGAIN;
            clients.pop_front();
        }
        EXPECT_EQ(answered + refused, MANY) << answered << " answered";
        EXPECT_GE(answered, 1u);
        EXPECT_EQ(refused != 0, each.refuses) << refused;
        const std::string left = status();
        EXPECT_NE(left.find("\"starts\":[]"), left.npos) << left;
        EXPECT_NE(left.find("\"attaches_waiting\":0"), left.npos) << left;
    }
}

}  // namespace
}  // namespace tessaly::launcher
