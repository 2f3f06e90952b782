// The conversion between the two layouts of a block, against the published layouts.
#include "verbs/layout_64.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace tessaly {

namespace {

struct layout_case {
    const char* name;
    u16 opcode;
    u16 format;
    // Runs of bytes that both layouts share: caller's offset, node's offset, count.
    std::vector<std::array<u16, 3>> runs;
};

const layout_case cases[] = {
    {"no pointer", GET_TP_PROPERTIES, 1, {{0, 0, 184}}},
    {"a pointer that needs padding", SEND_DATA, 0, {{0, 0, 28}, {32, 40, 4}}},
    {"a pointer that lies right", SEND_ERROR, 0, {{0, 0, 32}}},
    {"the end padded", DEALLOCATE, 1, {{0, 0, 28}, {32, 40, 4}}},
    {"a pointer at the end", DEALLOCATE, 0, {{0, 0, 28}}},
    {"fields behind the pointer", RECEIVE_AND_WAIT, 0, {{0, 0, 36}, {40, 48, 8}}},
    {"a long block", ALLOCATE, 0, {{0, 0, 156}, {160, 168, 28}}},
    {"two pointers", SEND_CONVERSATION, 0, {{0, 0, 156}, {160, 168, 28}}},
};

constexpr u8 GUARD = 0xEE;
constexpr u32 ROOM = 256;

}  // namespace

TEST(layout_64, keeps_every_byte_but_the_pointers_in_both_directions)
{
    for (const layout_case& each : cases) {
        SCOPED_TRACE(each.name);
        const block_format& format = find_verb(each.opcode)->format[each.format];
        std::vector<u8> caller(ROOM, GUARD);
        std::vector<u8> block(ROOM, GUARD);
        for (u16 i = 0; i < format.length; ++i)
            caller[i] = block[i] = static_cast<u8>(i * 7 + 1);

        EXPECT_EQ(widen_block(block.data(), format), format.node_length - format.length);
        u32 kept = 0;
        for (const auto& [from, to, count] : each.runs) {
            EXPECT_EQ(std::memcmp(block.data() + to, caller.data() + from, count), 0) << "from " << from;
            kept += count;
        }
        EXPECT_EQ(block[format.node_length], GUARD);

        const u32 pointers = (format.pointer_1 != 0 ? 1 : 0) + (format.pointer_2 != 0 ? 1 : 0);
        EXPECT_EQ(kept + 4 * pointers, format.length) << "the runs are the whole block";
        EXPECT_EQ(narrow_block(block.data(), format), format.node_length - format.length);
        for (const u16 pointer : {format.pointer_1, format.pointer_2})
            if (pointer != 0)
                std::memset(caller.data() + pointer, 0, 4);
        EXPECT_EQ(std::memcmp(block.data(), caller.data(), format.length), 0);
        EXPECT_EQ(block[format.node_length], GUARD);
    }
}

TEST(layout_64, leaves_nothing_of_the_callers_pointers_where_padding_was_added)
{
    const block_format& format = find_verb(SEND_DATA)->format[0];
    u8 block[48] = {};
    std::memset(block + 0x1C, 0xAA, 4);
    widen_block(block, format);
    EXPECT_EQ(std::vector<u8>(block + 0x1C, block + 0x24), std::vector<u8>(8, 0));
}

}  // namespace tessaly
