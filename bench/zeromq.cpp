// The same exchange through ZeroMQ's inproc transport, 256 bytes each way between two threads; prints the nanoseconds of
// one. A 64-bit program of its own, which bench/compare builds against Debian's package.
#include "bench/timing.h"

#include <zmq.h>

#include <cstring>
#include <thread>

using namespace tessaly::bench;

namespace {

constexpr unsigned EXCHANGES = 30'000;
constexpr char ENDPOINT[] = "inproc://bench";

void send_record(void* socket, const void* record, std::size_t bytes)
{
    if (zmq_send(socket, record, bytes, 0) < 0)
        fail("zmq_send");
}

// Result: the length of what came.
int receive_record(void* socket, char (&buffer)[RECORD_BYTES])
{
    const int bytes = zmq_recv(socket, buffer, sizeof buffer, 0);
    if (bytes < 0)
        fail("zmq_recv");
    return bytes;
}

// An empty record ends it.
void send_all_back(void* socket)
{
    char record[RECORD_BYTES];
    for (int bytes; (bytes = receive_record(socket, record)) != 0;)
        send_record(socket, record, static_cast<std::size_t>(bytes));
    zmq_close(socket);
}

double measure(int asking_type, int answering_type)
{
    void* context = zmq_ctx_new();
    void* answering = zmq_socket(context, answering_type);
    void* asking = zmq_socket(context, asking_type);
    if (zmq_bind(answering, ENDPOINT) != 0 || zmq_connect(asking, ENDPOINT) != 0)
        fail("inproc");
    std::thread other{[answering] { send_all_back(answering); }};

    char record[RECORD_BYTES] = {};
    const double ns = ns_per_call(EXCHANGES, [&] {
        send_record(asking, record, sizeof record);
        receive_record(asking, record);
    });
    send_record(asking, record, 0);
    other.join();
    zmq_close(asking);
    zmq_ctx_term(context);
    return ns;
}

}  // namespace

int main(int count, char** arguments)
{
    const bool pair = count == 2 && std::strcmp(arguments[1], "pair") == 0;
    const bool request = count == 2 && std::strcmp(arguments[1], "request-reply") == 0;
    if (!pair && !request) {
        std::fprintf(stderr, "usage: %s pair|request-reply\n", arguments[0]);
        return 2;
    }
    std::printf("%.0f\n", pair ? measure(ZMQ_PAIR, ZMQ_PAIR) : measure(ZMQ_REQ, ZMQ_REP));
    return 0;
}
