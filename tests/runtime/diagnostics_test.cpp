// Logs, trace file, EBCDIC and the machine's name. The environment counts when the runtime is loaded, so what it switches is
// tried in a process of its own.
#include "common/runtime_guards.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

namespace tessaly {

class Diagnostics : public testing::Test {
protected:
    ~Diagnostics() override { std::filesystem::remove(file); }

    // Runs the disabled case below with a setting; gives the child's wait status.
    static int run_child(const char* setting, const std::string& value)
    {
        return std::system((setting + ("=" + value) + " exec " + program_invocation_name +
                            " --gtest_filter=*.DISABLED_* --gtest_also_run_disabled_tests").c_str());
    }

    // The file, with @ for each date, time, process and thread.
    std::string written() const
    {
        std::ostringstream text;
        text << std::ifstream{file}.rdbuf();
        return std::regex_replace(text.str(), std::regex{R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \[\d+\.\d+\])"}, "@");
    }

    const std::string file = testing::TempDir() + "tessaly-diagnostics-" + std::to_string(getpid());
};

TEST(InChild, DISABLED_writes)
{
    const u8 name[] = {0xE3, 0xD7, 0xF1, 0x40, 0x00};
    const std::string many(70'000, 'y');
    nba_pd_print_problem(0x20010004, 207, "x lx es", 0x0200u, 0x09050000u, 5u, name);
    nba_pd_print_audit(0x20010008, 213, "ba ca", 3u, name, 2u, "a\n");
    nba_pd_print_exception(0x20010003, 220, "ca x", 0xFFFFFFFFu, many.data(), 1u);
    nba_pd_print_exception(0x20010003, 221, "es zz x", 9u, static_cast<const char*>(nullptr));
    v0_assert("../../p/v6/vav", 12, "tpcb != NULL");

    sepuapi_init(ptrc);
    const bool traces = (ptrc[1] & 0x08) != 0;
    const auto write = [&] {
        trc_api_record own{};
        for (int n = 0; n < 10; ++n) {
            trc_lock_file(&own);
            EXPECT_EQ(own.trace_file != TRC_NO_FILE, traces);
            com_trc_sep(own.trace_file, "APPC ");
            com_trc_dump(own.trace_file, "APPC ", name, sizeof name);
            com_trc_line(own.trace_file, "APPC ", "SEND_DATA request");
            if (traces)
                trc_unlock_file(&own);
        }
    };
    std::thread other{write};
    write();
    other.join();
    com_trc_line(1, "APPC ", "without its turn");
}

TEST_F(Diagnostics, log_readable_records_of_bounded_length)
{
    EXPECT_EQ(run_child("TESSALY_LOG", file), 0);
    EXPECT_EQ("\n" + written(), R"(
@ problem 0x20010004 point 207: 0200 09050000 "TP1 ."
@ audit 0x20010008 point 213: e3d7f1 "a."
@ exception 0x20010003 point 220: ")" + std::string(4096, 'y') + R"(" 0001
@ exception 0x20010003 point 221: "" (unknown descriptor)
@ broken invariant: ../../p/v6/vav:12: tpcb != NULL
)");
    EXPECT_EQ(run_child("TESSALY_ASSERT", "abort"), SIGABRT);
}

TEST_F(Diagnostics, trace_whole_records_one_after_the_other)
{
    EXPECT_EQ(run_child("TESSALY_API_TRACE", file), 0);
    const std::regex record{R"(APPC  ==== @ ====\nAPPC .*e3d7f140 00 .*\|TP1 .*\nAPPC  SEND_DATA request\n)"};
    std::string rest = written();
    for (int n = 0; n < 20; ++n)
        rest = std::regex_replace(rest, record, "", std::regex_constants::format_first_only);
    EXPECT_EQ(rest, "");
}

TEST(Ebcdic, class_8_has_exactly_the_39_characters_of_names)
{
    std::string members;
    for (int byte = 0; byte < 256; ++byte) {
        u8 one = static_cast<u8>(byte);
        const bool member = nba_check_ebcdic(8, &one, 1) != 0;
        nba_ebcdic_to_local(&one, 1);
        members += member ? std::string(1, static_cast<char>(one)) : "";
    }
    EXPECT_EQ(members, "$#@ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789");
    const u8 name[] = {0xC1, 0x40};
    EXPECT_EQ(nba_check_ebcdic(8, name, 2), 0);
    EXPECT_EQ(nba_check_ebcdic(8, nullptr, 0), 1);
}

TEST(Machine, has_a_short_name_whose_address_stays_valid)
{
    EXPECT_EQ(std::string{BoxName}.find('.'), std::string::npos);
    const process_lock lock;
    void* found[3] = {};
    EXPECT_EQ(vsb_ip_get_addr("127.0.0.1", &found[0], 2), 0);
    EXPECT_EQ(vsb_ip_get_addr("127.0.0.2", &found[1], 2), 0);
    EXPECT_NE(vsb_ip_get_addr("no.such.host.invalid", &found[2], 2), 0);
    EXPECT_EQ(static_cast<u32*>(found[0])[1], htonl(INADDR_LOOPBACK));
    EXPECT_EQ(found[2], nullptr);
}

}  // namespace tessaly
