// SNA names: tables of what is known, and random fields held against slow, obvious models.
#include "common/ebcdic.h"
#include "runtime/node_runtime.h"

#include <tessaly/names.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <string>

namespace tessaly {

namespace {

// A field in EBCDIC, written as ASCII text: blanks at the end are left out, and a ~ is a zero byte.
std::string ebcdic(const std::string& text, std::size_t width)
{
    std::string field(width, '\x40');
    std::transform(text.begin(), text.end(), field.begin(), [](char c) {
        return c == ' ' ? '\x40' : c == '.' ? '\x4B' : c == '~' ? '\0' : static_cast<char>(AE_table[static_cast<u8>(c)]);
    });
    return field;
}

const ntl_u8* bytes(const std::string& field) { return reinterpret_cast<const ntl_u8*>(field.data()); }
ntl_u8* bytes(std::string& field) { return reinterpret_cast<ntl_u8*>(field.data()); }

using comparison = ntl_i32 (*)(const ntl_u8*, const ntl_u8*);

TEST(Names, are_compared_in_the_order_and_with_the_results_of_the_table)
{
    const struct {
        comparison compare;
        std::size_t width;
        const char *a, *b;
        ntl_i32 result;
    } rows[] = {
        {ntl_compare_mib_tp_name, 64, "AB", "ABC", -1},
        {ntl_compare_mib_tp_name, 64, "ABD", "ABC", 1},
        {ntl_compare_mib_tp_name, 64, "ABCDEFGHI", "A", 8},
        {ntl_compare_mib_tp_name, 64, "", "A", -1},
        {ntl_compare_mib_sna_name, 8, "A1", "AB", -1},
        {ntl_compare_name, 8, "A1", "AB", 1},
        {ntl_compare_mib_sna_name, 8, "", "ABCDEFGH", -1},
        {ntl_compare_mib_sna_name, 8, "ABCDEFGH", "", 1},
        {ntl_compare_mib_sna_name, 8, "", "A", 7},
        {ntl_compare_mib_sna_name, 8, "", "", 0},
        {ntl_compare_mib_fq_name, 17, "", "NET.A", -5},
        {ntl_compare_mib_fq_name, 17, "N.LONGNAME", "NET.A", 5},
        {ntl_compare_mib_fq_name, 17, "NETA.LU1", "NETA.LU2", -1},
        {ntl_compare_mib_fq_name, 17, "AAAAAAAA.AAAAAAAA", "", 17},
        {ntl_compare_mib_fq_name, 17, "A B", "A C", -1},  // what follows the first blank counts
        {ntl_compare_fq_name, 17, "NETA.LU1", "NETA.LU1", 0},
        {ntl_compare_tp_name, 64, "Z", "1", -1},
        {ntl_compare_proc_id, 4, "AB1", "AB2", -1},
    };
    for (const auto& [compare, width, a, b, result] : rows)
        EXPECT_EQ(compare(bytes(ebcdic(a, width)), bytes(ebcdic(b, width))), result) << a << " and " << b;

    EXPECT_EQ(ntl_compare_mib_ascii_sna_name(bytes("A1      "), bytes("AB      ")), -1);
    EXPECT_EQ(ntl_compare_mib_ascii_sna_name(bytes("ABCDEFGH"), bytes("AB      ")), 6);
    EXPECT_EQ(ntl_compare_mib_ascii_sna_name(bytes("        "), bytes("AB      ")), -2);
    EXPECT_EQ(ntl_compare_byte(bytes(std::string{'\0'}), bytes("\xFF")), -255);
    const ntl_lfsid low{1, 5}, high{9, 4}, same{3, 4}, ends[] = {{0, 0}, {0, 0xFFFF}};
    EXPECT_EQ(ntl_compare_lfsid(&low, &high), 1);
    EXPECT_EQ(ntl_compare_lfsid(&same, &high), -6);
    EXPECT_EQ(ntl_compare_lfsid(&ends[0], &ends[1]), -65535);
}

TEST(Names, of_correlation_identifiers_come_before_their_numbers)
{
    const auto fqpcid = [](const char* name, ntl_u8 number) {
        ntl_fqpcid made{};
        made.id[7] = number;
        std::ranges::copy(ebcdic(name, 17), made.fq_name);
        return made;
    };
    const ntl_fqpcid one = fqpcid("NET.A", 1), two = fqpcid("NET.A", 2), longer = fqpcid("NET.AB", 0);
    EXPECT_EQ(ntl_compare_fqpcid(&one, &two), -1);
    EXPECT_EQ(ntl_compare_fqpcid(&two, &one), 1);
    EXPECT_EQ(ntl_compare_fqpcid(&one, &one), 0);
    EXPECT_EQ(ntl_compare_fqpcid(&two, &longer), -1);
}

TEST(Names, are_checked_and_split_in_the_order_of_the_table)
{
    const struct {
        const char* field;
        ntl_u32 result;
        const char *network_id, *name;  // ~~~~~~~~: zeros
    } rows[] = {
        {"NETA.LU1", NTL_FQ_QUALIFIED, "NETA", "LU1"},
        {"NETWORKA.LUNAME01", NTL_FQ_QUALIFIED, "NETWORKA", "LUNAME01"},
        {"A.LUNAME01", NTL_FQ_QUALIFIED, "A", "LUNAME01"},
        {"LU1", NTL_FQ_UNQUALIFIED, "~~~~~~~~", "LU1"},
        {"NETWORKAA.LU1", NTL_FQ_NETID_TOO_LONG, "~~~~~~~~", "~~~~~~~~"},
        {".LU1", NTL_FQ_NETID_EMPTY, "~~~~~~~~", "~~~~~~~~"},
        {"NETA.NINECHARS", NTL_FQ_NAME_TOO_LONG, "~~~~~~~~", "~~~~~~~~"},
        {"SEVENTEENLETTERSX", NTL_FQ_NAME_TOO_LONG, "~~~~~~~~", "~~~~~~~~"},
        {"NE A.NINECHARS", NTL_FQ_NETID_BAD_CHAR, "~~~~~~~~", "~~~~~~~~"},
        {"NETA.L/1", NTL_FQ_NAME_BAD_CHAR, "~~~~~~~~", "~~~~~~~~"},
        {"NETA.L.1", NTL_FQ_NAME_BAD_CHAR, "~~~~~~~~", "~~~~~~~~"},
        {"NETA.", NTL_FQ_NAME_EMPTY, "~~~~~~~~", "~~~~~~~~"},
        {"", NTL_FQ_NAME_EMPTY, "~~~~~~~~", "~~~~~~~~"},
        {"NETA.LU1 X", NTL_FQ_TRAILING_TEXT, "~~~~~~~~", "~~~~~~~~"},
        {"LU1             X", NTL_FQ_TRAILING_TEXT, "~~~~~~~~", "~~~~~~~~"},
    };
    for (const auto& [field, result, network_id, name] : rows) {
        std::string parts[] = {"unwritten", "unwritten"};  // the ninth byte stays
        EXPECT_EQ(ntl_check_fq_name(bytes(ebcdic(field, 17))), result) << field;
        EXPECT_EQ(ntl_split_fq_name(bytes(ebcdic(field, 17)), bytes(parts[0]), bytes(parts[1])), result) << field;
        EXPECT_EQ(parts[0], ebcdic(network_id, 8) + 'n') << field;
        EXPECT_EQ(parts[1], ebcdic(name, 8) + 'n') << field;
    }
    for (const auto& [name, acceptable] : {std::pair{"", 1}, {"AB", 1}, {"AB/", 0}, {"A B", 0}})
        EXPECT_EQ(ntl_check_name(8, bytes(ebcdic(name, 8)), 8), acceptable) << name;
    EXPECT_EQ(ntl_check_name(8, nullptr, 0), 1);
}

TEST(Names, are_built_from_others)
{
    const auto change = [](const char* fq_name, const char* name) {
        std::string changed(17, '?');
        ntl_change_local_name(bytes(ebcdic(fq_name, 17)), bytes(ebcdic(name, 8)), bytes(changed));
        return changed;
    };
    EXPECT_EQ(change("NETA.LU1", "LU2"), ebcdic("NETA.LU2", 17));
    EXPECT_EQ(change("NETWORKA.LUNAME01", "LUNAME02"), ebcdic("NETWORKA.LUNAME02", 17));
    EXPECT_EQ(change("LU1", "LU2"), ebcdic("LU2", 17));
    EXPECT_EQ(change("NETWORKAA.LU1", "LU2"), std::string(17, '\0'));

    const auto squeeze = [](const std::string& input, std::size_t room) {
        std::string output(room, '?');
        ntl_make_internal_name(bytes(output), static_cast<ntl_u16>(room), bytes(input), static_cast<ntl_u16>(input.size()));
        return output;
    };
    EXPECT_EQ(squeeze(ebcdic("A B  C", 6), 8), ebcdic("ABC", 8));
    EXPECT_EQ(squeeze(ebcdic("A B  C", 6), 2), ebcdic("AB", 2));
    EXPECT_EQ(squeeze(ebcdic("A", 6), 0), "");
    std::string no_network(17, '?');
    ntl_make_fq_name(bytes(ebcdic("", 8)), bytes(ebcdic("LU1", 8)), bytes(no_network));
    EXPECT_EQ(no_network, ebcdic(".LU1", 17));
}

// Fields of a few different bytes, so that equal parts, blanks and periods are frequent.
class RandomNames : public testing::Test {
protected:
    std::string field(std::size_t width)
    {
        static constexpr u8 SOME[] = {0x40, 0x40, 0x4B, 0xC1, 0xC2, 0xF1, 0x00, 0xFF};
        std::string made(width, '\0');
        std::ranges::generate(made, [this] { return static_cast<char>(SOME[random() % std::size(SOME)]); });
        return made;
    }

