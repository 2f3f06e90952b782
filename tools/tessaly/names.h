// Names as a user types them, and as blocks want them.
#pragma once

#include <tessaly/appc.h>

#include <algorithm>
#include <cstddef>
#include <span>
#include <string_view>

namespace tessaly::tool {

// The EBCDIC of a character that a TP name may have; 0 for any other.
constexpr appc_u8 ebcdic_of(char c) noexcept
{
    constexpr struct {
        std::string_view ascii;
        appc_u8 first;
    } runs[] = {{"ABCDEFGHI", 0xC1}, {"JKLMNOPQR", 0xD1}, {"STUVWXYZ", 0xE2},   {"abcdefghi", 0x81},
                {"jklmnopqr", 0x91}, {"stuvwxyz", 0xA2},  {"0123456789", 0xF0}, {"$", 0x5B},
                {"#", 0x7B},         {"@", 0x7C},         {".", 0x4B},            {"/", 0x61}};
    for (const auto& run : runs)
        if (const std::size_t at = run.ascii.find(c); at != std::string_view::npos)
            return static_cast<appc_u8>(run.first + at);
    return 0;
}

// Whether it can be a TP name (64) or an LU alias (8): 1 to so many letters, digits or $ # @ . /
constexpr bool is_name(std::string_view name, std::size_t most) noexcept
{
    return !name.empty() && name.size() <= most && std::ranges::all_of(name, [](char c) { return ebcdic_of(c) != 0; });
}

// The name padded with blanks. It must fit: see is_name.
constexpr void put_alias(std::span<appc_u8, 8> field, std::string_view name) noexcept
{
    std::ranges::fill(field, appc_u8{' '});
    std::ranges::transform(name, field.begin(), [](char c) { return static_cast<appc_u8>(c); });
}

constexpr void put_ebcdic(std::span<appc_u8> field, std::string_view name) noexcept
{
    std::ranges::fill(field, appc_u8{0x40});
    std::ranges::transform(name, field.begin(), ebcdic_of);
}

}  // namespace tessaly::tool
