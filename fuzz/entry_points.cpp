// Every exported function that takes a block, chosen by the first byte, with blocks that hold anything, each exactly as long as
// its public struct; in between what the application and the node do otherwise.
#include "fuzz/player.h"

#include <tessaly/layout.h>

using namespace tessaly;
using namespace tessaly::fuzz;

namespace {

void show_in_hexadecimal(input& in)
{
    const std::vector<u8> shown = in.field(in.number<u8>());
    std::vector<char> text(2 * shown.size() + 1, '?');
    vav_to_hex_string(text.data(), static_cast<u32>(shown.size()), shown.data());
    for (std::size_t i = 0; i < shown.size(); ++i) {
        char expected[3];
        std::snprintf(expected, sizeof expected, "%02X", shown[i]);
        demand(std::memcmp(&text[2 * i], expected, 2) == 0, "two digits show a byte");
    }
    demand(text.back() == '\0', "a zero byte ends the digits");
}

u16 wild_opcode(input& in, player& program)
{
    switch (in.below(8)) {
    case 0: return in.number<u16>();
    case 1: return static_cast<u16>(FIRST_TP_SERVER_OPCODE + in.below(LAST_TP_SERVER_OPCODE - FIRST_TP_SERVER_OPCODE + 1));
    default: return program.any_opcode();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t bytes)
{
    input in(data, bytes);
    const u32 chosen = in.below(ENTRIES + 2);
    if (chosen == ENTRIES) {
        show_in_hexadecimal(in);
        return 0;
    }
    player program(in);
    while (!in.is_empty()) {
        if (chosen == ENTRIES + 1)
            program.trace(wild_opcode(in, program));
        else if (in.below(2) == 0)
            program.issue(static_cast<entry>(chosen), wild_opcode(in, program), true);
        else
            program.step();
    }
    program.finish();
    return 0;
}
