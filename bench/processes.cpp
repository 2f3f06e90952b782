// Programs that converse through tessaly-node, each in a process of its own; bench/processes runs it. Prints nanoseconds per verb
// or exchange, MB/s, or how verbs fared whose node was lost.
#include "bench/conversing.h"
#include "bench/node_process.h"

#include <atomic>
#include <string>
#include <string_view>
#include <vector>

using namespace tessaly;
using namespace tessaly::bench;

namespace {

constexpr char TO_ONESELF[] = "/proc/self/exe";

// The partner: the same program once more, with the verb library to itself.
child start_partner(const char* part)
{
    return child{[part] {
        execl(TO_ONESELF, "partner", part, nullptr);
        fail(TO_ONESELF);
    }};
}

void answer(unsigned)
{
    pin_later(0);
    answer_all();
}

void print_exchange(unsigned times)
{
    const node_process node;
    const child partner = start_partner("answer");
    pin_later(0);
    asking caller;
    std::printf("%.0f\n", ns_per_call(times, [&] { caller.exchange(); }));
    std::fflush(stdout);
}

// A verb that the node answers by itself; the partner sleeps meanwhile.
void print_get_type(unsigned times)
{
    const node_process node;
    const child partner = start_partner("answer");
    program caller = start_tp();
    allocate(caller, "ANSWERER");
    auto get_type = verb_of<appc_get_type>(caller, APPC_OP_GET_TYPE);
    std::printf("%.0f\n", ns_per_call(times, [&] { run(get_type); }));
    std::fflush(stdout);
}

void send_forever(unsigned)
{
    program caller = start_tp();
    allocate(caller, "RECEIVER");
    const std::vector<u8> record(FLOW_RECORD_BYTES);
    auto send = sending(caller, record.data());
    send.dlen = FLOW_RECORD_BYTES;
    for (;;)
        run(send);
}

void print_flow(unsigned records)
{
    const node_process node;
    const child partner = start_partner("send");
    auto accept = accepting("RECEIVER");
    run(accept);
    std::vector<u8> buffer(FLOW_RECORD_BYTES);
    auto receive = receiving(accepted(accept), buffer.data());
    receive.max_len = FLOW_RECORD_BYTES;
    std::printf("%.0f\n", megabytes_per_second(records, [&] {
        run(receive);
        if (receive.dlen != FLOW_RECORD_BYTES)
            fail("a record that is cut");
    }));
    std::fflush(stdout);
}

constexpr u32 ABANDONED_TPS = 10'000;
std::atomic<u32> accepted_so_far{0};
std::atomic<u32> ended{0};
std::atomic<u32> abended{0};

void note_accepted(void*, u8*, u32, u32)
{
    ++accepted_so_far;
    accepted_so_far.notify_all();
}

void note_end(void* block, u8*, u32, u32)
{
    abended += static_cast<const appc_receive*>(block)->primary_rc == APPC_COMMS_SUBSYSTEM_ABENDED;
    if (++ended == ABANDONED_TPS)
        ended.notify_all();
}

void wait_for(const std::atomic<u32>& counter, u32 awaited)
{
    for (u32 so_far; (so_far = counter.load()) < awaited;)
        counter.wait(so_far);
}

// One TP has a conversation with each of the others, and each of those waits for a record when the node is killed. Prints the
// milliseconds until all waits have ended, how many ended as they should, and how many otherwise.
void print_abandoned(unsigned)
{
    const node_process node;
    program caller = start_tp();
    u8 buffer[RECORD_BYTES];
    std::vector<appc_receive> waits(ABANDONED_TPS);
    for (u32 i = 0; i < ABANDONED_TPS; ++i) {
        auto accept = accepting("PARTNER");
        issue(accept, note_accepted);
        allocate(caller, "PARTNER");
        wait_for(accepted_so_far, i + 1);
        waits[i] = receiving(accepted(accept), buffer);
        issue(waits[i], note_end);
    }
    if (ended != 0)
        fail("a wait has ended although the node is there");
    const auto start = std::chrono::steady_clock::now();
    kill(node.id(), SIGKILL);
    wait_for(ended, ABANDONED_TPS);
    const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
    std::printf("%.1f %u %u\n", taken.count(), abended.load(), ended.load() - abended.load());
    std::fflush(stdout);
}

struct part {
    std::string_view name;
    void (*play)(unsigned times);
    unsigned times;
};

constexpr part parts[] = {
    {"get-type", print_get_type, 30'000},
    {"exchange", print_exchange, 10'000},
    {"flow", print_flow, 5'000},
    {"abandoned", print_abandoned, 0},
    {"answer", answer, 0},
    {"send", send_forever, 0},
};

}  // namespace

int main(int count, char** arguments)
{
    for (const part& each : parts) {
        if ((count == 2 || count == 3) && each.name == arguments[1]) {
            each.play(count == 3 ? static_cast<unsigned>(std::strtoul(arguments[2], nullptr, 10)) : each.times);
            return 0;
        }
    }
    std::fprintf(stderr, "usage: %s get-type|exchange|flow|abandoned [TIMES]\n", arguments[0]);
    return 2;
}
