// The same exchange and the same flow through a ZeroMQ proxy in a process of its own: REQ and REP through ROUTER and DEALER, PUSH
// and PULL through PULL and PUSH, over ipc. A 64-bit program of its own; prints the nanoseconds of an exchange, or MB/s.
#include "bench/children.h"

#include <zmq.h>

#include <vector>

using namespace tessaly::bench;

namespace {

class endpoint {
public:
    endpoint(int type, bool binds, const std::string& address) : context_(zmq_ctx_new()), socket_(zmq_socket(context_, type))
    {
        if ((binds ? zmq_bind : zmq_connect)(socket_, address.c_str()) != 0)
            fail(address.c_str());
    }
    endpoint(const endpoint&) = delete;
    endpoint& operator=(const endpoint&) = delete;
    ~endpoint()
    {
        constexpr int AT_ONCE = 0;
        zmq_setsockopt(socket_, ZMQ_LINGER, &AT_ONCE, sizeof AT_ONCE);
        zmq_close(socket_);
        zmq_ctx_term(context_);
    }

    void* socket() const noexcept { return socket_; }

    void send(const std::vector<char>& record) const
    {
        if (zmq_send(socket_, record.data(), record.size(), 0) < 0)
            fail("zmq_send");
    }

    void receive(std::vector<char>& record) const
    {
        if (zmq_recv(socket_, record.data(), record.size(), 0) != static_cast<int>(record.size()))
            fail("zmq_recv");
    }

private:
    void* context_;
    void* socket_;
};

// Whoever connects before the other end is bound is connected as soon as it is.
class proxied : public two_doors {
public:
    proxied(int front_type, int back_type)
        : proxy_([this, front_type, back_type] {
              const endpoint front{front_type, true, front_address()};
              const endpoint back{back_type, true, back_address()};
              zmq_proxy(front.socket(), back.socket(), nullptr);
          })
    {
    }

private:
    const child proxy_;
};

double exchange()
{
    const proxied between{ZMQ_ROUTER, ZMQ_DEALER};
    const child partner{[&] {
        const endpoint answering{ZMQ_REP, false, between.back_address()};
        for (std::vector<char> record(RECORD_BYTES);;) {
            answering.receive(record);
            answering.send(record);
        }
    }};
    const endpoint asking{ZMQ_REQ, false, between.front_address()};
    std::vector<char> record(RECORD_BYTES);
    return ns_per_call(10'000, [&] {
        asking.send(record);
        asking.receive(record);
    });
}

double flow()
{
    const proxied between{ZMQ_PULL, ZMQ_PUSH};
    const child partner{[&] {
        const endpoint sender{ZMQ_PUSH, false, between.front_address()};
        for (const std::vector<char> record(FLOW_RECORD_BYTES);;)
            sender.send(record);
    }};
    const endpoint receiver{ZMQ_PULL, false, between.back_address()};
    std::vector<char> record(FLOW_RECORD_BYTES);
    return megabytes_per_second(5'000, [&] { receiver.receive(record); });
}

}  // namespace

int main(int count, char** arguments)
{
    return print_measured(count, arguments, exchange, flow);
}