    // Every second one a proper name.
    std::string part()
    {
        if (random() % 2 == 0)
            return field(8);
        std::string name(1 + random() % 8, random() % 2 == 0 ? '\xC1' : '\xF1');
        name.resize(8, '\x40');
        return name;
    }

    std::mt19937 random{1};
};

TEST_F(RandomNames, in_mib_order_are_ordered_as_a_slow_model_says)
{
    const struct {
        comparison compare;
        std::size_t width;
        bool blank_is_long;
    } rows[] = {{ntl_compare_mib_sna_name, 8, true}, {ntl_compare_mib_fq_name, 17, false}, {ntl_compare_mib_tp_name, 64, false}};
    for (const auto& [compare, width, blank_is_long] : rows)
        for (int i = 0; i < 5'000; ++i) {
            std::array<std::string, 2> names{field(width), field(width)};
            if (random() % 2 == 0)  // alike but for an end
                names[1].replace(0, width - 2, names[0], 0, width - 2);
            const auto length = [&](const std::string& name) {
                const std::size_t blank = std::min(name.find('\x40'), width);
                return static_cast<ntl_i32>(blank == 0 && blank_is_long ? width : blank);
            };
            ntl_i32 expected = length(names[0]) - length(names[1]);
            if (expected == 0) {
                std::array<std::string, 2> local = names;
                for (std::string& name : local)
                    nba_ebcdic_to_local(bytes(name), static_cast<u32>(width));
                expected = (local[0] > local[1]) - (local[0] < local[1]);
            }
            ASSERT_EQ(compare(bytes(names[0]), bytes(names[1])), expected);
            ASSERT_EQ(ntl_name_length(bytes(names[1]), static_cast<ntl_u16>(width)),
                      std::min(names[1].find('\x40'), width));
        }
}

TEST_F(RandomNames, that_were_made_of_two_parts_are_split_into_them_again)
{
    int valid = 0;
    for (int i = 0; i < 5'000; ++i) {
        const std::string parts[] = {part(), part()};
        std::string made(17, '?'), network_id(8, '?'), name(8, '?');
        ntl_make_fq_name(bytes(parts[0]), bytes(parts[1]), bytes(made));
        const ntl_u32 result = ntl_split_fq_name(bytes(made), bytes(network_id), bytes(name));
        if (result == NTL_FQ_QUALIFIED) {
            ++valid;
            std::string shown = parts[0].substr(0, parts[0].find('\x40'));
            shown.resize(8, '\x40');
            EXPECT_EQ(network_id, shown);
            EXPECT_EQ(name, parts[1]);
        } else if (result > NTL_FQ_UNQUALIFIED) {
            EXPECT_EQ(network_id + name, std::string(16, '\0'));
        }
    }
    EXPECT_GT(valid, 1000);
}

}  // namespace

}  // namespace tessaly
