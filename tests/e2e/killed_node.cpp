// The node is killed before each of its system calls, from the first connection on, while two programs in processes of their own
// converse. Whatever it had done by then, each verb completes once, nobody hangs, and the same programs go on with the next node.
#include "tests/e2e/node_process.h"
#include "tests/e2e/talking.h"

#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>

#include <atomic>
#include <cerrno>
#include <vector>

namespace {

using namespace talking;

// What the processes share.
struct board {
    std::atomic<bool> node_is_gone;  // or will be at once
    std::atomic<bool> enough;
    std::atomic<unsigned> whole;     // scenarios that went well to their end, one count for each side
    std::atomic<unsigned> lost;      // verbs that told that the node was lost, or not there
};

class side {
public:
    explicit side(board& shared) : shared_(shared) {}

    // One scenario with each node.
    template <typename Scenario>
    void lives(Scenario scenario)
    {
        while (!shared_.enough && !testing::Test::HasFailure()) {
            if ((this->*scenario)())
                ++shared_.whole;
            raise(SIGSTOP);  // the test sees that, and starts the next node
        }
    }

    bool asks()
    {
        program self;
        const bool well = begins([&] { return self.try_to_start("HERE", "ASKER"); }) &&
                          went_well(self.try_to_allocate("THERE", "ANSWERS")) && went_well(self.send("question")) &&
                          went_well(self.confirm()) && is_answered(self) && went_well(self.deallocate());
        return ends(self) && well;
    }

    bool answers()
    {
        program self;
        const bool well = begins([&] { return self.try_to_accept("ANSWERS"); }) && receives(self, APPC_WR_DATA_COMPLETE) &&
                          receives(self, APPC_WR_CONFIRM) && went_well(self.confirmed()) && receives(self, APPC_WR_SEND) &&
                          went_well(self.send("answer", APPC_SEND_P_TO_R_FLUSH)) &&
                          went_well(self.receive().outcome, {APPC_DEALLOC_NORMAL, 0});
        return ends(self) && well;
    }

private:
    bool went_well(const codes& outcome, const codes& expected = ok)
    {
        if (outcome == expected)
            return true;
        const bool lost = outcome == codes{APPC_COMMS_SUBSYSTEM_ABENDED, 0} ||
                          outcome == codes{APPC_PARAMETER_CHECK, APPC_SEC_BAD_TP_ID} ||
                          outcome.primary == APPC_COMMS_SUBSYSTEM_NOT_LOADED;
        EXPECT_TRUE(lost) << outcome;
        ++shared_.lost;
        return false;
    }

    // The first verb after the end of one node may find no other yet, but must find one. When the node goes while a start is
    // under way, that finds no further node, or cannot make its path, or cannot send its announcement.
    template <typename Start>
    bool begins(Start start)
    {
        while (true) {
            const codes outcome = start();
            const bool found_none = outcome == codes{APPC_PARAMETER_CHECK, APPC_SEC_NODE_NOT_FOUND} ||
                                    outcome == codes{APPC_UNEXPECTED_SYSTEM_ERROR, APPC_SEC_NO_MEMORY} ||
                                    outcome == codes{APPC_UNEXPECTED_SYSTEM_ERROR, EPIPE};
            if (!found_none && went_well(outcome))
                return true;
            if (shared_.node_is_gone)
                return false;
        }
    }

    bool receives(const program& self, appc_u16 expected)
    {
        const received got = self.receive();
        if (!went_well(got.outcome))
            return false;
        EXPECT_EQ(got.what, expected);
        return true;
    }

    bool is_answered(const program& self)
    {
        std::string buffer(100, '\0');
        issued receive(self.receiving(buffer));  // its destructor sees that it completes once
        return went_well(receive.outcome()) && receives(self, APPC_WR_SEND);
    }

    bool ends(const program& self) { return went_well(self.end()); }

