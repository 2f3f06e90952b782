// Programs in processes of their own converse through a node in another, and outlive what becomes of it and of each other.
#include "tests/e2e/node_process.h"
#include "tests/e2e/talking.h"

#include "localnode/daemon/status_protocol.h"

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <random>
#include <regex>
#include <thread>

namespace {

using namespace talking;

constexpr codes lost{APPC_COMMS_SUBSYSTEM_ABENDED, 0};
constexpr codes lost_between_verbs{APPC_PARAMETER_CHECK, APPC_SEC_BAD_TP_ID};
constexpr codes deallocated{APPC_DEALLOC_NORMAL, 0};

// What the processes of a story share.
struct board {
    std::atomic<unsigned> conversing;  // conversations that have carried something, one count for each end
    std::atomic<unsigned> verbs;       // completed
    std::atomic<unsigned> losses;      // programs that saw their node go
    std::atomic<bool> enough;
};

class Processes : public testing::Test {
protected:
    Processes()
    {
        void* room = mmap(nullptr, sizeof(board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        shared = new (room) board{};
    }
    ~Processes() override { munmap(shared, sizeof(board)); }

    // Runs the story in a child.
    static pid_t spawn(const std::function<void()>& story)
    {
        const pid_t child = fork();
        if (child == 0) {
            alarm(100);  // a child that hangs fails
            story();
            fflush(stdout);
            _exit(testing::Test::HasFailure() ? 1 : 0);
        }
        return child;
    }

    static int end_of(pid_t child)
    {
        int how = -1;
        waitpid(child, &how, 0);
        return how;
    }

    template <typename Condition>
    static void await(Condition holds)
    {
        while (!holds())
            std::this_thread::sleep_for(std::chrono::microseconds(100));
    }

    board* shared;
};

void answer_once(const char* tp_name)
{
    const program self = program::accept(tp_name);
    const received question = self.receive_with_turn();
    EXPECT_EQ(question.outcome, ok);
    EXPECT_EQ(self.send("re: " + question.data, APPC_SEND_P_TO_R_FLUSH), ok);
    EXPECT_EQ(self.receive().outcome, deallocated);
    EXPECT_EQ(self.end(), ok);
}

void ask_once(const char* tp_name)
{
    program self = program::start("HERE", "ASKER");
    self.allocate("THERE", tp_name, APPC_SYNC_NONE);
    EXPECT_EQ(self.send("who is there"), ok);
    EXPECT_EQ(self.receive_with_turn().data, "re: who is there");
    EXPECT_EQ(self.deallocate(), ok);
    EXPECT_EQ(self.end(), ok);
}

TEST_F(Processes, converse)
{
    node_process node;
    const pid_t answering = spawn([] { answer_once("ANSWERS"); });
    const pid_t asking = spawn([] { ask_once("ANSWERS"); });
    EXPECT_EQ(end_of(asking), 0);
    EXPECT_EQ(end_of(answering), 0);
}

// What a node tells of itself.
std::string status_of(const node_process& node)
{
    const int asking = node.connect();
    send(asking, tessaly::node::STATUS_REQUEST.data(), tessaly::node::STATUS_REQUEST.size(), MSG_NOSIGNAL);
    std::string all;
    std::string packet(tessaly::node::STATUS_PACKET, '\0');
    while (true) {
        const ssize_t bytes = recv(asking, packet.data(), packet.size(), 0);
        if (bytes <= 0)
            break;
        all.append(packet, 0, static_cast<std::size_t>(bytes));
    }
    close(asking);
    return std::regex_replace(all, std::regex("\\s"), "");
}

TEST_F(Processes, learn_that_their_partners_process_was_killed_and_the_node_keeps_nothing_of_it)
{
    node_process node;
    const pid_t killed = spawn([this] {
        const program self = program::accept("VICTIM");
        EXPECT_EQ(self.receive().what, APPC_WR_SEND);
        ++shared->conversing;
        pause();
    });
    program self = program::start("HERE", "ASKER");
    self.allocate("THERE", "VICTIM", APPC_SYNC_NONE);
    std::string buffer(100, '\0');
    issued receive(self.receiving(buffer));
    await([this] { return shared->conversing == 1; });
    EXPECT_FALSE(receive.finished());
    kill(killed, SIGKILL);
    EXPECT_EQ(receive.outcome(), (codes{APPC_CONV_FAILURE_NO_RETRY, 0}));
    EXPECT_EQ(end_of(killed), SIGKILL);
    EXPECT_EQ(self.end(), ok);
    const std::string left = status_of(node);
    for (const char* none : {"\"tps\":[]", "\"conversations\":[]", "\"attaches_waiting\":0", "\"tps_waiting\":0"})
        EXPECT_NE(left.find(none), std::string::npos) << none << " in " << left;
}

TEST_F(Processes, complete_their_verbs_when_the_node_ends_and_go_on_with_the_next)
{
    node_process node;
    issued waiting(program::accepting("NOBODYCALLS"));
    program self = program::start("HERE", "ASKER");
    self.allocate("THERE", "NOBODY");
    std::string buffer(100, '\0');
    issued receive(self.receiving(buffer));
    EXPECT_EQ(node.stop(SIGTERM), 0);
    EXPECT_EQ(waiting.outcome(), lost);
    EXPECT_EQ(receive.outcome(), lost);
    EXPECT_EQ(program().try_to_start("HERE", "ASKER").primary, APPC_COMMS_SUBSYSTEM_NOT_LOADED);
    node.start();
    std::thread answering([] { answer_once("ANSWERS"); });
    ask_once("ANSWERS");
    answering.join();
}

// The child is a new client, while the parent's verbs are its own.
TEST_F(Processes, fork_and_both_go_on)
{
    node_process node;
    const auto child_converses = [] {
        return spawn([] {
            std::thread answering([] { answer_once("CHILD"); });
            ask_once("CHILD");
            answering.join();
        });
    };
    EXPECT_EQ(end_of(child_converses()), 0) << "before the first verb";
    program self = program::start("HERE", "ASKER");
    // Completed by the runtime's thread, so it is not just starting when the fork comes.
    issued properties(self.verb<appc_get_tp_properties>(APPC_OP_GET_TP_PROPERTIES));
    EXPECT_EQ(properties.outcome(), ok);
    EXPECT_EQ(end_of(child_converses()), 0) << "while no verb is outstanding";
    self.allocate("THERE", "ANSWERS", APPC_SYNC_NONE);
    std::string buffer(100, '\0');
    issued receive(self.receiving(buffer));
    EXPECT_EQ(end_of(child_converses()), 0) << "while one is";
    EXPECT_FALSE(receive.finished());
    const program partner = program::accept("ANSWERS");
    EXPECT_EQ(partner.receive().what, APPC_WR_SEND);
    EXPECT_EQ(partner.send("answer"), ok);
    EXPECT_EQ(receive.outcome(), ok);

    // Inside a callback no verb may wait, in the child neither; the library there is a new one that accepts verbs.
    struct story {
        int child = -1;
        completion_flag done;
    } told;
    auto last = self.receiving(buffer);
    APPC_Async(&last, [](void*, appc_u8*, appc_u32, appc_u32 corr) {
        auto& here = *reinterpret_cast<story*>(corr);
        here.child = end_of(spawn([] {
            static appc_tp_started start{};
            start.opcode = APPC_OP_TP_STARTED;
            EXPECT_EQ(APPC_Async(&start, [](void*, appc_u8*, appc_u32, appc_u32) {}, 0), APPC_IN_PROGRESS);
        }));
        here.done.set();
    }, reinterpret_cast<appc_u32>(&told));
    EXPECT_EQ(partner.deallocate(), ok);
    EXPECT_TRUE(told.done.wait());
    EXPECT_EQ(told.child, 0);
    EXPECT_EQ(codes_of(last), deallocated);
    EXPECT_EQ(self.end(), ok);
    EXPECT_EQ(partner.end(), ok);
}

// One program's life while nodes come and go: begins anew whenever its node was lost. Other codes than those of a verb that
// succeeds, of a node that goes and of one that is not there are failures.
class survivor {
public:
    explicit survivor(board& shared) : shared_(shared) {}

    void answer()
    {
        while (!shared_.enough) {
            program self;
            if (!went_well(self.try_to_accept("ANSWERS")))
                continue;
            while (went_well(self.receive_with_turn().outcome) && went_well(self.send("answer", APPC_SEND_P_TO_R_FLUSH))) {}
            self.end();
        }
    }

    void ask()
    {
        while (!shared_.enough) {
            program self;
            if (!went_well(self.try_to_start("HERE", "ASKER")) || !went_well(self.try_to_allocate("THERE", "ANSWERS")))
                continue;
            while (!shared_.enough && went_well(self.send("question"))) {
                std::string buffer(100, '\0');
                issued receive(self.receiving(buffer));  // its destructor sees that it completes once
                if (!went_well(receive.outcome()))
                    break;
                if ((receive.vcb.what_rcvd & APPC_WR_SEND) == 0 && !went_well(self.receive().outcome))
                    break;
                ++shared_.conversing;
            }
            self.end();
        }
    }

private:
    bool went_well(const codes& outcome)
    {
        ++shared_.verbs;
        if (outcome == ok)
            return true;
        if (outcome == lost || outcome == lost_between_verbs)
            ++shared_.losses;
        else if (outcome.primary == APPC_COMMS_SUBSYSTEM_NOT_LOADED)
            usleep(1000);  // it will be back
        else if (!shared_.enough)
            ADD_FAILURE() << outcome;
        return false;
    }

    board& shared_;
};

TEST_F(Processes, lose_no_verb_when_their_node_is_killed_again_and_again)
{
    constexpr unsigned KILLS = 300;
    const unsigned seed = std::random_device{}();
    RecordProperty("seed", static_cast<int>(seed));
    std::mt19937 random{seed};
    node_process node;
    const pid_t answering = spawn([this] { survivor(*shared).answer(); });
    const pid_t asking = spawn([this] { survivor(*shared).ask(); });
    for (unsigned kills = 0; kills < KILLS && !HasFailure(); ++kills) {
        const unsigned conversing = shared->conversing + 1;
        await([&] { return shared->conversing >= conversing; });
        const unsigned verbs = shared->verbs + random() % 100;
        await([&] { return shared->verbs >= verbs; });
        const unsigned losses = shared->losses;
        EXPECT_EQ(node.stop(SIGKILL), SIGKILL);
        await([&] { return shared->losses >= losses + 2; });
        node.start();
    }
    const unsigned conversing = shared->conversing + 1;
    await([&] { return shared->conversing >= conversing; });
    shared->enough = true;
    EXPECT_EQ(end_of(asking), 0) << "seed " << seed;
    EXPECT_EQ(node.stop(SIGTERM), 0);
    EXPECT_EQ(end_of(answering), 0) << "seed " << seed;
    std::printf("%u kills, %u verbs, seed %u\n", KILLS, shared->verbs.load(), seed);
}

}  // namespace
