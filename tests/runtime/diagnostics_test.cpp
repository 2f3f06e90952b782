// Logs, trace file, EBCDIC and the machine's name. The environment counts when the runtime is loaded, so what it switches is
// tried in a process of its own.
#include "common/runtime_guards.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

namespace tessaly {

namespace {

class Diagnostics : public testing::Test {
protected:
    ~Diagnostics() override { std::filesystem::remove(file); }

    // Runs one disabled case of this program with the environment; gives the child's wait status.
    int run(const std::string& name, const std::vector<std::pair<const char*, std::string>>& environment) const
    {
        const pid_t child = fork();
        if (child == 0) {
            for (const auto& [variable, value] : environment)
                setenv(variable, value.c_str(), 1);
            const std::string filter = "--gtest_filter=InChild.DISABLED_" + name;
            execl("/proc/self/exe", "child", filter.c_str(), "--gtest_also_run_disabled_tests", nullptr);
            _exit(127);
        }
        int how = -1;
        waitpid(child, &how, 0);
        return how;
    }

    // The file, with @ for each date, time, process and thread.
    std::string written() const
    {
        constexpr std::size_t DATE_AND_TIME = std::string_view{"2031-02-03 04:05:06.789"}.size();
        std::ostringstream stream;
        stream << std::ifstream{file}.rdbuf();
        std::string text = stream.str();
        for (std::size_t at = text.find(" ["); at != std::string::npos; at = text.find(" [")) {
            int parts[9] = {};
            const std::size_t begin = at - DATE_AND_TIME;
            int length = 0;
            EXPECT_EQ(std::sscanf(text.c_str() + begin, "%4d-%2d-%2d %2d:%2d:%2d.%3d [%d.%d]%n", &parts[0], &parts[1],
                                  &parts[2], &parts[3], &parts[4], &parts[5], &parts[6], &parts[7], &parts[8], &length), 9);
            text.replace(begin, static_cast<std::size_t>(length), "@");
        }
        return text;
    }

    const std::string file = testing::TempDir() + "tessaly-diagnostics-" + std::to_string(getpid());
};

TEST(InChild, DISABLED_logs)
{
    const u8 name[] = {0xE3, 0xD7, 0xF1, 0x40, 0x00};
    nba_pd_print_problem(0x20010004, 207, "x lx es", 0x0200u, 0x09050000u, 5u, name);
    nba_pd_print_audit(0x20010008, 213, "ba ca", 3u, name, 2u, "a\n");
    nba_pd_print_exception(0x20010002, 200, "");
    const std::vector<char> many(70'000, 'y');
    nba_pd_print_exception(0x20010003, 220, "ca x", 0xFFFFFFFFu, many.data(), 1u);
    nba_pd_print_exception(0x20010003, 221, "es zz x", 9u, static_cast<const char*>(nullptr));
    v0_assert("../../p/v6/vav", 12, "tpcb != NULL");
}

TEST_F(Diagnostics, log_readable_records_of_bounded_length)
{
    EXPECT_EQ(run("logs", {{"TESSALY_LOG", file}}), 0);
    const std::string expected = R"(
@ problem 0x20010004 point 207: 0200 09050000 "TP1 ."
@ audit 0x20010008 point 213: e3d7f1 "a."
@ exception 0x20010002 point 200:
@ exception 0x20010003 point 220: ")" + std::string(4096, 'y') + R"(" 0001
@ exception 0x20010003 point 221: "" (unknown descriptor)
@ broken invariant: ../../p/v6/vav:12: tpcb != NULL
)";
    EXPECT_EQ("\n" + written(), expected);
}

TEST_F(Diagnostics, abort_at_a_broken_invariant_when_told_to)
{
    const int how = run("logs", {{"TESSALY_ASSERT", "abort"}});
    EXPECT_TRUE(WIFSIGNALED(how) && WTERMSIG(how) == SIGABRT) << how;
}

TEST(InChild, DISABLED_traces)
{
    EXPECT_EQ(ptrc[1] & 0x08, 0x08);
    sepuapi_init(ptrc);
    u8 bytes[18] = {'A', 'P', 'P', 'C', 0xC1, 0xD7, 0xD7, 0xC3};
    std::vector<std::thread> writers;
    for (int i = 0; i < 4; ++i)
        writers.emplace_back([&bytes] {
            trc_api_record own{};
            for (int n = 0; n < 5; ++n) {
                trc_lock_file(&own);
                com_trc_sep(own.trace_file, "APPC ");
                com_trc_line(own.trace_file, "APPC ", "SEND_DATA request");
                com_trc_dump(own.trace_file, "APPC ", bytes, sizeof bytes);
                trc_unlock_file(&own);
            }
        });
    for (std::thread& writer : writers)
        writer.join();
    com_trc_line(1, "APPC ", "without its turn");
}

TEST_F(Diagnostics, trace_whole_records_one_after_the_other)
{
    EXPECT_EQ(run("traces", {{"TESSALY_API_TRACE", file}}), 0);
    const std::string record = R"(APPC  ==== @ ====
APPC  SEND_DATA request
APPC   0000  41505043 c1d7d7c3 00000000 00000000  |APPC............| |.&&.APPC........|
APPC   0010  0000                                 |..              | |..              |
)";
    std::string expected;
    for (int n = 0; n < 20; ++n)
        expected += record;
    EXPECT_EQ(written(), expected);
}

TEST(Trace, without_a_file_locks_nothing)
{
    trc_api_record own{};
    sepuapi_init(ptrc);
    for (int n = 0; n < 2; ++n) {
        trc_lock_file(&own);
        EXPECT_EQ(own.trace_file, TRC_NO_FILE);
        std::thread{[] {
            trc_api_record other{};
            trc_lock_file(&other);
        }}.join();
    }
}

TEST(Ebcdic, class_8_has_exactly_the_39_characters_of_names)
{
    std::string members;
    for (int byte = 0; byte < 256; ++byte) {
        u8 one = static_cast<u8>(byte);
        if (nba_check_ebcdic(8, &one, 1) == 0)
            continue;
        nba_ebcdic_to_local(&one, 1);
        members += static_cast<char>(one);
    }
    EXPECT_EQ(members, "$#@ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789");
    const u8 name[] = {0xC1, 0x40};
    EXPECT_EQ(nba_check_ebcdic(8, name, 2), 0);
    EXPECT_EQ(nba_check_ebcdic(8, nullptr, 0), 1);
}

TEST(Machine, has_a_short_name_whose_address_stays_valid)
{
    EXPECT_NE(BoxName[0], '\0');
    EXPECT_EQ(std::strchr(BoxName, '.'), nullptr);
    const process_lock lock;
    void* first = nullptr;
    void* second = nullptr;
    ASSERT_EQ(vsb_ip_get_addr("127.0.0.1", &first, 2), 0);
    u32 words[2];
    std::memcpy(words, first, sizeof words);
    EXPECT_EQ(words[1], htonl(INADDR_LOOPBACK));
    EXPECT_EQ(vsb_ip_get_addr("127.0.0.2", &second, 2), 0);
    EXPECT_NE(first, second);
    void* none = nullptr;
    EXPECT_NE(vsb_ip_get_addr("no.such.host.invalid", &none, 2), 0);
    EXPECT_EQ(none, nullptr);
}

}  // namespace

}  // namespace tessaly
