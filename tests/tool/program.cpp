// The tool as its users have it: command line in; output, talk and exit code out.
#include "tests/tool/support.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <regex>
#include <sstream>

namespace tessaly::tool {

// One run of the program; its stderr goes to a file in the working directory.
class run {
public:
    run(const std::string& arguments, const std::string& node)
    {
        std::vector<std::string> words{TESSALY_PROGRAM};
        std::istringstream line(arguments);
        words.insert(words.end(), std::istream_iterator<std::string>(line), {});
        std::vector<char*> argv;
        for (std::string& word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);

        node.empty() ? ::unsetenv("TESSALY_NODE") : ::setenv("TESSALY_NODE", node.c_str(), 1);
        std::array<int, 2> ends{};
        EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
        posix_spawn_file_actions_t files;
        ::posix_spawn_file_actions_init(&files);
        ::posix_spawn_file_actions_adddup2(&files, ends[1], STDOUT_FILENO);
        ::posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "talk", O_WRONLY | O_CREAT | O_TRUNC, 0600);
        EXPECT_EQ(::posix_spawn(&pid_, TESSALY_PROGRAM, &files, nullptr, argv.data(), environ), 0);
        ::posix_spawn_file_actions_destroy(&files);
        ::close(ends[1]);
        output_ = ends[0];
        ::unsetenv("TESSALY_NODE");
    }
    ~run() { ::close(output_); }
    run(const run&) = delete;
    run& operator=(const run&) = delete;

    // Reads until the output holds this, or ends.
    void read_until(std::string_view text)
    {
        char part[4096];
        for (ssize_t bytes = 1; bytes > 0 && output.find(text) == std::string::npos;)
            if (bytes = ::read(output_, part, sizeof part); bytes > 0)
                output.append(part, static_cast<std::size_t>(bytes));
    }

    void signal(int number) const { ::kill(pid_, number); }

