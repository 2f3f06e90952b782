// Logs, trace file, EBCDIC and the machine's name. The environment counts when the runtime is loaded, so what it switches is
// tried in a process of its own.
#include "common/runtime_guards.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

namespace tessaly {

class Diagnostics : public testing::Test {
protected:
    ~Diagnostics() override { std::filesystem::remove(file); }

    // Runs a disabled case below with settings; gives the child's wait status.
    static int run_child(const std::string& settings, const std::string& story)
    {
        const std::string program = settings + " exec " + program_invocation_name;
        return std::system((program + " --gtest_filter=*.DISABLED_" + story + " --gtest_also_run_disabled_tests").c_str());
    }

    // The file, with @ for each date, time, process and thread.
    std::string written() const
    {
        std::ostringstream text;
        text << std::ifstream{file}.rdbuf();
        return std::regex_replace(text.str(), std::regex{R"([-\d]{10} [:\d]{8}\.\d{3} \[\d+\.\d+\])"}, "@");
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

}

// Three records from each of two threads, which share one control record as the library's do.
TEST(InChild, DISABLED_traces)
{
    static trc_api_record shared{};
    const char* name = std::getenv("TESSALY_API_TRACE");
    const bool has_file = name != nullptr && std::filesystem::path{name}.parent_path() != "/nowhere";
    const std::vector<u8> data(0xFFFF, 0xC1);
    sepuapi_init(ptrc);
    const auto write = [&] {
        for (int n = 0; n < 3; ++n) {
            trc_lock_file(&shared);
            const u32 file = shared.trace_file;
            EXPECT_EQ(file != TRC_NO_FILE, has_file);
            com_trc_sep(file, "APPC ");
            com_trc_line(file, "APPC ", "SEND_DATA request");
            com_trc_dump(file, "APPC ", data.data(), 0xFFFF);
            if (has_file)
                trc_unlock_file(&shared);
        }
    };
    std::thread other{write};
    write();
    other.join();
    com_trc_line(1, "APPC ", "without its turn");

    if (!has_file) {  // named late, it is found at the next record
        setenv("TESSALY_API_TRACE", "stderr", 1);
        trc_lock_file(&shared);
        EXPECT_NE(shared.trace_file, TRC_NO_FILE);
        trc_unlock_file(&shared);
    }
}

// Dumps of what is hardly there, then of more than a record takes.
TEST(InChild, DISABLED_traces_badly)
{
    auto* pages = static_cast<u8*>(mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    const u8 name[] = {0xE3, 0xD7, 0xF1, 0x40, 0x00};
    std::memcpy(pages + 4096 - 20, name, sizeof name);
    mprotect(pages + 4096, 4096, PROT_NONE);
    const std::vector<u8> much(300'000);
    const auto write = [](std::initializer_list<std::pair<const void*, u32>> dumps) {
        trc_lock_file(&trc_api);
        for (const auto& [start, count] : dumps)
            com_trc_dump(trc_api.trace_file, "APPC ", start, count);
        trc_unlock_file(&trc_api);
    };
    sepuapi_init(ptrc);
    errno = 17;
    write({{nullptr, 5}, {pages + 4096 - 20, 6000}, {reinterpret_cast<void*>(0xFFFFFFF0), 0xFFFF}, {name, sizeof name}});
    EXPECT_EQ(errno, 17);
    write({{much.data(), 300'000}, {name, sizeof name}});
    write({{name, sizeof name}});
}

// The trace follows a file; what the program itself sets stays until that changes.
TEST(InChild, DISABLED_is_switched)
{
    const std::string file = std::getenv("TESSALY_API_TRACE_SWITCH");
    const auto wait_for = [](u8 flag) {
        while ((__atomic_load_n(&ptrc[1], __ATOMIC_RELAXED) & 0x08) != flag)
            std::this_thread::yield();
    };
    EXPECT_EQ(ptrc[1] & 0x08, 0);
    for (int round = 0; round < 2; ++round) {
        std::ofstream{file};
        wait_for(0x08);
        std::filesystem::remove(file);
        wait_for(0);
    }
    const pid_t child = fork();
    if (child == 0) {
        std::ofstream{file};
        wait_for(0x08);
        _exit(7);
    }
    int how = 0;
    waitpid(child, &how, 0);
    EXPECT_EQ(WEXITSTATUS(how), 7) << "a fork's child follows it too";
    std::filesystem::remove(file);
}

TEST_F(Diagnostics, log_readable_records_of_bounded_length)
{
    EXPECT_EQ(run_child("TESSALY_LOG=" + file, "writes"), 0);
    EXPECT_EQ("\n" + written(), R"(
@ problem 0x20010004 point 207: 0200 09050000 "TP1 ."
@ audit 0x20010008 point 213: e3d7f1 "a."
@ exception 0x20010003 point 220: ")" + std::string(4096, 'y') + R"(" 0001
@ exception 0x20010003 point 221: "" (unknown descriptor)
@ broken invariant: ../../p/v6/vav:12: tpcb != NULL
)");
    EXPECT_EQ(run_child("TESSALY_ASSERT=abort", "writes"), SIGABRT);
}

// The length of a record is 40 times that of the C library's buffers, and more than a pipe takes at once.
TEST_F(Diagnostics, trace_whole_records_of_all_threads_and_processes)
{
    std::thread other{[&] { EXPECT_EQ(run_child("TESSALY_API_TRACE=" + file, "traces"), 0); }};
    EXPECT_EQ(run_child("TESSALY_API_TRACE=" + file, "traces"), 0);
    other.join();
    std::ifstream lines{file};
    std::string record, first;
    int records = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("APPC  ==== ") && records++ != 0) {
            first = first.empty() ? record : first;
            EXPECT_TRUE(std::exchange(record, "") == first);
        } else if (records != 0 && !line.starts_with("APPC  ==== ")) {
            record += line + "\n";
        }
    }
    EXPECT_TRUE(record == first);
    EXPECT_EQ(records, 12);
    EXPECT_TRUE(first.starts_with("APPC  SEND_DATA request\nAPPC   0000  c1c1c1c1 c1c1c1c1 c1c1c1c1 c1c1c1c1  "
                                  "|................| |AAAAAAAAAAAAAAAA|\n")) << first.substr(0, 200);
    EXPECT_TRUE(first.ends_with("APPC   fff0  c1c1c1c1 c1c1c1c1 c1c1c1c1 c1c1c1    |............... | |AAAAAAAAAAAAAAA |\n"));
    EXPECT_EQ(std::ranges::count(first, '\n'), 1 + 4096);
}

TEST_F(Diagnostics, trace_nothing_without_a_file)
{
    EXPECT_EQ(run_child("", "traces"), 0);
    EXPECT_EQ(run_child("TESSALY_API_TRACE=/nowhere/trace", "traces"), 0);
}

TEST_F(Diagnostics, trace_memory_as_far_as_it_is_there_and_records_up_to_their_bound)
{
    EXPECT_EQ(run_child("TESSALY_API_TRACE=" + file, "traces_badly"), 0);
    const std::string text = written(), gap(29, ' '), rest = "APPC  (no readable memory behind this)\n";
    const std::string name = "e3d7f140 00" + gap.substr(3) + "|...@.           | |TP1 .           |\n";
    EXPECT_EQ(text.substr(0, text.find("APPC   0010  00000000 0")),
              "APPC  (no address)\nAPPC   0000  e3d7f140 00000000 00000000 00000000  |...@............| |TP1 ............|\n"
              "APPC   0010  00000000" + gap + "|....            | |....            |\n" + rest + rest + "APPC   0000  " + name +
              "APPC   0000  00000000 00000000 00000000 00000000  |................| |................|\n");
    EXPECT_TRUE(text.ends_with("\n(the record goes on, and is cut here)\nAPPC   0000  " + name));
    EXPECT_LT(text.size(), 1'050'000u);
}

TEST_F(Diagnostics, trace_while_a_file_is_there)
{
    EXPECT_EQ(run_child("TESSALY_API_TRACE=" + file + " TESSALY_API_TRACE_SWITCH=" + file + ".switch", "is_switched"), 0);
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
