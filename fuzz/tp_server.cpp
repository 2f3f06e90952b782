// The TP server: its verbs, and its receive routine with requests, answers and their elements, attach headers and PIP data, most
// of them nearly right.
#include "fuzz/player.h"

using namespace tessaly;
using namespace tessaly::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const u8* data, std::size_t bytes)
{
    input in(data, bytes);
    player program(in);
    program.issue(entry::async_int, NAP_REGISTER_TP_SERVER, false);
    while (!in.is_empty()) {
        static constexpr u16 opcodes[] = {
            NAP_QUERY_ATTACH,  NAP_QUERY_ATTACH,   NAP_QUERY_ATTACH, NAP_REGISTER_TP,        NAP_UNREGISTER_TP,
            NAP_START_APPL_OK, NAP_START_APPL_ERR, NAP_APPL_FAILED,  NAP_REGISTER_TP_SERVER, NAP_UNREGISTER_TP_SERVER};
        const u32 what = in.below(16);
        if (what == 15)
            program.step();
        else if (what < 6)
            program.issue(entry::async_int, in.one_of(opcodes), in.below(16) == 15);
        else
            program.tell_server();
    }
    program.finish();
    return 0;
}
