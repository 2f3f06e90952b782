#include "tests/support/published_layouts.h"

namespace tessaly::test {

const published_verb* published(u16 opcode)
{
    const auto found = std::ranges::find(published_verbs, opcode, &published_verb::opcode);
    return found == std::end(published_verbs) ? nullptr : found;
}

bytes converted(const bytes& block, layout to)
{
    const published_verb* verb = published(load<u16>(block.data(), 0));
    if (verb == nullptr || block[3] > 1 || verb->format[block[3]].pointer_1 == 0)
        return block;
    const published_format& format = verb->format[block[3]];
    bytes result(to == layout::node ? format.node_length : format.length);
    u32 caller = 0;
    u32 node = 0;
    for (const u32 end : {format.pointer_1, format.pointer_2, format.length}) {
        if (end == 0)
            continue;
        for (; caller < end; ++caller, ++node)  // what lies between the pointers is the same in both
            result[to == layout::node ? node : caller] = block[to == layout::node ? caller : node];
        caller += 4;
        node = (node + 7) / 8 * 8 + 8;
    }
    return result;
}

bytes ebcdic(const std::string& text, u32 width)
{
    // clang-format off
    static constexpr struct { char first, last; u8 code; } runs[] = {
        {'\0', '\0', 0}, {' ', ' ', 0x40}, {'.', '.', 0x4B}, {'-', '-', 0x60}, {'%', '%', 0x6C}, {'_', '_', 0x6D},
        {'*', '*', 0x5C}, {'$', '$', 0x5B}, {'#', '#', 0x7B}, {'@', '@', 0x7C},
        {'0', '9', 0xF0}, {'A', 'I', 0xC1}, {'J', 'R', 0xD1}, {'S', 'Z', 0xE2}, {'a', 'i', 0x81}, {'j', 'r', 0x91},
        {'s', 'z', 0xA2},
    };
    // clang-format on
    bytes name;
    for (const char c : text)
        for (const auto& run : runs)
            if (c >= run.first && c <= run.last)
                name.push_back(static_cast<u8>(run.code + (c - run.first)));
    name.resize(std::max<size_t>(width, name.size()), 0x40);
    return name;
}

bytes as_bytes(const void* start, size_t count)
{
    const u8* first = static_cast<const u8*>(start);
    return {first, first + count};
}

bytes words(std::initializer_list<u32> values)
{
    return as_bytes(values.begin(), values.size() * 4);
}

bytes joined(std::initializer_list<bytes> parts)
{
    bytes all;
    for (const bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

}  // namespace tessaly::test
