// For suggestions: which known word somebody probably meant.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <numeric>
#include <string_view>

namespace tessaly {

// How many characters must change, come or go to make one of the other. Looks at the first 64 of the second.
inline std::size_t edit_distance(std::string_view from, std::string_view to) noexcept
{
    std::array<std::size_t, 65> row;
    to = to.substr(0, row.size() - 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (const char character : from) {
        std::size_t diagonal = row[0]++;
        for (std::size_t at = 0; at < to.size(); ++at) {
            const std::size_t changed = diagonal + (character != to[at] ? 1 : 0);
            diagonal = row[at + 1];
            row[at + 1] = std::min({changed, diagonal + 1, row[at] + 1});
        }
    }
    return row[to.size()];
}

// Near enough to be worth a suggestion.
inline bool may_mean(std::string_view written, std::string_view word) noexcept
{
    return edit_distance(written, word) <= 1 + written.size() / 4;
}

}  // namespace tessaly
