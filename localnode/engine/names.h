// EBCDIC names of fixed width as programs give them, padded with blanks. Names are compared in this form only.
#pragma once

#include "common/ebcdic.h"
#include "verbs/block.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace tessaly::node {

using tp_name = std::array<u8, TP_NAME_BYTES>;
using mode_name = std::array<u8, 8>;
using user_name = std::array<u8, 10>;

// The name in a field, which may also end with a zero.
template <typename Name>
Name name_in(const u8* field) noexcept
{
    Name name;
    std::copy_n(field, name.size(), name.begin());
    const auto end = std::find_if(name.begin(), name.end(), [](u8 c) { return c == 0 || c == EBCDIC_BLANK; });
    std::fill(end, name.end(), EBCDIC_BLANK);
    return name;
}

template <typename Name>
bool is_blank(const Name& name) noexcept
{
    return name.front() == EBCDIC_BLANK;
}

// From text; a character that no name has becomes a zero, which no name ends up with.
template <typename Name>
Name ebcdic_name(std::string_view text) noexcept
{
    Name name;
    name.fill(EBCDIC_BLANK);
    const std::size_t used = std::min(text.size(), name.size());
    std::transform(text.begin(), text.begin() + used, name.begin(), [](char c) { return AE_table[static_cast<u8>(c)]; });
    return name;
}

// A field of a block from a name of the same width.
template <typename Name, std::size_t N>
void put(u8 (&field)[N], const Name& name) noexcept
{
    static_assert(sizeof(Name) == N);
    std::copy(name.begin(), name.end(), field);
}

}  // namespace tessaly::node
