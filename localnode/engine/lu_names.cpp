// Aliases are ASCII, full names EBCDIC. Both are checked, so that they turn into each other without loss.
#include "localnode/engine/lu_names.h"

#include "common/ebcdic.h"
#include "localnode/engine/names.h"

#include <algorithm>

namespace tessaly::node {

namespace {

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

lu_alias alias_of(std::string_view text) noexcept
{
    lu_alias alias = ANY_LU;
    std::copy_n(text.begin(), std::min(text.size(), alias.size()), alias.begin());
    return alias;
}

short_name part(fq_lu_name::const_iterator begin, fq_lu_name::const_iterator end) noexcept
{
    short_name name;
    name.fill(EBCDIC_BLANK);
    std::copy(begin, std::min(end, begin + static_cast<std::ptrdiff_t>(name.size())), name.begin());
    return name;
}

}  // namespace

std::vector<lu_directory::entry> lu_directory::entries_of(const std::vector<lu_definition>& definitions)
{
    std::vector<entry> entries;
    for (const lu_definition& each : definitions)
        entries.push_back({alias_of(each.alias), ebcdic_name<fq_lu_name>(each.name)});
    return entries;
}

lu_directory::lu_directory(const configuration& with)
    : locals_(entries_of(with.local_lus)), partners_(entries_of(with.partner_lus))
{
    constexpr std::size_t MOST_NETWORK_BYTES = FQ_LU_NAME_BYTES - LU_ALIAS_BYTES - 1;
    const std::string prefix = with.network.substr(0, MOST_NETWORK_BYTES) + ".";
    prefix_ = ebcdic_name<fq_lu_name>(prefix);
    prefix_bytes_ = static_cast<u32>(prefix.size());
}

std::optional<lu_alias> lu_directory::local(const u8* alias) const noexcept
{
    lu_alias lu;
    std::copy_n(alias, lu.size(), lu.begin());
    if (lu == ANY_LU || lu == lu_alias{})
        return locals_.empty() ? DEFAULT_LU : locals_.front().alias;
    const bool exists = locals_.empty() ? is_name(lu) : std::ranges::find(locals_, lu, &entry::alias) != locals_.end();
    return exists ? std::optional{lu} : std::nullopt;
}

std::optional<lu_alias> lu_directory::partner(const u8* alias) const noexcept
{
    const auto known = std::ranges::find_if(
        partners_, [=](const entry& each) { return std::equal(each.alias.begin(), each.alias.end(), alias); });
    return known != partners_.end() ? of_full_name(known->name.data()) : local(alias);
}

std::optional<lu_alias> lu_directory::of_full_name(const u8* name) const noexcept
{
    const auto known = std::ranges::find(locals_, name_in<fq_lu_name>(name), &entry::name);
    if (known != locals_.end())
        return known->alias;
    if (!locals_.empty() || !std::equal(name, name + prefix_bytes_, prefix_.begin()))
        return std::nullopt;
    lu_alias lu;
    std::transform(name + prefix_bytes_, name + prefix_bytes_ + lu.size(), lu.begin(),
                   [](u8 c) { return c == 0 ? u8{0} : to_ascii(c); });
    if (!is_name(lu))
        return std::nullopt;
    return lu;
}

fq_lu_name lu_directory::full_name(const lu_alias& alias) const noexcept
{
    const auto known = std::ranges::find(locals_, alias, &entry::alias);
    if (known != locals_.end())
        return known->name;
    fq_lu_name name = prefix_;
    std::transform(alias.begin(), alias.end(), name.begin() + prefix_bytes_, [](u8 c) { return AE_table[c]; });
    return name;
}

short_name lu_directory::network_name(const lu_alias& alias) const noexcept
{
    const fq_lu_name name = full_name(alias);
    return part(name.begin(), std::ranges::find(name, EBCDIC_PERIOD));
}

short_name lu_directory::lu_name(const lu_alias& alias) const noexcept
{
    const fq_lu_name name = full_name(alias);
    const auto period = std::ranges::find(name, EBCDIC_PERIOD);
    return part(period == name.end() ? period : period + 1, name.end());
}

std::vector<lu_definition> lu_directory::list() const
{
    std::vector<lu_definition> listed;
    for (const entry& each : locals_) {
        const auto end = std::ranges::find(each.alias, u8{' '});
        listed.push_back({{each.alias.begin(), end}, text_of(each.name)});
    }
    return listed;
}

std::string text_of(std::span<const u8> ebcdic)
{
    std::string text;
    for (const u8 each : ebcdic) {
        const u8 ascii = to_ascii(each);
        text += each == 0 || ascii == 0 ? '?' : static_cast<char>(ascii);
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

}  // namespace tessaly::node
