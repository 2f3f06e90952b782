// The layout tables that sister libraries read, against the published values.
#include "tests/support/library_test.h"

namespace tessaly::test {

using layouts = library_test;

TEST_F(layouts, are_the_published_ones)
{
    const auto check = [](u16 first, u16 count, const verb_data* data, const verb_pointers* pointers, const verb_sizes* sizes) {
        for (u32 index = 0; index < 2u * count; ++index) {
            SCOPED_TRACE(::testing::Message() << "opcode " << first + index % count << " format " << index / count);
            const published_verb* row = published(static_cast<u16>(first + index % count));
            const published_format expected = row == nullptr ? published_format{} : row->format[index / count];
            EXPECT_EQ(data[index].length, expected.length);
            EXPECT_TRUE(expected.length == 0 || data[index].conv_verb == row->conv_verb);
            EXPECT_EQ(pointers[index].pointer_1, expected.pointer_1);
            EXPECT_EQ(pointers[index].pointer_2, expected.pointer_2);
            EXPECT_TRUE(sizes == nullptr || std::memcmp(&sizes[index], &expected, sizeof expected) == 0);
        }
    };
    issue(make(REGISTER_CPIC_TP));  // starts the library, which fills the pointer tables
    check(0, VAV_MAIN_OPCODES, vav_vcb, vav_vcb_ptrs, vav_main_verb_sizes);
    check(VAV_2ND_FIRST, VAV_2ND_OPCODES, vav_vcb2, vav_vcb2_ptrs, nullptr);
    EXPECT_EQ(vav_2nd_verb_sizes[0].node_length, 208);  // not as published, and not to change
    EXPECT_EQ(vav_2nd_verb_sizes[7].caller_length, 28);
}

TEST_F(layouts, hexadecimal_strings_are_upper_case_and_terminated)
{
    constexpr u8 octets[] = {0x00, 0x0A, 0xBC, 0xFF};
    char out[10] = "zzzzzzzzz";
    vav_to_hex_string(out, 0, octets);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(out[1], 'z') << "nothing behind the end is written";
    vav_to_hex_string(out, 4, octets);
    EXPECT_STREQ(out, "000ABCFF");
}

}  // namespace tessaly::test
