// The conversion between the two layouts of a block.
#include "verbs/layout_64.h"

#include "verbs/block.h"

#include <gtest/gtest.h>

#include <array>

namespace tessaly {

struct layout_case {
    const char* name;
    u16 opcode;
    std::array<u16, 3> runs[2];  // of bytes that both layouts share: caller's offset, node's offset, count
};

TEST(layout_64, keeps_every_byte_but_the_pointers_in_both_directions)
{
    const layout_case cases[] = {
        {"no pointer", GET_TP_PROPERTIES, {{0, 0, 156}}},
        {"a pointer that needs padding", SEND_DATA, {{0, 0, 28}, {32, 40, 4}}},
        {"a pointer that lies right", SEND_ERROR, {{0, 0, 32}}},
        {"fields behind the pointer", RECEIVE_AND_WAIT, {{0, 0, 36}, {40, 48, 8}}},
        {"two pointers", SEND_CONVERSATION, {{0, 0, 156}, {160, 168, 28}}},
    };
    for (const layout_case& each : cases) {
        SCOPED_TRACE(each.name);
        const block_format& format = find_verb(each.opcode)->format[0];
        std::array<u8, 256> block{}, caller{};
        for (u16 i = 0; i < format.length; ++i)
            block[i] = static_cast<u8>(i * 7 + 1);
        for (const auto& [from, to, count] : each.runs)
            std::copy_n(block.begin() + from, count, caller.begin() + from);
        block[format.node_length] = 0xEE;  // not theirs
        EXPECT_EQ(widen_block(block.data(), format), format.node_length - format.length);
        for (const auto& [from, to, count] : each.runs)
            EXPECT_TRUE(std::equal(caller.begin() + from, caller.begin() + from + count, block.begin() + to)) << from;
        EXPECT_TRUE(format.pointer_1 == 0 || load<u32>(block.data(), format.pointer_1) == 0) << "what was a pointer is padding";
        EXPECT_EQ(narrow_block(block.data(), format), format.node_length - format.length);
        EXPECT_TRUE(std::equal(caller.begin(), caller.begin() + format.length, block.begin()));
        EXPECT_EQ(block[format.node_length], 0xEE);
    }
}

}  // namespace tessaly
