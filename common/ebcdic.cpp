#include "common/ebcdic.h"

namespace tessaly {

namespace {

constexpr std::array<u8, 256> make_ae_table()
{
    std::array<u8, 256> table{};
    const auto map_run = [&table](char first, unsigned count, unsigned ebcdic) {
        for (unsigned i = 0; i < count; ++i)
            table[static_cast<u8>(first) + i] = static_cast<u8>(ebcdic + i);
    };
    map_run(' ', 1, EBCDIC_BLANK);
    map_run('#', 1, 0x7B);
    map_run('$', 1, 0x5B);
    map_run('@', 1, 0x7C);
    map_run('.', 1, EBCDIC_PERIOD);
    map_run('/', 1, 0x61);
    map_run('0', 10, 0xF0);
    map_run('A', 9, 0xC1);
    map_run('J', 9, 0xD1);
    map_run('S', 8, 0xE2);
    map_run('a', 9, 0x81);
    map_run('j', 9, 0x91);
    map_run('s', 8, 0xA2);
    return table;
}

}  // namespace

constexpr std::array<u8, 256> AE_table = make_ae_table();

}  // namespace tessaly
