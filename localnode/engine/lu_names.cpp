// Aliases are ASCII, full names EBCDIC. Both are checked, so that they turn into each other without loss.
#include "localnode/engine/lu_names.h"

#include "common/ebcdic.h"

#include <algorithm>
#include <string_view>

namespace tessaly::node {

namespace {

constexpr std::string_view NETWORK = "TESSALY";

u8 to_ascii(u8 ebcdic) noexcept
{
    const auto at = std::find(AE_table.begin(), AE_table.end(), ebcdic);
    return static_cast<u8>(at - AE_table.begin());
}

// Letters, digits and so on, then nothing but blanks.
bool is_name(const lu_alias& alias) noexcept
{
    const auto end = std::find(alias.begin(), alias.end(), u8{' '});
    return end != alias.begin() && std::all_of(alias.begin(), end, [](u8 c) { return AE_table[c] != 0; }) &&
           std::all_of(end, alias.end(), [](u8 c) { return c == ' '; });
}

}  // namespace

std::optional<lu_alias> lu_of_alias(const u8* alias) noexcept
{
    lu_alias lu;
    std::copy_n(alias, lu.size(), lu.begin());
    if (lu == ANY_LU || lu == lu_alias{})
        return DEFAULT_LU;
    if (!is_name(lu))
        return std::nullopt;
    return lu;
}

std::optional<lu_alias> lu_of_full_name(const u8* name) noexcept
{
    const fq_lu_name prefix = full_name(ANY_LU);
    constexpr u32 prefix_bytes = NETWORK.size() + 1;
    if (!std::equal(name, name + prefix_bytes, prefix.begin()))
        return std::nullopt;
    lu_alias lu;
    std::transform(name + prefix_bytes, name + prefix_bytes + lu.size(), lu.begin(),
                   [](u8 c) { return c == 0 ? u8{0} : to_ascii(c); });
    if (!is_name(lu))
        return std::nullopt;
    return lu;
}

fq_lu_name full_name(const lu_alias& alias) noexcept
{
    fq_lu_name name;
    name.fill(EBCDIC_BLANK);
    const std::array<u8, 8> network = network_name();
    auto at = std::copy_n(network.begin(), NETWORK.size(), name.begin());
    *at++ = EBCDIC_PERIOD;
    std::transform(alias.begin(), alias.end(), at, [](u8 c) { return AE_table[c]; });
    return name;
}

std::array<u8, 8> network_name() noexcept
{
    std::array<u8, 8> name;
    name.fill(EBCDIC_BLANK);
    std::transform(NETWORK.begin(), NETWORK.end(), name.begin(), [](char c) { return AE_table[static_cast<u8>(c)]; });
    return name;
}

std::array<u8, 8> lu_name(const lu_alias& alias) noexcept
{
    std::array<u8, 8> name;
    std::transform(alias.begin(), alias.end(), name.begin(), [](u8 c) { return AE_table[c]; });
    return name;
}

}  // namespace tessaly::node
