// The embedded node against what it is measured by: prints the nanoseconds of one verb, or of one exchange of 256 bytes each
// way.
#include "bench/conversing.h"
#include "bench/stage.h"

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

using namespace tessaly::bench;

namespace {

constexpr unsigned EXCHANGES = 30'000;
constexpr unsigned VERBS = 300'000;

double one_verb()
{
    stage on{1, 0};
    return ns_per_call(VERBS, [&] { on.get_state(); });
}

// The mean of the two verbs that carry a record.
double record_verbs()
{
    constexpr unsigned BATCH = 64;
    stage on{1, 0};
    return ns_per_call(VERBS / (2 * BATCH),
                       [&] {
                           for (unsigned i = 0; i < BATCH; ++i)
                               on.send_data();
                           for (unsigned i = 0; i < BATCH; ++i)
                               on.receive_and_wait();
                       }) /
           (2 * BATCH);
}

double two_threads()
{
    conversing both;
    return ns_per_call(EXCHANGES, [&] { both.exchange(); });
}

struct socket_pair {
    int ends[2];
    socket_pair()
    {
        if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0)
            fail("socketpair");
    }
};

// Until the other end is closed.
void send_all_back(int end)
{
    char record[RECORD_BYTES];
    while (recv(end, record, sizeof record, 0) > 0)
        if (send(end, record, sizeof record, 0) < 0)
            fail("send");
}

double round_trips(int end)
{
    char record[RECORD_BYTES] = {};
    return ns_per_call(EXCHANGES, [&] {
        if (send(end, record, sizeof record, 0) < 0 || recv(end, record, sizeof record, 0) != sizeof record)
            fail("round trip");
    });
}

double socket_between_threads()
{
    const socket_pair pair;
    std::thread other{[&] { send_all_back(pair.ends[1]); }};
    const double ns = round_trips(pair.ends[0]);
    close(pair.ends[0]);
    other.join();
    return ns;
}

double socket_between_processes()
{
    const socket_pair pair;
    const pid_t other = fork();
    if (other < 0)
        fail("fork");
    if (other == 0) {
        close(pair.ends[0]);
        send_all_back(pair.ends[1]);
        _exit(0);
    }
    close(pair.ends[1]);
    const double ns = round_trips(pair.ends[0]);
    close(pair.ends[0]);
    while (waitpid(other, nullptr, 0) < 0 && errno == EINTR) {}
    return ns;
}

struct rival {
    std::string_view name;
    double (*measure)();
};

constexpr rival rivals[] = {
    {"verb", one_verb},
    {"record-verbs", record_verbs},
    {"two-threads", two_threads},
    {"socket-threads", socket_between_threads},
    {"socket-processes", socket_between_processes},
};

}  // namespace

int main(int count, char** arguments)
{
    for (const rival& each : rivals) {
        if (count == 2 && each.name == arguments[1]) {
            std::printf("%.0f\n", each.measure());
            return 0;
        }
    }
    std::fprintf(stderr, "usage: %s RIVAL\n", arguments[0]);
    return 2;
}
