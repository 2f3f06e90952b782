// The handing over between loop and sentry, many times and at all moments that two threads find.
#include "localnode/daemon/private_line.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <cerrno>

namespace tessaly::daemon {
namespace {

using service::unique_fd;

// Moves what follows to another moment of what the other threads do meanwhile.
void pass(int moments)
{
    for (int i = 0; i < moments; ++i)
        __builtin_ia32_pause();
}

// Per round: the client's packet and other news come at once, so that the loop may leave by itself, and come back, while it is
// called back.
TEST(PrivateLine, ends_with_any_other_news_and_leaves_the_socket_as_it_was)
{
    constexpr int ROUNDS = 20'000;
    const unique_fd poller{epoll_create1(EPOLL_CLOEXEC)}, news{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    epoll_event event{};
    event.events = EPOLLIN;
    ASSERT_EQ(epoll_ctl(poller.get(), EPOLL_CTL_ADD, news.get(), &event), 0);
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
    const unique_fd own{ends[0]}, client{ends[1]};

    private_line line{poller.get()};
    std::atomic<int> begun = 0;
    std::thread others{[&] {
        for (int round = 1; round <= ROUNDS; ++round) {
            begun.wait(round - 1);
            if (round % 3 != 0)
                send(client.get(), "p", 1, MSG_DONTWAIT);
            eventfd_write(news.get(), 1);
        }
    }};
    int not_restored = 0, not_told = 0;
    for (int round = 1; round <= ROUNDS; ++round) {
        EXPECT_TRUE(line.begin(own.get()));
        begun = round;
        begun.notify_one();
        char packet = 0;
        if (round % 3 == 1) {
            not_told += recv(own.get(), &packet, 1, 0) != 1;
            for (pollfd readable{poller.get(), POLLIN, 0}; poll(&readable, 1, 0) == 0;)
                ;
            pass(round % 256);
            line.end();
            not_restored += (fcntl(own.get(), F_GETFL) & O_NONBLOCK) == 0;
            pass(round % 101);
            EXPECT_TRUE(line.begin(own.get()));
        }
        while (recv(own.get(), &packet, 1, 0) == 1) {
        }
        not_told += errno != EAGAIN || line.is_quiet();
        line.end();
        not_restored += (fcntl(own.get(), F_GETFL) & O_NONBLOCK) == 0;
        eventfd_t told = 0;
        not_told += eventfd_read(news.get(), &told) != 0;
    }
    others.join();
    EXPECT_EQ(not_restored, 0);
    EXPECT_EQ(not_told, 0);
}

}  // namespace
}  // namespace tessaly::daemon
