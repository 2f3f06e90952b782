// The print engine: a table of what it prints, the C library where both must agree, and no byte behind a limit.
#include "common/types.h"
#include "runtime/node_runtime.h"

#include <tessaly/diagnostics.h>

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

std::vector<std::string> reports;  // of broken invariants

}  // namespace

// All that the engine takes from a runtime.
extern "C" void v0_assert(const char* module, uint32_t, const char* text)
{
    EXPECT_STREQ(module, "svmcspnt");
    reports.emplace_back(text);
}

namespace tessaly {

namespace {

using words = std::array<u32, 6>;

u32 word(const char* string) { return static_cast<u32>(reinterpret_cast<std::uintptr_t>(string)); }
u32 word(int number) { return static_cast<u32>(number); }

class Printing : public testing::Test {
protected:
    // A buffer whose bytes behind the limit must stay.
    std::string print(int limit, const std::string& format, const words& args = {})
    {
        constexpr char UNTOUCHED = '\x7E';
        buffer.assign(4096, UNTOUCHED);
        count = t_print_args(buffer.data(), limit, format.c_str(), args.data());
        if (limit > 0) {
            EXPECT_EQ(buffer.find_first_not_of(UNTOUCHED, static_cast<std::size_t>(limit)), std::string::npos) << format;
        }
        return buffer.c_str();
    }

