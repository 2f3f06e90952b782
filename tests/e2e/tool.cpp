// The command-line tool as a user runs it: each end a process of its own, the node another.
#include "tests/e2e/node_process.h"

#include <fcntl.h>

#include <iterator>
#include <optional>
#include <regex>
#include <vector>

namespace {

using talking::node_process;
using words = std::vector<std::string>;

class tool {
public:
    explicit tool(words arguments)
    {
        arguments.insert(arguments.begin(), "tessaly");
        std::vector<char*> pointers;
        for (std::string& each : arguments)
            pointers.push_back(each.data());
        pointers.push_back(nullptr);
        int out[2];
        EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
        process_ = fork();
        if (process_ == 0) {
            dup2(out[1], STDOUT_FILENO);
            execv(TESSALY_PROGRAM, pointers.data());
            _exit(127);
        }
        close(out[1]);
        out_ = out[0];
    }
    tool(const tool&) = delete;
    tool& operator=(const tool&) = delete;
    ~tool() { close(out_); }

    // What it prints up to that text, or all of it.
    std::string prints(const std::string& last = "")
    {
        std::string text;
        for (char c = 0; read(out_, &c, 1) == 1;) {
            text += c;
            if (!last.empty() && text.ends_with(last))
                break;
        }
        return text;
    }

    void signal(int number) const { kill(process_, number); }

    // How it ended, as waitpid tells it.
    int end() const
    {
        int how = -1;
        waitpid(process_, &how, 0);
        return how;
    }

private:
    pid_t process_;
    int out_;
};

std::string status()
{
    tool asking({"status", "--json"});
    const std::string document = asking.prints();
    EXPECT_EQ(asking.end(), 0);
    return std::regex_replace(document, std::regex("\\s"), "");
}

struct story {
    const char* told;
    words serving;  // empty: the node starts it
    words asking;
    const char* stays_after = "";  // with this line the conversation is there, and stays until the asking end is told to stop
    std::vector<const char*> in_status = {};
    const char* printed = "";
};

TEST(Tool, converses_through_a_node_that_shows_it_and_keeps_nothing_of_it)
{
    node_process node("[[program]]\ntp_name = \"STARTED\"\ncommand = [\"" TESSALY_PROGRAM
                      "\", \"echo\", \"--count\", \"1\", \"ANOTHER\"]\n");
    const std::string file = node.directory() + "/report";
    const std::string copy = node.directory() + "/copy";
    std::string content(1'000'003, '\0');
    for (std::size_t at = 0; at < content.size(); ++at)
        content[at] = static_cast<char>(at * at >> 3);
    std::ofstream(file, std::ios::binary) << content;

    const story stories[] = {
        {"a file", {"receive", "RECVFILE", "--output", copy}, {"send", file, "THERE", "RECVFILE"}},
        {"round trips", {"echo", "-c", "1"}, {"ping", "-q", "-c", "50", "-i", "0", "THERE"}, "", {},
         "50 sent, 50 came back, 0% loss"},
        {"a conversation that stays", {"echo", "-c", "1"}, {"ping", "-i", "1000", "--from", "HERE", "THERE"}, "seq=1",
         {"\"lu\":\"HERE\"", "\"name\":\"PING\"", "\"name\":\"ECHO\""}, "1 sent, 1 came back, 0% loss"},
        {"a program that the node starts takes the attach it was started for, whatever TP it calls itself", {},
         {"ping", "-i", "1000", "THERE", "STARTED"}, "seq=1", {"\"name\":\"STARTED\""}, "1 sent, 1 came back, 0% loss"},
    };
    for (const story& each : stories) {
        SCOPED_TRACE(each.told);
        std::optional<tool> serving;
        if (!each.serving.empty())
            serving.emplace(each.serving);
        tool asking(each.asking);
        if (*each.stays_after != '\0') {
            asking.prints(each.stays_after);
            const std::string there = status();
            EXPECT_EQ(there.find("\"conversations\":[]"), std::string::npos) << there;
            for (const char* part : each.in_status)
                EXPECT_NE(there.find(part), std::string::npos) << part << " in " << there;
            asking.signal(SIGINT);
        }
        const std::string printed = asking.prints();
        EXPECT_NE(printed.find(each.printed), std::string::npos) << printed;
        EXPECT_EQ(asking.end(), 0);
        if (serving) {
            EXPECT_EQ(serving->end(), 0);
        }
        // One that the node has started may still be about to end.
        std::string left = status();
        while (!serving && left.find("\"tps\":[]") == std::string::npos)
            left = status();
        for (const char* none : {"\"tps\":[]", "\"conversations\":[]", "\"attaches_waiting\":0", "\"tps_waiting\":0"})
            EXPECT_NE(left.find(none), std::string::npos) << none << " in " << left;
    }
    std::ifstream copied(copy, std::ios::binary);
    EXPECT_TRUE(std::string(std::istreambuf_iterator<char>(copied), {}) == content);
}

}  // namespace
