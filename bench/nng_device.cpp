// The same exchange and the same flow through nng_device in a process of its own: REQ and REP, PUSH and PULL, over ipc. A 64-bit
// program of its own; prints the nanoseconds of an exchange, or MB/s.
#include "bench/children.h"

#include <nng/nng.h>
#include <nng/protocol/pipeline0/pull.h>
#include <nng/protocol/pipeline0/push.h>
#include <nng/protocol/reqrep0/rep.h>
#include <nng/protocol/reqrep0/req.h>

#include <vector>

using namespace tessaly::bench;

namespace {

using opening = int (*)(nng_socket*);

void must(int error, const char* what)
{
    if (error == 0)
        return;
    std::fprintf(stderr, "%s: %s\n", what, nng_strerror(error));
    std::exit(1);
}

nng_socket opened(opening open)
{
    nng_socket made;
    must(open(&made), "open");
    return made;
}

nng_socket listening(opening open, const std::string& address)
{
    const nng_socket made = opened(open);
    must(nng_listen(made, address.c_str(), nullptr, 0), "nng_listen");
    return made;
}

nng_socket dialing(opening open, const std::string& address)
{
    constexpr nng_duration AGAIN_MS = 10;
    const nng_socket made = opened(open);
    must(nng_socket_set_ms(made, NNG_OPT_RECONNMINT, AGAIN_MS), "option");
    must(nng_dial(made, address.c_str(), nullptr, NNG_FLAG_NONBLOCK), "nng_dial");
    return made;
}

void send(nng_socket on, std::vector<char>& record)
{
    must(nng_send(on, record.data(), record.size(), 0), "nng_send");
}

void receive(nng_socket on, std::vector<char>& record)
{
    std::size_t bytes = record.size();
    must(nng_recv(on, record.data(), &bytes, 0), "nng_recv");
    if (bytes != record.size())
        fail("a record that is cut");
}

class device : public two_doors {
public:
    device(opening front, opening back)
        : running_([this, front, back] {
              must(nng_device(listening(front, front_address()), listening(back, back_address())), "nng_device");
          })
    {
    }

private:
    const child running_;
};

double exchange()
{
    const device between{nng_rep0_open_raw, nng_req0_open_raw};
    const child partner{[&] {
        const nng_socket answering = dialing(nng_rep0_open, between.back_address());
        for (std::vector<char> record(RECORD_BYTES);;) {
            receive(answering, record);
            send(answering, record);
        }
    }};
    const nng_socket asking = dialing(nng_req0_open, between.front_address());
    std::vector<char> record(RECORD_BYTES);
    return ns_per_call(10'000, [&] {
        send(asking, record);
        receive(asking, record);
    });
}

double flow()
{
    const device between{nng_pull0_open_raw, nng_push0_open_raw};
    const child partner{[&] {
        const nng_socket sender = dialing(nng_push0_open, between.front_address());
        for (std::vector<char> record(FLOW_RECORD_BYTES);;)
            send(sender, record);
    }};
    const nng_socket receiver = dialing(nng_pull0_open, between.back_address());
    std::vector<char> record(FLOW_RECORD_BYTES);
    return megabytes_per_second(5'000, [&] { receive(receiver, record); });
}

}  // namespace

int main(int count, char** arguments)
{
    return print_measured(count, arguments, exchange, flow);
}
