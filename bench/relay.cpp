// What tessaly-node is measured by: bare AF_UNIX SOCK_SEQPACKET packets of the same sizes between processes, with as little as
// can be done to them. Prints the nanoseconds of one round trip or exchange, or MB/s.
#include "bench/children.h"
#include "common/types.h"
#include "localnode/runtime/looking.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <string_view>
#include <vector>

using namespace tessaly;
using namespace tessaly::bench;

namespace {

// How long the packets of these verbs are, records not included.
constexpr std::size_t GET_TYPE_BYTES = 156;
constexpr std::size_t SEND_BYTES = 176;
constexpr std::size_t RECEIVE_BYTES = 184;

constexpr u8 SEND = 1;
constexpr u8 RECEIVE = 2;

bool both_look = false;

struct socket_pair {
    int ends[2];
    socket_pair()
    {
        if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0)
            fail("socketpair");
    }
};

using packet = std::vector<u8>;

class socket_end {
public:
    explicit socket_end(int socket) : socket_(socket) {}

    void send(const u8* bytes, std::size_t count) const
    {
        if (::send(socket_, bytes, count, MSG_NOSIGNAL) != static_cast<ssize_t>(count))
            fail("send");
    }

    std::size_t receive(packet& into)
    {
        ssize_t got = -1;
        const auto take = [&](int flags) { return (got = recv(socket_, into.data(), into.size(), flags)) >= 0; };
        if (!(both_look && look_.finds([&] { return take(MSG_DONTWAIT); })) && !take(0))
            fail("recv");
        return static_cast<std::size_t>(got);
    }

private:
    int socket_;
    runtime::looking look_{100};
};

// As a verb does: one packet there, its answer back.
class requests {
public:
    requests(int socket, std::size_t record_bytes)
        : end_(socket), record_bytes_(record_bytes), packet_(RECEIVE_BYTES + record_bytes)
    {
    }

    void send_record() { ask(SEND, SEND_BYTES + record_bytes_, SEND_BYTES); }
    void receive_record() { ask(RECEIVE, RECEIVE_BYTES, RECEIVE_BYTES + record_bytes_); }

private:
    void ask(u8 what, std::size_t bytes, std::size_t awaited)
    {
        packet_[0] = what;
        end_.send(packet_.data(), bytes);
        if (end_.receive(packet_) != awaited)
            fail("a wrong answer");
    }

    socket_end end_;
    std::size_t record_bytes_;
    packet packet_;
};

// Answers the requests of two programs: keeps the records of one until the other asks for them.
class relay {
public:
    relay(int first, int second, std::size_t record_bytes)
        : record_bytes_(record_bytes), received_(RECEIVE_BYTES + record_bytes), poller_(epoll_create1(0)),
          sides_{side{first}, side{second}}
    {
        for (u32 i = 0; i < 2; ++i) {
            sides_[i].kept.assign(MOST_KEPT, packet(RECEIVE_BYTES + record_bytes));
            epoll_event event{.events = EPOLLIN, .data = {.u32 = i}};
            epoll_ctl(poller_, EPOLL_CTL_ADD, sides_[i].socket, &event);
        }
    }

    void run()
    {
        epoll_event events[2];
        int count = 0;
        const auto poll = [&](int timeout) { return (count = epoll_wait(poller_, events, 2, timeout)) > 0; };
        for (;;) {
            if (!(both_look && look_.finds([&] { return poll(0); })))
                poll(-1);
            for (int i = 0; i < count; ++i)
                serve(events[i].data.u32);
        }
    }

private:
    static constexpr std::size_t MOST_KEPT = 512;

    struct side {
        int socket;
        std::vector<packet> kept{};  // for it, in a ring
        std::size_t begin = 0;
        std::size_t count = 0;
        bool waits = false;  // for a record
        bool held = false;   // its last record is not answered yet
    };

    void serve(u32 from)
    {
        side& asking = sides_[from];
        side& partner = sides_[1 - from];
        const ssize_t got = recv(asking.socket, received_.data(), received_.size(), MSG_DONTWAIT);
        if (got <= 0)
            _exit(0);
        if (received_[0] == SEND) {
            asking.held = !partner.waits && partner.count == MOST_KEPT - 1;
            if (!asking.held)
                answer(asking, received_.data(), SEND_BYTES);
            if (partner.waits)
                answer(partner, received_.data(), RECEIVE_BYTES + record_bytes_);
            else
                partner.kept[(partner.begin + partner.count++) % MOST_KEPT] = received_;
            partner.waits = false;
        } else if (asking.count != 0) {
            answer(asking, asking.kept[asking.begin].data(), RECEIVE_BYTES + record_bytes_);
            asking.begin = (asking.begin + 1) % MOST_KEPT;
            if (--asking.count == MOST_KEPT / 2 && partner.held) {
                answer(partner, received_.data(), SEND_BYTES);
                partner.held = false;
            }
        } else {
            asking.waits = true;
        }
    }

    static void answer(const side& to, const u8* bytes, std::size_t count)
    {
        if (send(to.socket, bytes, count, MSG_NOSIGNAL) < 0)
            _exit(0);
    }

    std::size_t record_bytes_;
    packet received_;
    int poller_;
    runtime::looking look_{100};
    side sides_[2];
};

double round_trip()
{
    const socket_pair pair;
    const child other{[&] {
        socket_end end{pair.ends[1]};
        packet received(GET_TYPE_BYTES);
        for (;;)
            end.send(received.data(), end.receive(received));
    }};
    socket_end end{pair.ends[0]};
    packet sent(GET_TYPE_BYTES);
    return ns_per_call(30'000, [&] {
        end.send(sent.data(), sent.size());
        end.receive(sent);
    });
}

child start_relay(const socket_pair& first, const socket_pair& second, std::size_t record_bytes)
{
    return child{[&, record_bytes] { relay{first.ends[1], second.ends[1], record_bytes}.run(); }};
}

double exchange()
{
    const socket_pair first;
    const socket_pair second;
    const child between = start_relay(first, second, RECORD_BYTES);
    const child partner{[&] {
        requests answering{second.ends[0], RECORD_BYTES};
        for (;;) {
            answering.receive_record();
            answering.send_record();
        }
    }};
    requests asking{first.ends[0], RECORD_BYTES};
    return ns_per_call(10'000, [&] {
        asking.send_record();
        asking.receive_record();
    });
}

double flow()
{
    const socket_pair first;
    const socket_pair second;
    const child between = start_relay(first, second, FLOW_RECORD_BYTES);
    const child partner{[&] {
        requests sender{second.ends[0], FLOW_RECORD_BYTES};
        for (;;)
            sender.send_record();
    }};
    requests receiver{first.ends[0], FLOW_RECORD_BYTES};
    return megabytes_per_second(5'000, [&] { receiver.receive_record(); });
}

struct measurement {
    std::string_view name;
    double (*measure)();
};

constexpr measurement measurements[] = {{"round-trip", round_trip}, {"exchange", exchange}, {"flow", flow}};

}  // namespace

int main(int count, char** arguments)
{
    both_look = count == 3 && std::string_view{arguments[2]} == "looking";
    for (const measurement& each : measurements) {
        if ((count == 2 || both_look) && each.name == arguments[1]) {
            std::printf("%.0f\n", each.measure());
            return 0;
        }
    }
    std::fprintf(stderr, "usage: %s round-trip|exchange|flow [looking]\n", arguments[0]);
    return 2;
}
