// What send and receive say to each other, over a mapped conversation of sync level confirm.
//
//     sender                                    receiver
//     'H' magic, size (0: not known), name
//     'D' a part of the file, as often as it takes
//     'E' size, CRC-64, and DEALLOCATE with confirmation
//                                               CONFIRMED, once the file has its name
//                                               or, at any time, SEND_ERROR, 'R' the reason, DEALLOCATE
//
// Numbers are 8 bytes, most significant first.
#pragma once

#include <tessaly/appc.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace tessaly::tool {

enum class record_kind : appc_u8 { header = 'H', data = 'D', end = 'E', refusal = 'R' };

inline constexpr std::string_view TRANSFER_MAGIC = "tessaly file 1";
inline constexpr std::size_t LONGEST_NAME = 255;
inline constexpr std::size_t PART_BYTES = 32 * 1024;

inline constexpr std::size_t NUMBER_BYTES = 8;
inline constexpr std::size_t HEADER_SIZE_AT = 1 + TRANSFER_MAGIC.size();
inline constexpr std::size_t HEADER_NAME_AT = HEADER_SIZE_AT + NUMBER_BYTES;
inline constexpr std::size_t END_CRC_AT = 1 + NUMBER_BYTES;
inline constexpr std::size_t END_BYTES = END_CRC_AT + NUMBER_BYTES;

constexpr void put_number(std::span<appc_u8> at, std::uint64_t number) noexcept
{
    for (std::size_t byte = NUMBER_BYTES; byte-- > 0; number >>= 8)
        at[byte] = static_cast<appc_u8>(number);
}

constexpr std::uint64_t number_at(std::span<const appc_u8> at) noexcept
{
    std::uint64_t number = 0;
    for (const appc_u8 byte : at.first(NUMBER_BYTES))
        number = number << 8 | byte;
    return number;
}

// A bar on stderr, drawn again for each percent; nothing unless that is a terminal.
class progress {
public:
    // total: bytes to come, 0 when not known.
    progress(const char* what, std::uint64_t total);
    ~progress();
    progress(const progress&) = delete;
    progress& operator=(const progress&) = delete;

    void at(std::uint64_t bytes);

private:
    const char* what_;
    std::uint64_t total_;
    std::uint64_t drawn_ = ~std::uint64_t{0};  // percent, or MiB when the total is not known
    bool shown_;
};

}  // namespace tessaly::tool
