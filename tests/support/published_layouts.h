// The verbs' blocks as they are published, typed in by hand: what the tests hold the library's own tables and messages against,
// and by which the scripted node converts blocks. Also what expected messages are put together with.
#pragma once

#include "verbs/block.h"

#include <algorithm>
#include <string>
#include <vector>

namespace tessaly::test {

using bytes = std::vector<u8>;

// clang-format off
// length: in the caller's layout, 0: no such format. block_bytes: what an application provides.
struct published_format { u16 length, node_length, pointer_1, pointer_2; };
struct published_verb { u16 opcode; bool conv_verb; published_format format[2]; u16 block_bytes[2]; };

inline constexpr published_verb published_verbs[] = {
    {0x0001, true,  {{188, 200, 0x9C}, {188, 200, 0x9C}}, {184, 188}},
    {0x0003, true,  {{28, 28}, {28, 28}}, {28, 28}},
    {0x0004, true,  {{24, 24}, {}}, {24, 24}},
    {0x0005, true,  {{32, 40, 0x1C}, {36, 48, 0x1C}}, {44, 44}},
    {0x0006, true,  {{24, 24}, {}}, {24, 24}},
    {0x0007, true,  {{132, 132}, {164, 164}}, {164, 164}},
    {0x0008, true,  {{28, 28}, {28, 28}}, {28, 28}},
    {0x0009, true,  {{28, 28}, {}}, {28, 28}},
    {0x000A, true,  {{28, 28}, {}}, {28, 28}},
    {0x000B, true,  {{48, 56, 0x24}, {}}, {48, 48}},
    {0x000C, true,  {{48, 56, 0x24}, {}}, {48, 48}},
    {0x000D, true,  {{48, 56, 0x24}, {}}, {48, 48}},
    {0x000E, true,  {{24, 24}, {}}, {24, 24}},
    {0x000F, true,  {{36, 48, 0x1C}, {36, 48, 0x1C}}, {44, 44}},
    {0x0010, true,  {{36, 40, 0x20}, {}}, {36, 36}},
    {0x0011, true,  {{36, 48, 0x1C}, {}}, {36, 36}},
    {0x0012, true,  {{28, 28}, {}}, {28, 28}},
    {0x0013, false, {{24, 24}, {}}, {24, 24}},
    {0x0014, false, {{112, 112}, {}}, {112, 112}},
    {0x0016, false, {{164, 164}, {164, 164}}, {192, 192}},
    {0x0017, false, {{156, 156}, {184, 184}}, {184, 184}},
    {0x0018, false, {{192, 208, 0x9C, 0xBC}, {}}, {192, 192}},
    {0x0072, true,  {{24, 24}, {}}, {24, 24}},
    {0x007E, false, {{100, 100}, {}}, {100, 100}},
    {0x007F, false, {{40, 40}, {}}, {40, 40}},
    {0x0080, true,  {{28, 28}, {}}, {28, 28}},
    {0x0081, true,  {{32, 32}, {32, 32}}, {32, 32}},
    {0x0102, true,  {{40, 48, 0x24}, {}}, {40, 40}},
    {0xF100, false, {{200, 208, 0xC4}, {200, 208, 0xC4}}, {200, 200}},
    {0xF101, false, {{76, 76}, {}}, {76, 76}},
    {0xF102, false, {{76, 76}, {}}, {76, 76}},
    {0xF103, false, {{}, {192, 192}}, {192, 192}},
};
// clang-format on

// The verb's row, or null.
const published_verb* published(u16 opcode);

// The same block in the node's layout, or in the caller's: in the node's each pointer is an empty 8-byte slot at a multiple of
// 8, the end padded. A block whose format the list does not have, or that has no pointer, is the same in both.
enum class layout { caller, node };
bytes converted(const bytes& block, layout to);

// Text as the node's names have it, padded with blanks to a width (0: not padded).
bytes ebcdic(const std::string& text, u32 width = 0);

bytes as_bytes(const void* start, size_t count);
bytes words(std::initializer_list<u32> values);
bytes joined(std::initializer_list<bytes> parts);

}  // namespace tessaly::test
