// The library's routine for what the runtime delivers: answers, indications, datagrams, data, lost paths, abends, forks and the
// end of the node, sound, spoilt and made up, while verbs are in whatever state the input has brought them to.
#include "fuzz/player.h"

extern "C" int LLVMFuzzerTestOneInput(const tessaly::u8* data, std::size_t bytes)
{
    tessaly::fuzz::input in(data, bytes);
    tessaly::fuzz::player program(in);
    while (!in.is_empty())
        program.step();
    program.finish();
    return 0;
}
