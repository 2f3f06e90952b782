// The config file: what it sets, and how each kind of fault is told.
#include "localnode/daemon/config.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

namespace tessaly::daemon {
namespace {

const std::string INSTALLED = TESSALY_NODE_CONFIG;

class Config : public testing::Test {
protected:
    std::string written(const std::string& text) const
    {
        std::ofstream(file) << text;
        return file;
    }
    void TearDown() override { std::filesystem::remove(file); }

    const std::string file = testing::TempDir() + "tessaly-config-" + std::to_string(getpid());
};

// clang-format off
const struct { const char* text; u32 line, column, width; const char* told; } faults[] = {
    {"nmae = \"X\"", 1, 1, 4, "unknown setting \"nmae\"; did you mean \"name\"?"},
    {"[limits]\n  whatever = 1", 2, 3, 8, "unknown setting \"whatever\""},
    {"[acces]\nmode = \"0660\"", 1, 1, 7, "unknown setting \"acces\"; did you mean \"access\"?"},
    {"name = 7", 1, 8, 1, "must be a text in quotes"},
    {"network = \"A.B\"", 1, 11, 5, "must be 1 to 8 letters, digits or $ # @ /"},
    {"socket = \"node.sock\"", 1, 10, 11, "must be a path from / on, of less than 108 bytes"},
    {"access = 1", 1, 10, 1, "must be a table"},
    {"[access]\nmode = \"666\"", 2, 8, 5, "must be the digits of a file's mode, as \"0660\""},
    {"[access]\nusers = [\"no such one\"]", 2, 10, 13, "there is no user no such one"},
    {"[access]\ngroups = \"root\"", 2, 10, 6, "must be a list, [\"...\", \"...\"]"},
    {"[tp_servers]\ngroups = [\"no such one\"]", 2, 11, 13, "there is no group no such one"},
    {"[tp_servers]\nuser = []", 2, 1, 4, "unknown setting \"user\"; did you mean \"users\"?"},
    {"[log]\nlevel = \"warn\"", 2, 9, 6, "must be \"error\", \"warning\", \"info\" or \"debug\""},
    {"[log]\nlevel = \"inf\"", 2, 9, 5, "must be \"error\", \"warning\", \"info\" or \"debug\"; did you mean \"info\"?"},
    {"[limits]\nclients = 0", 2, 11, 1, "must be a number from 1 to 20000"},
    {"[limits]\nunread_kib_per_conversation = 16385", 2, 31, 5, "must be a number from 1 to 16384"},
    {"[times]\nstart_seconds = 0", 2, 17, 1, "must be a number from 1 to 86400"},
    {"[times]\nattach_seconds = 1.5", 2, 18, 3, "must be a number from 1 to 86400"},
    {"[lu]\nalias = \"A\"", 1, 1, 4, "must be [[lu]], once for each"},
    {"[[lu]]\nname = \"N.A\"", 1, 1, 6, "has no \"alias\""},
    {"[[lu]]\nalias = \"A\"\nname = \"A\"", 3, 8, 3,
     "must be the network's name, a period and the LU's name, each of 1 to 8 characters"},
    {"[[lu]]\nalias = \"A\"\n[[lu]]\nalias = \"A\"", 4, 9, 3, "another LU has this alias"},
    {"[[lu]]\nalias = \"A\"\n[[lu]]\nalias = \"B\"\nname = \"TESSALY.A\"", 5, 8, 11, "another LU has the name TESSALY.A"},
    {"[[lu]]\nalias = \"A\"\n[[partner_lu]]\nalias = \"P\"\nname = \"N.A\"", 5, 8, 5, "no [[lu]] has this name"},
    {"[[program]]\ntp_name = \"A B\"\ncommand = [\"/a\"]", 2, 11, 5, "must be 1 to 64 letters, digits or $ # @ . /"},
    {"[[program]]\ntp_name = \"A\"\ncommand = [\"a\"]", 3, 11, 5, "must begin with the program's path, from / on"},
    {"a = 1\nb 2", 2, 2, 1, "missing key-value separator `=`"},
    {"name = \"a\"\nname = \"b\"", 2, 8, 1, "value (\"name\") already exists."},
    {"name = \"a", 1, 8, 1, "the next token is not a valid string"},
};
// clang-format on

std::string line_of(const std::string& text, u32 number)
{
    std::istringstream in(text);
    std::string line;
    while (number-- != 0)
        std::getline(in, line);
    return line;
}

TEST_F(Config, faults_are_told_with_their_place_and_what_to_do)
{
    for (const auto& each : faults)
        try {
            read_config(written(each.text));
            ADD_FAILURE() << "no fault in " << each.text;
        } catch (const config_error& error) {
            const std::string at = std::to_string(each.line) + ":" + std::to_string(each.column) + ": ";
            const std::string mark = std::string(each.column - 1, ' ') + "^" + std::string(each.width - 1, '~');
            const std::string shown = "\n    " + line_of(each.text, each.line) + "\n    " + mark + "\n";
            EXPECT_EQ(error.what(), file + ":" + at + each.told + shown);
        }
    EXPECT_THROW(read_config("/no/such/file"), config_error);
}

TEST_F(Config, sets_what_it_names_and_tells_all_faults_in_order)
{
    const settings read = read_config(written("network = \"NET\"\n[access]\nmode = \"0660\"\nusers = [\"root\", \"77\"]\n"
                                              "[tp_servers]\ngroups = [\"78\"]\n"
                                              "[log]\nlevel = \"debug\"\n[limits]\nunread_kib_per_conversation = 7\n"
                                              "[[lu]]\nalias = \"A\"\n"
                                              "[[program]]\ntp_name = \"ECHO\"\ncommand = [\"/a\", \"b\"]\n"
                                              "environment = { X = \"1\" }\n"));
    settings expected;
    expected.network = "NET";
    expected.access.mode = 0660;
    expected.access.users = {0, 77};
    expected.tp_servers.groups = {78};
    expected.log.most = level::debug;
    expected.limits.unread_kib_per_conversation = 7;
    expected.lus = {{"A", "NET.A"}};
    expected.programs = {{"ECHO", {"/a", "b"}, "", {{"X", "1"}}}};
    EXPECT_TRUE(read == expected);
    EXPECT_EQ(engine_configuration(read).unread_bytes, 7u * 1024);
    try {
        read_config(written("x = 1\nname = 2\n"));
        ADD_FAILURE();
    } catch (const config_error& error) {
        EXPECT_TRUE(std::regex_search(error.what(), std::regex(":1:1: unknown[^]*:2:8: must")));
    }
}

// Whatever the file does not set would stay as it is here.
settings all_different()
{
    settings other;
    other.name = other.network = other.socket = "/other";
    other.access = {0, "other", {1}, {1}};
    other.log = {"/other", level::error};
    other.limits = {1, 1, 1, 1, 1, 1};
    other.times = {1, 1, 1};
    other.tp_servers = {{1}, {1}};
    return other;
}

TEST_F(Config, file_that_is_installed_shows_every_setting_as_it_is_without_it)
{
    EXPECT_TRUE(read_config(INSTALLED, all_different()) == settings{});
    std::ifstream in(INSTALLED);
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    const settings with_examples = read_config(written(std::regex_replace(text, std::regex(R"((^|\n)# (\[\[|\w+ = ))"), "$1$2")));
    EXPECT_EQ(with_examples.lus.size() + with_examples.partner_lus.size() + with_examples.programs.size(), 3u);
}

}  // namespace
}  // namespace tessaly::daemon
