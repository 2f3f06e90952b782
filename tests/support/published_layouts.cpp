#include "tests/support/published_layouts.h"

#include <algorithm>
#include <cstring>

namespace tessaly::test {

namespace {

const published_format& format_of(const bytes& block)
{
    static constexpr published_format plain{};
    const u16 opcode = static_cast<u16>(block[0] | block[1] << 8);
    const u8 format = block[3];
    const published_verb* verb = published(opcode);
    return verb != nullptr && format < 2 ? verb->format[format] : plain;
}

// Walks both layouts side by side and reports each run of bytes that they share.
template <typename Run>
void for_each_run(const published_format& format, u32 caller_bytes, Run run)
{
    u32 caller = 0;
    u32 node = 0;
    for (const u32 pointer : {format.pointer_1, format.pointer_2}) {
        if (pointer == 0)
            continue;
        run(caller, node, pointer - caller);
        node += pointer - caller;
        node = (node + 7) / 8 * 8 + 8;
        caller = pointer + 4;
    }
    run(caller, node, caller_bytes - caller);
}

}  // namespace

const published_verb* published(u16 opcode)
{
    const auto found = std::find_if(std::begin(published_verbs), std::end(published_verbs),
                                    [opcode](const published_verb& verb) { return verb.opcode == opcode; });
    return found == std::end(published_verbs) ? nullptr : found;
}

bytes in_node_layout(const bytes& block)
{
    const published_format& format = format_of(block);
    if (format.pointer_1 == 0)
        return block;
    bytes wide(format.node_length, 0);
    for_each_run(format, format.length, [&](u32 caller, u32 node, u32 count) {
        std::memcpy(wide.data() + node, block.data() + caller, count);
    });
    return wide;
}

bytes in_caller_layout(const bytes& block)
{
    const published_format& format = format_of(block);
    if (format.pointer_1 == 0)
        return block;
    bytes narrow(format.length, 0);
    for_each_run(format, format.length, [&](u32 caller, u32 node, u32 count) {
        std::memcpy(narrow.data() + caller, block.data() + node, count);
    });
    return narrow;
}

bytes ebcdic(const char* text, u32 width)
{
    static const char ascii[] = " .%_-/$#@0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    static const u8 codes[] = {
        0x40, 0x4B, 0x6C, 0x6D, 0x60, 0x61, 0x5B, 0x7B, 0x7C, 0xF0, 0xF1, 0xF2, 0xF3, 0xF4, 0xF5, 0xF6, 0xF7, 0xF8,
        0xF9, 0xC1, 0xC2, 0xC3, 0xC4, 0xC5, 0xC6, 0xC7, 0xC8, 0xC9, 0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6, 0xD7, 0xD8,
        0xD9, 0xE2, 0xE3, 0xE4, 0xE5, 0xE6, 0xE7, 0xE8, 0xE9, 0x81, 0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89,
        0x91, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9,
    };
    static_assert(sizeof codes == sizeof ascii - 1);
    bytes name;
    for (; *text != '\0'; ++text)
        name.push_back(codes[std::strchr(ascii, *text) - ascii]);
    name.resize(std::max<u32>(width, static_cast<u32>(name.size())), 0x40);
    return name;
}

}  // namespace tessaly::test
