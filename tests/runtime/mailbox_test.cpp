// Answers that a client finds in the mailbox that it shares with its node.
#include "played_node.h"

#include "localnode/daemon/mailbox_sender.h"

#include <atomic>
#include <ostream>

namespace tessaly {

namespace {

struct mailbox_of_node : memory_of_node {
    daemon::mailbox_sender sender;

    mailbox_of_node() { sender.open(memory); }
};

}  // namespace

class Letters : protected mailbox_of_node, public played_node, public RuntimeTest {
protected:
    Letters() : played_node(descriptor) { meet(); }

    using RuntimeTest::send;

    // The client has sent a verb, and has not given the lock away since, unless it sleeps.
    bool answer_by_letter(bytes (*made_of)(const bytes&) = answer)
    {
        const bytes letter = made_of(take(frame_kind::message));
        return sender.put(letter);
    }
};

TEST_F(Letters, that_come_before_their_thread_sleeps_or_gives_the_lock_away_are_delivered)
{
    constexpr u32 FIRST = 0xF001, SECOND = 0xF002;  // and no wait object's
    const u32 path = open_path();
    std::binary_semaphore sent_again{0}, answered_again{0};
    on_event = [&](u32, rcv_info& info) -> u16 {
        if (pend_of(info) == FIRST) {
            send(path, SECOND);
            sent_again.release();
            answered_again.acquire();
        }
        delivered.release();
        return NODE_RESULT_DONE;
    };
    {
        const process_lock lock;
        EXPECT_EQ(send(path, FIRST), 0);
        EXPECT_TRUE(answer_by_letter());
    }
    sent_again.acquire();  // by a callback in the runtime thread
    EXPECT_TRUE(answer_by_letter());
    answered_again.release();
    delivered.acquire();
    delivered.acquire();

    const process_lock lock;
    EXPECT_EQ(events, (event_list{{NODE_EVENT_IPS, path, FIRST}, {NODE_EVENT_IPS, path, SECOND}}));
    const u32 object = vpm_allocate_wait_object();
    EXPECT_EQ(send(path, object), 0);
    EXPECT_TRUE(answer_by_letter());
    vpm_sleep(object, NO_LIMIT);
    EXPECT_EQ(send(path, object), 0);
    EXPECT_TRUE(answer_by_letter());
    vpm_sleep(object, 60'000);
    vpm_release_wait_object(object);
}

TEST_F(Letters, are_waited_for_until_another_thread_finds_the_node_gone)
{
    const u32 path = open_path(), other = open_path();
    u32 object = 0;
    on_event = [&](u32 failed, rcv_info& info) {
        if (info.event == NODE_EVENT_PATH_FAILURE && failed == path)
            vpm_wakeup(object);
        return delivered.release(), NODE_RESULT_DONE;
    };
    std::thread waiting{[&] {
        const process_lock lock;
        object = vpm_allocate_wait_object();
        EXPECT_EQ(send(path, object), 0);
        vpm_sleep(object, NO_LIMIT);
        vpm_release_wait_object(object);
    }};
    take(frame_kind::message);
    hang_up();  // and the mailbox stays open
    EXPECT_NE(send(other, 1), 0);
    waiting.join();
    for (int i = 0; i < 3; ++i)
        delivered.acquire();  // two failures and the termination
}

struct hostile_letter {
    const char* what;
    bytes (*made_of)(const bytes& sent);
    u32 said_to_be_long = 0;
    friend void PrintTo(const hostile_letter& each, std::ostream* to) { *to << each.what; }
};

const hostile_letter hostile_letters[] = {
    {"half a header", [](const bytes&) { return bytes(8); }},
    {"a block that is cut", [](const bytes& sent) { return packet(sent[0], header_of(sent).path, bytes(40), 1); }},
    {"a block and more", [](const bytes& sent) { return packet(sent[0], header_of(sent).path, bytes(40), 0xFFFFFFFF); }},
    {"data", [](const bytes& sent) { return packet(sent[0], header_of(sent).path, bytes(40), 0, 1); }},
    {"an unknown kind", [](const bytes&) { return packet(200, 0); }},
    {"the client's slot", [](const bytes& sent) {
        bytes named = packet(sent[0], header_of(sent).path);
        named[offsetof(packet_header, slot)] = SLOTS_EACH_WAY + 1;
        return named;
    }},
    {"more than there is room for", [](const bytes& sent) { return packet(sent[0], header_of(sent).path, {}, 8000); }, 8016},
    {"far more", answer, 0xFFFFFFFF},
};

class HostileLetters : public Letters, public testing::WithParamInterface<hostile_letter> {};

TEST_P(HostileLetters, end_the_connection)
{
    on_event = [this](u32, rcv_info&) { return delivered.release(), NODE_RESULT_DONE; };
    const u32 path = open_path();
    {
        const process_lock lock;
        EXPECT_EQ(send(path, 1), 0);
        EXPECT_TRUE(answer_by_letter(GetParam().made_of));
        if (const u32 other = GetParam().said_to_be_long)
            std::atomic_ref{memory.mailbox()->letter_bytes}.store(other);
    }
    while (!take().empty()) {}  // to the end of the connection
    delivered.acquire();
    delivered.acquire();
    const process_lock lock;
    EXPECT_EQ(events, (event_list{{NODE_EVENT_PATH_FAILURE, path, 0}, {NODE_EVENT_TERMINATED, 0, 0}}));
}

INSTANTIATE_TEST_SUITE_P(, HostileLetters, testing::ValuesIn(hostile_letters));

}  // namespace tessaly