    int exit_code()
    {
        read_until("\xFF");  // which it never prints
        int status = 0;
        EXPECT_EQ(::waitpid(pid_, &status, 0), pid_);
        talk = content("talk");
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string output, talk;

private:
    pid_t pid_ = -1;
    int output_ = -1;
};

class program : public ToolTest {};

constexpr char NOWHERE[] = "unix:/nowhere/node.sock";

struct program_case {
    const char* arguments;
    const char* node;  // TESSALY_NODE
    int code;
    const char* output;  // expressions that occur in it; empty: there is none
    const char* talk;
};

const program_case cases[] = {
    {"ping -c 3 -i 0 -s 32767 THERE", "", 0,
     "seq=3 time=[0-9.]+ us\n--- ECHO on THERE ---\n3 sent, 3 came back, 0% loss\n.*min/median/p99/max",
     "echo end, in a thread"},
    {"ping -q -c 500 -i 0 --from HERE THERE TALKER", "", 0,
     "each way\n--- TALKER on THERE ---\n500 sent, 500 came back, 0% loss", "."},
    {"ping A", NOWHERE, 3, "", "TP_STARTED failed: COMMS_SUBSYSTEM_NOT_LOADED \\(0x04F0\\).*Start the node"},
    {"ping", "", 2, "", "LU is required\nTry: tessaly ping --help"},
    {"ping A,B", "", 2, "", "LU: must be 1 to 8 letters"},
    {"ping TOOLONGLU", "", 2, "", "LU: must be 1 to 8 letters"},
    {"ping -s 7 A", "", 2, "", "--size: Value 7 not in range 8 to 32767"},
    {"ping -c 0 A", "", 2, "", "--count"},
    {"ping --timeout 0 A", "", 2, "", "--timeout"},
    {"echo", "", 3, "", "Both ends must share a node.*tessaly-node"},
    {"send talk A B", "embedded", 3, "", "Both ends must share a node"},
    {"receive A", "", 3, "", "Both ends must share a node"},
    {"receive A", NOWHERE, 3, "", "RECEIVE_ALLOCATE failed: COMMS_SUBSYSTEM_NOT_LOADED"},
    {"send missing.txt A B", NOWHERE, 2, "", "cannot open missing.txt: No such file"},
    {"receive A -o /dev/null", NOWHERE, 2, "", "/dev/null is no regular file"},
    {"status", NOWHERE, 3, "", "no node answers at /nowhere/node.sock: No such file"},
    {"status --socket /elsewhere", NOWHERE, 3, "", "no node answers at /elsewhere"},
    {"status --socket "
     "./2345678901234567890123456789012345678901234567890123456789012345678901234567890123456789012345678901234567",
     "", 2, "", "has 1 to 107 bytes"},
    {"explain 0x0100 0x02000000", "", 0, "^PARAMETER_CHECK 0x0100, primary.*NO_ALLOCATE_PENDING.*BAD_CONV_ID", ""},
    {"explain 512 appc_state_check APPC_SEC_BAD_LL", "", 0,
     "^STATE_CHECK 0x0200.*STATE_CHECK 0x0200.*BAD_LL 0xF1000000, secondary", ""},
    {"explain 0x0000 0x00000000", "", 0, "^OK 0x0000.*no secondary return code", ""},
    {"explain 0x0001", "", 2, "", "0x0001 is no return code. Did you mean PARAMETER_CHECK \\(0x0100\\)"},
    {"explain 0x084B6031", "", 2, "", "mean TRANS_PGM_NOT_AVAIL_RETRY"},
    {"explain ALOCATION_EROR OK", "", 2, "^OK 0x0000",
     "ALOCATION_EROR is no return code. Did you mean ALLOCATION_ERROR"},
    {"explain 99999999999 \x1B[2J", "", 2, "", "99999999999 is no return code.*\n\\.\\[2J is no return code"},
    {"", "", 2, "", "A subcommand is required\nTry: tessaly --help"},
    {"pong", "", 2, "", "no such subcommand: pong\nTry"},
    {"explain FOO", "", 2, "", "FOO is no return code.\n$"},
    {"trace missing", "", 2, "", "cannot read missing: No such file"},
    {"trace -f a b", "", 2, "", "--follow: takes one file"},
    {"trace", "", 2, "", "FILES is required\nTry: tessaly trace --help"},
    {"version " TESSALY_LIBRARY, "", 0, "^\\]V7\\.1\\.0\\.1 Korvel .*\n\\] {12}\\(: 22/01/19 11:01:58\\)\n\\]\n$", ""},
    {"version talk", "", 2, "", "talk has no what-string marker"},
    {"--version", "", 0, "^tessaly 7\\.", ""},
    {"--help", "", 0, "^Example: tessaly .*Exit codes: 0 done", ""},
    {"ping --help", "", 0, "^Example: tessaly ping .*--timeout.*Exit codes", ""},
    {"echo --help", "", 0, "^Example: tessaly echo .*--timeout.*Exit codes", ""},
    {"send --help", "", 0, "^Example: tessaly send .*--timeout.*Exit codes", ""},
    {"receive --help", "", 0, "^Example: tessaly receive .*--timeout.*Exit codes", ""},
    {"status --help", "", 0, "^Example: tessaly status.*--timeout.*Exit codes", ""},
    {"trace --help", "", 0, "^Example: tessaly trace .*--follow.*Exit codes", ""},
    {"version --help", "", 0, "^Example: tessaly version .*Exit codes", ""},
    {"explain --help", "", 0, "^Example: tessaly explain .*Exit codes", ""},
};

// ".*" crosses lines.
bool fits(const std::string& text, std::string expression)
{
    constexpr std::string_view anything = "[\\s\\S]*";
    for (std::size_t at = 0; (at = expression.find(".*", at)) != std::string::npos; at += anything.size())
        expression.replace(at, 2, anything);
    return expression.empty() ? text.empty() : std::regex_search(text, std::regex(expression));
}

TEST_F(program, says_and_returns_what_its_documentation_tells)
{
    for (const program_case& each : cases) {
        SCOPED_TRACE(std::string("tessaly ") + each.arguments);
        run tool(each.arguments, each.node);
        EXPECT_EQ(tool.exit_code(), each.code);
        EXPECT_TRUE(fits(tool.output, each.output)) << tool.output;
        EXPECT_TRUE(fits(tool.talk, each.talk)) << tool.talk;
    }
}

TEST_F(program, ends_a_ping_with_its_statistics_when_it_is_interrupted)
{
    run tool("ping -i 3600 THERE", "");
    tool.read_until("seq=1 ");
    tool.signal(SIGINT);
    EXPECT_EQ(tool.exit_code(), 0) << tool.talk;
    EXPECT_TRUE(fits(tool.output, "1 sent, 1 came back, 0% loss\nround trip")) << tool.output;
}

}  // namespace tessaly::tool
