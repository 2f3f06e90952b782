// How much memory 10,000 TPs take at once, with the library, the runtime and the embedded node in one process. Prints the
// peak resident size in KiB: with nothing started, with the TPs alone, or with a conversation between each two.
#include "bench/one_thread.h"

#include <sys/resource.h>

#include <string_view>

using namespace tessaly::bench;

namespace {

constexpr unsigned TPS = 10'000;

void hold_nothing() {}

void hold_tps()
{
    for (unsigned i = 0; i < TPS; ++i)
        start_tp();
}

void hold_conversations()
{
    for (unsigned i = 0; i < TPS / 2; ++i) {
        program caller = start_tp();
        accept_conversation_of(caller);
    }
}

struct load {
    std::string_view name;
    void (*hold)();
};

constexpr load loads[] = {{"nothing", hold_nothing}, {"tps", hold_tps}, {"conversations", hold_conversations}};

}  // namespace

// What is held ends with the process.
int main(int count, char** arguments)
{
    for (const load& each : loads) {
        if (count == 2 && each.name == arguments[1]) {
            each.hold();
            rusage used{};
            getrusage(RUSAGE_SELF, &used);
            std::printf("%ld\n", used.ru_maxrss);
            return 0;
        }
    }
    std::fprintf(stderr, "usage: %s nothing|tps|conversations\n", arguments[0]);
    return 2;
}
