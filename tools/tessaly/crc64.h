// CRC-64/XZ: the checksum of a file that is sent. It finds mistakes, not forgery.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace tessaly::tool {

class crc64 {
public:
    constexpr void add(std::span<const unsigned char> bytes) noexcept
    {
        for (const unsigned char byte : bytes)
            state_ = table[static_cast<unsigned char>(state_ ^ byte)] ^ (state_ >> 8);
    }

    constexpr std::uint64_t value() const noexcept { return ~state_; }

private:
    static constexpr auto table = [] {
        std::array<std::uint64_t, 256> entries{};
        for (std::size_t byte = 0; byte < entries.size(); ++byte) {
            std::uint64_t entry = byte;
            for (int bit = 0; bit < 8; ++bit)
                entry = (entry & 1) != 0 ? (entry >> 1) ^ 0xC96C5795D7870F42 : entry >> 1;
            entries[byte] = entry;
        }
        return entries;
    }();

    std::uint64_t state_ = ~std::uint64_t{0};
};

// The published check value.
static_assert([] {
    constexpr unsigned char digits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    crc64 sum;
    sum.add(digits);
    return sum.value() == 0x995DC9BBDF1939FA;
}());

}  // namespace tessaly::tool
