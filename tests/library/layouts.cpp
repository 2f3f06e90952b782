// The layout tables that sister libraries read, against the list of published values.
#include "tests/support/library_test.h"

#include <cstring>

namespace tessaly::test {

using layouts = library_test;

TEST_F(layouts, of_the_main_range_are_the_published_ones)
{
    issue(make(REGISTER_CPIC_TP));  // starts the library, which fills the pointer tables
    for (u16 format = 0; format < 2; ++format) {
        for (u16 opcode = 0; opcode < VAV_MAIN_OPCODES; ++opcode) {
            SCOPED_TRACE(::testing::Message() << "opcode 0x" << std::hex << opcode << " format " << format);
            const u32 index = format * VAV_MAIN_OPCODES + u32{opcode};
            const published_verb* row = published(opcode);
            const published_format expected = row == nullptr ? published_format{} : row->format[format];
            EXPECT_EQ(vav_vcb[index].length, expected.length);
            if (expected.length != 0) {
                EXPECT_EQ(vav_vcb[index].conv_verb, row->conv_verb);
            }
            const verb_sizes& sizes = vav_main_verb_sizes[index];
            EXPECT_EQ(sizes.caller_length, expected.length);
            EXPECT_EQ(sizes.node_length, expected.node_length);
            EXPECT_EQ(sizes.pointer_1, expected.pointer_1);
            EXPECT_EQ(sizes.pointer_2, expected.pointer_2);
            EXPECT_EQ(vav_vcb_ptrs[index].pointer_1, expected.pointer_1);
            EXPECT_EQ(vav_vcb_ptrs[index].pointer_2, expected.pointer_2);
        }
    }
}

TEST_F(layouts, of_the_second_range_are_the_published_ones)
{
    issue(make(REGISTER_CPIC_TP));
    constexpr u16 lengths[] = {200, 76, 76, 0, 200, 0, 0, 192};
    for (u32 i = 0; i < 8; ++i) {
        EXPECT_EQ(vav_vcb2[i].length, lengths[i]) << i;
        EXPECT_EQ(vav_vcb2[i].conv_verb, 0) << i;
        EXPECT_EQ(vav_vcb2_ptrs[i].pointer_1, i % 4 == 0 ? 0xC4 : 0) << i;
        EXPECT_EQ(vav_vcb2_ptrs[i].pointer_2, 0) << i;
    }
}

TEST_F(layouts, hexadecimal_strings_are_upper_case_and_terminated)
{
    constexpr u8 octets[] = {0x00, 0x0A, 0xBC, 0xFF};
    char out[10] = "zzzzzzzzz";
    vav_to_hex_string(out, 4, octets);
    EXPECT_STREQ(out, "000ABCFF");
    EXPECT_EQ(out[9], '\0');
    vav_to_hex_string(out, 0, octets);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(out[1], '0') << "nothing behind the end is written";
}

}  // namespace tessaly::test
