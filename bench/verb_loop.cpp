// Issues one verb a given number of times, warm, and nothing else: what bench/instructions and bench/counters run twice,
// with two lengths, so that the difference is the verbs alone.
#include "bench/stage.h"

#include <string_view>

// Until the loop begins callgrind need not look, which makes its runs far shorter. What it counts meanwhile would cancel out
// anyway.
#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_START_INSTRUMENTATION
#endif

using namespace tessaly;
using namespace tessaly::bench;

namespace {

constexpr u32 WARM_UP = 64;

struct measured_verb {
    std::string_view name;
    void (*issue)(stage&);
    bool needs_data = false;  // one record for each
    bool leaves_data = false;
};

constexpr measured_verb verbs[] = {
    {"none", [](stage&) {}},
    {"SEND_DATA", [](stage& s) { s.send_data(); }, false, OVER_NODE},
    {"RECEIVE_AND_WAIT", [](stage& s) { s.receive_and_wait(); }, OVER_NODE},
#if TESSALY_BENCH_OVER_NODE
    {"GET_STATE", [](stage& s) { s.get_state(); }},
    {"GET_TYPE", [](stage& s) { s.get_type(); }},
    {"RECEIVE_IMMEDIATE", [](stage& s) { s.receive_immediate(); }},
    {"async", [](stage& s) { s.get_state_async(); }},
    {"confirmation", [](stage& s) { s.confirmation(); }},
#else
    {"CONFIRM", [](stage& s) { s.confirm(); }},
    {"async", [](stage& s) { s.confirm_async(); }},
#endif
};

const measured_verb* find(std::string_view name)
{
    for (const measured_verb& each : verbs)
        if (each.name == name)
            return &each;
    return nullptr;
}

u32 number(const char* text)
{
    return static_cast<u32>(std::strtoul(text, nullptr, 10));
}

}  // namespace

int main(int count, char** arguments)
{
    const measured_verb* verb = count == 6 ? find(arguments[1]) : nullptr;
    if (verb == nullptr || number(arguments[3]) == 0) {
        std::fprintf(stderr, "usage: %s VERB TIMES TPS IN_FLIGHT MOST_TIMES\n", arguments[0]);
        return 2;
    }
    const u32 times = number(arguments[2]);
    const u32 most_times = number(arguments[5]);
    stage made{number(arguments[3]), number(arguments[4])};

    // The partner's queue grows once to what the longer of two runs needs, and is emptied again.
    if (verb->needs_data || verb->leaves_data) {
        for (u32 i = 0; i < most_times + WARM_UP; ++i)
            made.send_data();
        for (u32 i = 0; i < most_times + WARM_UP; ++i)
            made.receive_and_wait();
    }
    if (verb->needs_data)
        for (u32 i = 0; i < most_times + WARM_UP; ++i)
            made.send_data();

    CALLGRIND_START_INSTRUMENTATION;
    for (u32 i = 0; i < times + WARM_UP; ++i)
        verb->issue(made);
    std::_Exit(0);  // to end 10,000 TPs would only prolong the run under callgrind
}
