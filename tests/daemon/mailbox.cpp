// Both ends of a mailbox beside a socket: what comes which way, in order, at all moments that two threads find.
#include "localnode/daemon/mailbox_sender.h"

#include "localnode/runtime/mailbox.h"
#include "service/unique_fd.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>
#include <memory>
#include <optional>
#include <random>
#include <thread>
#include <vector>

namespace tessaly::daemon {
namespace {

using service::unique_fd;

constexpr std::size_t LONGEST_LETTER = sizeof(node::shared_mailbox::letter);

class Mailbox : public testing::Test {
protected:
    Mailbox()
    {
        const unique_fd memory{node_memory.make()};
        sender.emplace().open(node_memory);
        EXPECT_TRUE(client_memory.take_over(memory.get()));
        mailbox.use(client_memory.mailbox());
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
        node_socket = unique_fd{ends[0]};
        client_socket = unique_fd{ends[1]};
    }

    int make_again()
    {
        sender.reset();  // which is of the memory so far
        return node_memory.make();
    }

    static std::vector<u8> packet(u32 number, std::size_t bytes)
    {
        std::vector<u8> made(bytes, static_cast<u8>(number));
        std::memcpy(made.data(), &number, sizeof number);
        return made;
    }

    // Whether it went as a letter.
    bool send(std::span<const u8> packet)
    {
        if (sender->put(packet))
            return true;
        sender->note_sent(::send(node_socket.get(), packet.data(), packet.size(), MSG_NOSIGNAL) >= 0);
        return false;
    }

    // Empty: nothing there.
    std::vector<u8> receive(int flags)
    {
        std::vector<u8> got(2 * LONGEST_LETTER);
        const ssize_t bytes = recv(client_socket.get(), got.data(), got.size(), flags);
        got.resize(bytes > 0 ? static_cast<std::size_t>(bytes) : 0);
        received += bytes > 0;
        return got;
    }

    static std::vector<u8> copy(std::span<const u8> letter) { return {letter.begin(), letter.end()}; }

