// EBCDIC checks and conversion. Needs no lock.
#include "localnode/runtime/ebcdic.h"

#include "runtime/node_runtime.h"

#include <algorithm>
#include <span>
#include <string_view>

namespace tessaly::runtime {

namespace {

struct run {
    u8 first;
    std::string_view ascii;
};

// The characters as they follow each other in code page 037.
constexpr run runs[] = {
    {0x40, " "},         {0x4B, ".<(+|&"},    {0x5A, "!$*);"},      {0x60, "-/"},        {0x6B, ",%_>?"},
    {0x79, "`:#@'=\""},  {0x81, "abcdefghi"}, {0x91, "jklmnopqr"},  {0xA1, "~stuvwxyz"}, {0xB0, "^"},
    {0xBA, "[]"},        {0xC0, "{ABCDEFGHI"}, {0xD0, "}JKLMNOPQR"}, {0xE0, "\\"},        {0xE2, "STUVWXYZ"},
    {0xF0, "0123456789"},
};

constexpr std::array<u8, 256> make_table()
{
    std::array<u8, 256> table{};
    table.fill('.');
    for (const run& characters : runs)
        for (std::size_t i = 0; i < characters.ascii.size(); ++i)
            table[characters.first + i] = static_cast<u8>(characters.ascii[i]);
    return table;
}

constexpr u8 SNA_NAME_CLASS = 8;
constexpr u8 ANY_BYTE_CLASS = 0;

bool is_in_sna_name(u8 ebcdic)
{
    const u8 c = ascii_of_ebcdic[ebcdic];
    return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '$' || c == '#' || c == '@';
}

}  // namespace

constexpr std::array<u8, 256> ascii_of_ebcdic = make_table();

}  // namespace tessaly::runtime

using namespace tessaly::runtime;

extern "C" uint16_t nba_check_ebcdic(uint8_t char_class, const uint8_t* bytes, uint16_t count)
{
    if (count == 0 || char_class == ANY_BYTE_CLASS)
        return 1;
    if (char_class != SNA_NAME_CLASS || bytes == nullptr)
        return 0;
    return std::ranges::all_of(std::span{bytes, count}, is_in_sna_name) ? 1 : 0;
}

extern "C" void nba_ebcdic_to_local(uint8_t* bytes, uint32_t count)
{
    for (uint8_t& byte : std::span{bytes, bytes != nullptr ? count : 0})
        byte = ascii_of_ebcdic[byte];
}
