// The verbs' blocks as they are published, typed in by hand: what the tests hold the library's own tables against, and by
// which the scripted node converts blocks.
#pragma once

#include "common/types.h"
#include "verbs/codes.h"

#include <vector>

namespace tessaly::test {

using bytes = std::vector<u8>;

struct published_format {
    u16 length;  // caller's layout; 0: no such format
    u16 node_length;
    u16 pointer_1;
    u16 pointer_2;
};

struct published_verb {
    u16 opcode;
    u16 conv_verb;
    published_format format[2];
    u16 block_bytes[2];  // what an application provides
};

// clang-format off
inline constexpr published_verb published_verbs[] = {
    {0x0001, 1, {{188, 200, 0x9C, 0}, {188, 200, 0x9C, 0}}, {184, 188}},
    {0x0003, 1, {{28, 28, 0, 0}, {28, 28, 0, 0}}, {28, 28}},
    {0x0004, 1, {{24, 24, 0, 0}, {}}, {24, 24}},
    {0x0005, 1, {{32, 40, 0x1C, 0}, {36, 48, 0x1C, 0}}, {44, 44}},
    {0x0006, 1, {{24, 24, 0, 0}, {}}, {24, 24}},
    {0x0007, 1, {{132, 132, 0, 0}, {164, 164, 0, 0}}, {164, 164}},
    {0x0008, 1, {{28, 28, 0, 0}, {28, 28, 0, 0}}, {28, 28}},
    {0x0009, 1, {{28, 28, 0, 0}, {}}, {28, 28}},
    {0x000A, 1, {{28, 28, 0, 0}, {}}, {28, 28}},
    {0x000B, 1, {{48, 56, 0x24, 0}, {}}, {48, 48}},
    {0x000C, 1, {{48, 56, 0x24, 0}, {}}, {48, 48}},
    {0x000D, 1, {{48, 56, 0x24, 0}, {}}, {48, 48}},
    {0x000E, 1, {{24, 24, 0, 0}, {}}, {24, 24}},
    {0x000F, 1, {{36, 48, 0x1C, 0}, {36, 48, 0x1C, 0}}, {44, 44}},
    {0x0010, 1, {{36, 40, 0x20, 0}, {}}, {36, 36}},
    {0x0011, 1, {{36, 48, 0x1C, 0}, {}}, {36, 36}},
    {0x0012, 1, {{28, 28, 0, 0}, {}}, {28, 28}},
    {0x0013, 0, {{24, 24, 0, 0}, {}}, {24, 24}},
    {0x0014, 0, {{112, 112, 0, 0}, {}}, {112, 112}},
    {0x0016, 0, {{164, 164, 0, 0}, {164, 164, 0, 0}}, {192, 192}},
    {0x0017, 0, {{156, 156, 0, 0}, {184, 184, 0, 0}}, {184, 184}},
    {0x0018, 0, {{192, 208, 0x9C, 0xBC}, {}}, {192, 192}},
    {0x0072, 1, {{24, 24, 0, 0}, {}}, {24, 24}},
    {0x007E, 0, {{100, 100, 0, 0}, {}}, {100, 100}},
    {0x007F, 0, {{40, 40, 0, 0}, {}}, {40, 40}},
    {0x0080, 1, {{28, 28, 0, 0}, {}}, {28, 28}},
    {0x0081, 1, {{32, 32, 0, 0}, {32, 32, 0, 0}}, {32, 32}},
    {0x0102, 1, {{40, 48, 0x24, 0}, {}}, {40, 40}},
    {0xF100, 0, {{200, 208, 0xC4, 0}, {200, 208, 0xC4, 0}}, {200, 200}},
    {0xF101, 0, {{76, 76, 0, 0}, {}}, {76, 76}},
    {0xF102, 0, {{76, 76, 0, 0}, {}}, {76, 76}},
    {0xF103, 0, {{}, {192, 192, 0, 0}}, {192, 192}},
};
// clang-format on

// The verb's row, or null.
const published_verb* published(u16 opcode);

// A block in the caller's layout as the node has it: each pointer an empty 8-byte slot at a multiple of 8, the end padded. A
// block whose format the list does not have, or that has no pointer, is the same in both layouts.
bytes in_node_layout(const bytes& block);
bytes in_caller_layout(const bytes& block);

// Text as the node's names have it, padded with blanks to a width (0: not padded).
bytes ebcdic(const char* text, u32 width = 0);

}  // namespace tessaly::test