    runtime::slots node_memory, client_memory;
    std::optional<mailbox_sender> sender;
    runtime::mailbox mailbox;
    unique_fd node_socket, client_socket;
    u32 received = 0;  // through the socket
};

TEST_F(Mailbox, keeps_packets_in_order_that_come_as_letters_and_through_the_socket)
{
    constexpr u32 PACKETS = 60'000;
    std::atomic<u32> taken = 0;
    const auto client_waits = [&](u32 next) {
        return taken.load() == next && (std::atomic_ref{client_memory.mailbox()->word}.load() & node::MAILBOX_AT_REST) == 0;
    };
    u32 letters = 0, by_socket = 0, wrong = 0;
    std::thread client{[&] {
        std::minstd_rand random;
        for (u32 next = 0; next < PACKETS;) {
            std::vector<u8> got;
            switch (random() % 8) {
            case 0: got = receive(MSG_DONTWAIT); break;
            case 1:
            case 2:
            case 3:  // often, since it may come back to listening while the node still believes that it never stopped
                if (mailbox.listen(received))
                    got = copy(mailbox.stop());
                break;
            default:
                if (!mailbox.listen(received))
                    got = receive(0);
                else if (got = copy(mailbox.next()); got.empty())
                    got = receive(0);
                break;
            }
            if (got.empty())
                continue;
            u32 number = 0;
            std::memcpy(&number, got.data(), sizeof number);
            wrong += number != next || got != packet(number, got.size());
            taken = ++next;
        }
    }};
    std::minstd_rand random{2};
    for (u32 next = 0; next < PACKETS; ++next) {
        const std::size_t bytes = random() % 16 == 0 ? LONGEST_LETTER + 1 : sizeof next + random() % 300;
        (send(packet(next, bytes)) ? letters : by_socket) += 1;
        constexpr u32 MOST_AHEAD = 4;
        while (next + 1 - taken.load() > MOST_AHEAD)
            std::this_thread::yield();
        for (auto moments = random() % 64; moments != 0 && !client_waits(next + 1); --moments)
            std::this_thread::yield();
    }
    client.join();
    EXPECT_EQ(wrong, 0u);
    EXPECT_TRUE(letters > PACKETS / 100 && by_socket > PACKETS / 100) << letters << " letters, " << by_socket << " by socket";
}

TEST_F(Mailbox, takes_one_letter_from_who_listens_when_all_before_has_been_received)
{
    EXPECT_FALSE(send(packet(0, 100))) << "nobody listens";
    EXPECT_FALSE(mailbox.listen(received)) << "the socket has a packet";
    EXPECT_FALSE(send(packet(1, 100))) << "nobody listens";
    EXPECT_TRUE(receive(0) == packet(0, 100) && receive(0) == packet(1, 100));

    for (const std::size_t bytes : {std::size_t{16}, LONGEST_LETTER}) {
        EXPECT_TRUE(mailbox.listen(received));
        EXPECT_TRUE(send(packet(2, bytes)));
        EXPECT_FALSE(send(packet(3, 100))) << "one has come";
        EXPECT_TRUE(mailbox.listen(received)) << "still";
        EXPECT_TRUE(copy(mailbox.next()) == packet(2, bytes) && receive(MSG_DONTWAIT) == packet(3, 100));
    }

    EXPECT_TRUE(mailbox.listen(received));
    EXPECT_FALSE(send(packet(4, LONGEST_LETTER + 1)));
    EXPECT_TRUE(mailbox.next().empty() && receive(MSG_DONTWAIT) == packet(4, LONGEST_LETTER + 1));

    EXPECT_TRUE(mailbox.listen(received));
    EXPECT_TRUE(mailbox.stop().empty());
    EXPECT_FALSE(sender->put(packet(5, 100)));
    sender->note_sent(false);  // and not through the socket either
    EXPECT_TRUE(mailbox.listen(received) && send(packet(6, 100)));
    EXPECT_EQ(copy(mailbox.stop()), packet(6, 100)) << "what has come is not left there";
    EXPECT_TRUE(mailbox.stop().empty());

    EXPECT_TRUE(mailbox.listen(received) && send(packet(7, 100)));
    sender.reset();
    EXPECT_EQ(copy(mailbox.next()), packet(7, 100)) << "what was sent before the end arrives";
    EXPECT_FALSE(mailbox.listen(received));
}

TEST_F(Mailbox, gets_a_letter_that_was_begun_before_it_stopped_listening_and_listened_again)
{
    node::shared_mailbox& shared = *node_memory.mailbox();
    EXPECT_TRUE(mailbox.listen(received));
    const u32 listened_to = shared.word;
    const std::vector<u8> late = packet(1, 100);
    std::ranges::copy(late, shared.letter);
    shared.letter_bytes = 100;
    EXPECT_TRUE(mailbox.stop().empty());
    EXPECT_TRUE(mailbox.listen(received));
    shared.word = listened_to | node::MAILBOX_AT_REST;
    EXPECT_EQ(copy(mailbox.next()), late);
    EXPECT_TRUE(mailbox.listen(received));
    shared.word = listened_to | node::MAILBOX_AT_REST;
    EXPECT_TRUE(mailbox.next().empty()) << "once";
}

TEST_F(Mailbox, is_left_for_good_when_either_end_closes_it)
{
    const auto sleeping = [this](auto close) {
        EXPECT_TRUE(mailbox.listen(received));
        std::thread closing{close};
        EXPECT_TRUE(mailbox.next().empty());
        closing.join();
        EXPECT_FALSE(mailbox.listen(received));
        EXPECT_TRUE(mailbox.stop().empty());
    };
    sleeping([this] { mailbox.close(); });
    EXPECT_FALSE(send(packet(0, 100)));

    const unique_fd memory{make_again()};
    std::thread node{[&] {
        mailbox_sender ends_with_thread;
        ends_with_thread.open(node_memory);
        EXPECT_TRUE(client_memory.take_over(memory.get()));
        mailbox.use(client_memory.mailbox());
        EXPECT_TRUE(mailbox.listen(received));
    }};
    node.join();
    EXPECT_TRUE(mailbox.next().empty());
    EXPECT_FALSE(mailbox.listen(received));
}

TEST_F(Mailbox, wakes_its_client_when_the_node_is_killed)
{
    const unique_fd memory{make_again()};
    ASSERT_TRUE(client_memory.take_over(memory.get()));
    const pid_t node = fork();
    if (node == 0) {
        std::thread{[&] {  // with a list of its own
            runtime::slots theirs[3];
            mailbox_sender others[3], open;
            for (int i = 0; i < 3; ++i) {
                close(theirs[i].make());
                others[i].open(theirs[i]);
            }
            open.open(node_memory);
            std::destroy_at(&others[1]);
            raise(SIGSTOP);
        }}.join();
    }
    int how = 0;
    ASSERT_EQ(waitpid(node, &how, WUNTRACED), node);
    mailbox.use(client_memory.mailbox());
    EXPECT_TRUE(mailbox.listen(received));
    kill(node, SIGKILL);
    EXPECT_TRUE(mailbox.next().empty());
    EXPECT_FALSE(mailbox.listen(received));
    mailbox.use(client_memory.mailbox());
    EXPECT_FALSE(mailbox.listen(received)) << "nor one that comes late";
    waitpid(node, &how, 0);
    EXPECT_TRUE(WIFSIGNALED(how));
}

}  // namespace
}  // namespace tessaly::daemon