    board& shared_;
};

// Traces the node. Ends what it has begun when the test ends early.
class KilledNode : public testing::Test {
protected:
    KilledNode()
    {
        void* room = mmap(nullptr, sizeof(board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        shared = new (room) board{};
    }
    ~KilledNode() override
    {
        for (const pid_t each : programs)
            kill(each, SIGKILL);
        while (waitpid(-1, nullptr, __WALL) > 0) {}
        munmap(shared, sizeof(board));
    }

    template <typename Scenario>
    void spawn(Scenario scenario)
    {
        const pid_t child = fork();
        if (child == 0) {
            alarm(100);  // one that hangs fails
            side(*shared).lives(scenario);
            fflush(stdout);
            _exit(testing::Test::HasFailure() ? 1 : 0);
        }
        programs.push_back(child);
    }

    // False when this process may not trace.
    static bool trace(pid_t node)
    {
        if (ptrace(PTRACE_SEIZE, node, 0, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL) != 0)
            return false;
        ptrace(PTRACE_INTERRUPT, node, 0, 0);
        waitpid(node, nullptr, __WALL);
        return ptrace(PTRACE_SYSCALL, node, 0, 0) == 0;
    }

    static void let_go(pid_t node)
    {
        ptrace(PTRACE_INTERRUPT, node, 0, 0);
        waitpid(node, nullptr, __WALL);
        EXPECT_EQ(ptrace(PTRACE_DETACH, node, 0, 0), 0);
    }

    // Whether a traced node is about to do something. Looking for news is nothing that anyone could notice.
    static bool enters_system_call(pid_t node, int how)
    {
        if (WSTOPSIG(how) != (SIGTRAP | 0x80))
            return false;
        user_regs_struct registers{};
        EXPECT_EQ(ptrace(PTRACE_GETREGS, node, 0, &registers), 0);
        return registers.eax == -ENOSYS && registers.orig_eax != SYS_epoll_wait && registers.orig_eax != SYS_epoll_pwait;
    }

    // Until both programs have stopped. Result: whether the node was killed meanwhile, at that system call.
    bool kill_at(unsigned point, node_process& node)
    {
        unsigned stopped = 0;
        unsigned calls = 0;
        while (stopped < programs.size()) {
            int how = 0;
            const pid_t who = waitpid(-1, &how, WUNTRACED | __WALL);
            if (!WIFSTOPPED(how)) {
                ADD_FAILURE() << (who == node.process() ? "the node" : "a program") << " ended: " << how;
                break;
            }
            if (who != node.process()) {
                ++stopped;
            } else if (enters_system_call(who, how) && ++calls == point) {
                shared->node_is_gone = true;
                EXPECT_EQ(node.stop(SIGKILL), SIGKILL);
            } else {
                ptrace(PTRACE_SYSCALL, who, 0, 0);
            }
        }
        return !node.running();
    }

    board* shared;
    std::vector<pid_t> programs;
};

TEST_F(KilledNode, at_any_of_its_system_calls_leaves_no_verb_incomplete_and_the_programs_go_on_with_the_next)
{
    node_process node;
    if (!trace(node.process()))
        GTEST_SKIP() << "this process may not trace the node: " << std::strerror(errno);
    spawn(&side::asks);
    spawn(&side::answers);
    unsigned points = 0;
    unsigned whole = 0;
    for (unsigned point = 1; kill_at(point, node) && !HasFailure(); ++point) {
        ++points;
        shared->node_is_gone = false;
        node.start();
        ASSERT_TRUE(trace(node.process()));
        whole = shared->whole;
        for (const pid_t each : programs)
            kill(each, SIGCONT);
    }
    if (node.running())
        let_go(node.process());
    if (HasFailure())
        return;
    EXPECT_EQ(shared->whole, whole + 2) << "with a node that lives, both go on to their ends";
    EXPECT_GE(shared->lost, points) << "the node's end is noticed";
    shared->enough = true;
    for (const pid_t each : programs) {
        kill(each, SIGCONT);
        int how = -1;
        waitpid(each, &how, 0);
        EXPECT_EQ(how, 0);
    }
    programs.clear();
    std::printf("killed at %u system calls; %u verbs told of it\n", points, shared->lost.load());
}

}  // namespace
