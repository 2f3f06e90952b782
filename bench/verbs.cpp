// What a verb costs in time: by verb, by how many TPs there are, by how many verbs are in flight. Over the null runtime it
// is the library's cost and the little that the null runtime adds, over the embedded node also the node's.
#include "bench/stage.h"
#if TESSALY_BENCH_OVER_NODE
#include "bench/conversing.h"
#endif

#include <benchmark/benchmark.h>

using namespace tessaly::bench;
using tessaly::u32;

namespace {

u32 argument(const benchmark::State& state)
{
    return static_cast<u32>(state.range(0));
}

template <void (stage::*verb)()>
void one_verb(benchmark::State& state)
{
    stage on{1, 0};
    for (auto _ : state)
        (on.*verb)();
}

template <void (stage::*verb)()>
void by_verbs_in_flight(benchmark::State& state)
{
    stage on{1, argument(state)};
    for (auto _ : state)
        (on.*verb)();
}

// The verb goes to each TP in turn, so that no TP's records are still in the cache when there are many.
void by_tps(benchmark::State& state)
{
    stage on{argument(state), 0};
    for (auto _ : state)
        on.next_tp();
}

void in_flight_steps(benchmark::internal::Benchmark* family)
{
    family->ArgName("in_flight")->Arg(0)->Arg(50)->Arg(99)->Arg(100)->Arg(200);
}

void tp_steps(benchmark::internal::Benchmark* family)
{
    family->ArgName("TPs")->Arg(1)->Arg(100)->Arg(10000);
}

#if TESSALY_BENCH_OVER_NODE

// One of two verbs that keep up with each other: a batch of the other is issued while the clock stands.
template <void (stage::*verb)(), void (stage::*other)(), bool other_first>
void one_of_two(benchmark::State& state)
{
    constexpr u32 BATCH = 64;
    stage on{1, 0};
    const auto batch_of_other = [&] {
        state.PauseTiming();
        for (u32 i = 0; i < BATCH; ++i)
            (on.*other)();
        state.ResumeTiming();
    };
    while (state.KeepRunningBatch(BATCH)) {
        if (other_first)
            batch_of_other();
        for (u32 i = 0; i < BATCH; ++i)
            (on.*verb)();
        if (!other_first)
            batch_of_other();
    }
}

void two_threads(benchmark::State& state)
{
    conversing both;
    for (auto _ : state)
        both.exchange();
}

BENCHMARK(one_verb<&stage::get_state>)->Name("GET_STATE");
BENCHMARK(one_verb<&stage::get_type>)->Name("GET_TYPE");
BENCHMARK(one_of_two<&stage::send_data, &stage::receive_and_wait, false>)->Name("SEND_DATA, 256 bytes");
BENCHMARK(one_of_two<&stage::receive_and_wait, &stage::send_data, true>)->Name("RECEIVE_AND_WAIT, 256 bytes there");
BENCHMARK(one_verb<&stage::receive_immediate>)->Name("RECEIVE_IMMEDIATE, nothing there");
BENCHMARK(one_verb<&stage::get_state_async>)->Name("GET_STATE, asynchronous");
BENCHMARK(one_verb<&stage::confirmation>)->Name("CONFIRM, RECEIVE_AND_WAIT, CONFIRMED");
BENCHMARK(by_verbs_in_flight<&stage::get_state>)->Name("GET_STATE")->Apply(in_flight_steps);
BENCHMARK(by_tps)->Name("GET_TP_PROPERTIES")->Apply(tp_steps);
BENCHMARK(two_threads)->Name("two threads, 256 bytes each way")->UseRealTime();

#else

BENCHMARK(one_verb<&stage::confirm>)->Name("CONFIRM");
BENCHMARK(one_verb<&stage::send_data>)->Name("SEND_DATA, 256 bytes");
BENCHMARK(one_verb<&stage::receive_and_wait>)->Name("RECEIVE_AND_WAIT, 256 bytes");
BENCHMARK(one_verb<&stage::confirm_async>)->Name("CONFIRM, asynchronous");
BENCHMARK(by_verbs_in_flight<&stage::confirm>)->Name("CONFIRM")->Apply(in_flight_steps);
BENCHMARK(by_tps)->Name("CONFIRM")->Apply(tp_steps);

#endif

}  // namespace

BENCHMARK_MAIN();
