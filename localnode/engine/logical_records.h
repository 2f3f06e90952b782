// The logical records of basic conversations: each begins with its length LL, two bytes with the most significant first that
// count themselves. Programs send and receive them in pieces of any size.
#pragma once

#include "common/types.h"

#include <algorithm>
#include <optional>
#include <span>

namespace tessaly::node {

inline constexpr u16 LL_BYTES = 2;

// The high bit says that the record continues the one before; to the node it is a record like any other.
constexpr u16 ll_of(u8 first, u8 second) noexcept
{
    return static_cast<u16>((first & 0x7F) << 8 | second);
}

// Where a stream of records stands after what has been sent so far.
class record_border {
public:
    constexpr bool in_record() const noexcept { return left_ != 0 || half_; }

    // Moves on by at least one byte and at most to the end of a record. Result: by how many; none when the LL is none.
    constexpr std::optional<u32> step(std::span<const u8> data) noexcept
    {
        if (half_) {
            left_ = static_cast<u16>(ll_of(first_, data[0]));
            if (left_ < LL_BYTES)
                return std::nullopt;
            half_ = false;
            --left_;
        } else if (left_ == 0 && data.size() == 1) {
            half_ = true;
            first_ = data[0];
            return 1;
        } else if (left_ == 0) {
            left_ = ll_of(data[0], data[1]);
            if (left_ < LL_BYTES)
                return std::nullopt;
        }
        const u32 bytes = static_cast<u32>(std::min<std::size_t>(left_, data.size()));
        left_ = static_cast<u16>(left_ - bytes);
        return bytes;
    }

    // Moves on to the end of the data. False when one of the LLs is none.
    constexpr bool follow(std::span<const u8> data) noexcept
    {
        while (!data.empty()) {
            const std::optional<u32> bytes = step(data);
            if (!bytes)
                return false;
            data = data.subspan(*bytes);
        }
        return true;
    }

private:
    u16 left_ = 0;  // of the record under way
    bool half_ = false;  // the first byte of an LL was the last of the data
    u8 first_ = 0;
};

// Log data of a basic conversation are one GDS variable: LL, identifier, text.
constexpr bool is_log_record(std::span<const u8> data) noexcept
{
    return data.size() >= 4 && data[0] < 0x80 && ll_of(data[0], data[1]) == data.size();
}

}  // namespace tessaly::node