    std::string buffer;
    int count = 0;
};

TEST_F(Printing, gives_the_texts_of_the_table)
{
    const struct {
        const char* format;
        words args;
        std::string text;
        const char* reported = nullptr;
    } rows[] = {
        {"", {}, ""},
        {"%5d|%-5d|", {42, 42}, "   42|42   |"},
        {"%05d|%-05d|", {word(-42), 42}, "00-42|42000|"},
        {"%.4d|%.0d|%8.4d|%-8.4d|", {42, 0, word(-42), 42}, "0042|0|   -0042|0042    |"},
        {"%d %i %w %u", {0x80000000, 7, word(-1), 0xFFFFFFFF}, "-2147483648 7 -1 4294967295"},
        {"%x %X %p %#x", {255, 255, 0xABC, 255}, "FF FF ABC 0XFF"},
        {"%#o %#o %o|%#08x", {8, 0, 8, 255}, "010 00 10|00000XFF"},
        {"%.3s|%.0s|%.s|%8s|", {word("ABCDEF"), word("AB"), word("CD"), word("EF")}, "ABC|AB|CD|      EF|"},
        {"%-4s|%04s|%s|", {word("AB"), word("AB"), 0}, "AB  |  AB|(null)|"},
        {"%5c%%", {0x12345641}, "A%"},
        {"%5%", {}, "%"},
        {"%ld %Ld %lu", {1, word(-2), 3}, "1 -2 3"},
        {"%*d|%.*d|", {5, 42, 4, 42}, "   42|0042|"},
        {"%*d|%.*s|%.*d|", {word(-5), 42, word(-1), word("AB"), word(-9), 7}, "42||7|"},
        {"%10d|%1.05d|", {1, 2}, "         1|00002|"},
        {"%h", {}, "h", "0"},
        {"%\xE4", {}, "\xE4", "0"},
        {"%lq|%Ly", {word(-3), 4}, "-3q|4y"},
        {"a%5", {}, "a", "0"},
        {"a%l", {word(-6)}, "a-6"},
        {"%#s", {word("AB")}, "AB", "(uselong == 0) && (extra == 0)"},
        {"%Lc", {'A'}, "A", "(uselong == 0) && (extra == 0)"},
    };
    for (const auto& [format, args, text, reported] : rows) {
        reports.clear();
        EXPECT_EQ(print(0, format, args), text) << format;
        EXPECT_EQ(count, static_cast<int>(text.size())) << format;
        EXPECT_EQ(reports, reported != nullptr ? std::vector<std::string>{reported} : std::vector<std::string>{}) << format;
    }
    char text[40];
    EXPECT_EQ(t_sprintf(text, "%s has %d, %c", "one", -1, 'x'), 13);
    EXPECT_STREQ(text, "one has -1, x");
    EXPECT_EQ(nb_sprintf(text, "%-3d|%g", 7, 0.5), 7);
    EXPECT_STREQ(text, "7  |0.5");
}

TEST_F(Printing, ends_a_text_that_comes_near_its_limit)
{
    EXPECT_EQ(print(30, std::string(40, 'x')), std::string(11, 'x') + "\n");
    EXPECT_EQ(count, 13);
    EXPECT_EQ(buffer[13], '\0') << "the second zero byte";
    EXPECT_EQ(print(30, "%s never",
                    {word("a long text that is cut where no space is left")}), "a long text that is cut whe\n");
    EXPECT_EQ(print(30, "0123456789%d never", {5}), "01234567895\n");
    EXPECT_EQ(print(30, "0123456789%lq", {5}), "01234567895\n");
    EXPECT_EQ(print(4, "xyz"), "x\n");
    EXPECT_EQ(print(19, "%s", {word("")}), "\n");
    EXPECT_EQ(print(20, "%s", {word("")}), "");
    EXPECT_EQ(print(25, "12345"), "12345");
    EXPECT_EQ(print(100, "%99999999999d", {1}), std::string(97, ' ') + "\n");
    for (int limit = 1; limit <= 3; ++limit) {
        EXPECT_EQ(print(limit, "xyz"), "");
        EXPECT_EQ(buffer.substr(0, static_cast<std::size_t>(limit)), std::string(static_cast<std::size_t>(limit), '\0'));
    }
    print(-1, "xyz");
    EXPECT_EQ(buffer.find_first_not_of('\x7E'), std::string::npos);
}

// Where widths pad with blanks and there is no precision, both print alike by definition.
TEST_F(Printing, agrees_with_the_c_library_where_both_mean_the_same)
{
    std::mt19937 random{1};
    const auto pick = [&random](const auto& from) { return from[random() % std::size(from)]; };
    for (int i = 0; i < 5'000; ++i) {
        std::string format = "%";
        const char conversion = pick(std::string_view("diuoXs"));
        const bool is_string = conversion == 's';
        if (random() % 2 == 0)
            format += '-';
        if (random() % 2 == 0)
            format += std::to_string(1 + random() % 30);
        if (random() % 2 == 0)
            format += "." + std::to_string(1 + random() % 20);
        format += conversion;
        const u32 value = is_string ? word(pick(std::array{"", "a", "ab", "abcdefghijkl"})) : random() >> (random() % 32);
        char expected[100];
        const int length = std::snprintf(expected, sizeof expected, format.c_str(), value);
        ASSERT_EQ(print(0, format, {value}), expected) << format << " of " << value;
        ASSERT_EQ(count, length);
    }
}

TEST_F(Printing, never_writes_behind_its_limit_whatever_the_format)
{
    static constexpr std::string_view ALPHABET = "%%%%%dsxucoplL#-0123456789.*wqh \xE4";
    std::mt19937 random{2};
    for (int i = 0; i < 5'000; ++i) {
        std::string format;
        for (u32 length = random() % 30; length != 0; --length)
            format += ALPHABET[random() % ALPHABET.size()];
        const int limit = static_cast<int>(1 + random() % 200);
        std::array<u32, 64> args;
        args.fill(word("text"));  // a string that is one for %s, for * a width beyond all limits
        buffer.assign(4096, '~');
        count = t_print_args(buffer.data(), limit, format.c_str(), args.data());
        ASSERT_EQ(buffer.find_first_not_of('~', static_cast<std::size_t>(limit)), std::string::npos) << format;
        ASSERT_LT(std::strlen(buffer.c_str()), static_cast<std::size_t>(limit)) << format;
    }
}

TEST(Version, stands_in_the_library_and_is_handed_out)
{
    EXPECT_STREQ(o6_verstamp(), "V7.1.0.1 Korvel Tessaly LU 6.2 Verb Library Routines (32 bit over 64 bit core)\n");
    EXPECT_STREQ(o6_verstamp_tvt(), "V7.1.0.1  %1\n");
    EXPECT_EQ(std::string(o6_verstring), "@(#)]" + std::string(o6_verstamp()) +
                                             "@(#)]            (: 22/01/19 11:01:58)\n@(#)]");
    for (const char* field : {o6_verstring, o6_verstring1, o6_verstring1_tvt})
        EXPECT_EQ(std::string(field, 255).find_last_not_of('\0'), std::strlen(field) - 1);
}

}  // namespace

}  // namespace tessaly
