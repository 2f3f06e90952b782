// A block on its way in and out: copied and brought into the other layout in one go. Blocks with two pointers, which are rare,
// go the long way of verbs/layout_64.
#pragma once

#include "common/copy_block.h"
#include "verbs/layout_64.h"

namespace tessaly::node {

namespace layouts_detail {

inline constexpr u32 WORD = sizeof(u32);

// What lies behind a pointer is a few words, in any layout.
inline void copy_words(u8* to, const u8* from, u32 bytes) noexcept
{
    for (u32 at = 0; at < bytes; at += WORD)
        std::memcpy(to + at, from + at, WORD);
}
inline void clear_words(u8* from, const u8* end) noexcept
{
    for (; from < end; from += WORD)
        std::memset(from, 0, WORD);
}

constexpr bool fit_words()
{
    for (const verb_row& verb : verbs)
        for (const block_format& each : verb.format)
            if (each.pointer_1 != 0 && (each.pointer_1 < BLOCK_STEP || each.pointer_1 % WORD != 0 || each.length % WORD != 0 ||
                                        each.node_length < each.length + end_of_slot(each.pointer_1) - each.pointer_1 - WORD))
                return false;
    return true;
}
static_assert(fit_words());

}  // namespace layouts_detail

// From the node's layout.
inline void copy_narrowed(u8* to, const u8* from, const block_format& format) noexcept
{
    using namespace layouts_detail;
    const u32 pointer = format.pointer_1;
    if (pointer == 0)
        return copy_block(to, from, format.length);
    if (format.pointer_2 != 0) {
        copy_block(to, from, format.node_length);
        narrow_block(to, format);
        return;
    }
    copy_block(to, from, pointer);
    clear_words(to + pointer, to + pointer + WORD);
    copy_words(to + pointer + WORD, from + end_of_slot(pointer), format.length - pointer - WORD);
}

// To the node's layout.
inline void copy_widened(u8* to, const u8* from, const block_format& format) noexcept
{
    using namespace layouts_detail;
    const u32 pointer = format.pointer_1;
    if (pointer == 0)
        return copy_block(to, from, format.length);
    if (format.pointer_2 != 0) {
        clear_words(to + format.length, to + format.node_length);
        copy_block(to, from, format.length);
        widen_block(to, format);
        return;
    }
    const u32 rest = format.length - pointer - WORD;
    copy_block(to, from, pointer);
    clear_words(to + pointer, to + end_of_slot(pointer));
    copy_words(to + end_of_slot(pointer), from + pointer + WORD, rest);
    clear_words(to + end_of_slot(pointer) + rest, to + format.node_length);
}

}  // namespace tessaly::node
