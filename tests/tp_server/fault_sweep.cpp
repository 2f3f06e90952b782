// A TP server's whole life, in which each fallible call of the runtime fails, alone and with all that follow; and right before
// and right after each message the path is lost, the node ends, the process forks.
#include "tests/tp_server/serving.h"

#include <iostream>

namespace tessaly::test {

namespace {

constexpr u16 STATUS = 0x13;  // of calls that fail
constexpr u32 MESSAGES = 10;  // of the node, in one life

struct life : serving_test {
    explicit life(bool synchronous) : synchronous_(synchronous) {}

    void runs()
    {
        verb& registration = make(NAP_REGISTER_TP_SERVER);
        registration.as<appc_register_tp_server>().file_status_events = 1;
        issues(registration);
        const u32 server = registration.codes() == rc(OK) ? registration.as<appc_register_tp_server>().server_handle : 0x999;
        issues(make(NAP_REGISTER_TP, server));
        asks_to_start(server);
        reports_file_status();
        queries(server);
        queries(server);  // on the same path
        issues(make(NAP_START_APPL_OK, server));
        issues(make(NAP_START_APPL_ERR, server));
        issues(make(NAP_APPL_FAILED, server));
        issues(make(NAP_UNREGISTER_TP, server));
        start_query(server, 10);
        answers_request();  // and no PIP data
        start(NAP_REGISTER_TP, server);
        issues(make(NAP_UNREGISTER_TP_SERVER, server));
    }

    std::vector<rc> ends()
    {
        node.beside = nullptr;
        if (has_forked)
            forget_what_waits();
        TearDown();  // every verb has completed once, nothing is held
        std::vector<rc> all;
        for (verb& each : verbs)
            all.push_back(each.codes());
        return all;
    }

    void TestBody() override {}

    bool has_forked = false;

private:
    void answers()
    {
        const size_t before = node.count(NAP_EXTRACT_PIP);
        answers_request();
        if (node.count(NAP_EXTRACT_PIP) > before)
            answers_pip({1, 2, 3}, 3);
    }

    void issues(verb& what)
    {
        const size_t before = node.datagrams.size();
        const auto answers_it = [this, before] {
            if (node.datagrams.size() > before)
                answers();
        };
        if (synchronous_)
            node.while_asleep(answers_it);
        enter(synchronous_, what);
        node.steps.clear();
        if (!synchronous_)
            answers_it();
        EXPECT_TRUE(has_forked || what.result == VAV_COMPLETE || what.codes() != PENDING) << what.header().opcode;
    }

    void queries(u32 server)
    {
        verb& query = make(NAP_QUERY_ATTACH, server);
        auto& block = query.as<appc_query_attach>();
        block.pip_buf_len = block.attach_buf_len = 16;
        block.pip_buf = buffers.emplace_back(std::make_unique<u8[]>(16)).get();
        block.attach_buf = buffers.emplace_back(std::make_unique<u8[]>(16)).get();
        issues(query);
    }

    bool synchronous_;
};

std::vector<rc> sound_life(bool synchronous)
{
    life sound(synchronous);
    sound.runs();
    const std::vector<rc> codes = sound.ends();
    EXPECT_EQ(std::ranges::count(codes, rc(OK)), std::ssize(codes) - 2);  // two of them waited when the server was unregistered
    return codes;
}

}  // namespace

TEST(fault_sweep, completes_every_verb_of_a_TP_server_once_and_leaves_nothing)
{
    const rc told[] = {rc(OK), rc(COMMS_SUBSYSTEM_ABENDED), rc(PARAMETER_CHECK, SEC_BAD_SERVER_HANDLE),
                       rc(UNEXPECTED_SYSTEM_ERROR, 12), rc(UNEXPECTED_SYSTEM_ERROR, STATUS),
                       rc(UNEXPECTED_SYSTEM_ERROR, scripted_node::SHORTAGE)};
    for (const bool synchronous : {true, false}) {
        const std::vector<rc> sound = sound_life(synchronous);
        for (const bool on : {false, true}) {
            u32 untold = 0, nth = 1;
            for (;; ++nth) {
                SCOPED_TRACE(::testing::Message() << "call " << nth << (on ? " and on" : "") << (synchronous ? ", sync" : ""));
                life run(synchronous);
                run.node.refuse({}, nth, on, STATUS);
                run.runs();
                const bool has_failed = run.node.refused() != 0;
                const std::vector<rc> codes = run.ends();
                for (const rc& each : codes)
                    EXPECT_EQ(std::ranges::count(told, each), 1) << each;
                if (!has_failed)
                    break;
                untold += codes == sound;
            }
            std::cout << nth - 1 << " calls fail\n";
            EXPECT_GE(nth, 40u) << "the life does less than it should";
            EXPECT_LE(untold, on ? 0u : 1u);  // a path that cannot be kept is used all the same
        }
    }
}

TEST(fault_sweep, survives_losses_beside_each_message)
{
    const u16 faults[] = {NODE_EVENT_PATH_FAILURE, NODE_EVENT_TERMINATED, NODE_EVENT_FORKED};
    u32 points = 0;
    for (const bool synchronous : {true, false})
        for (const u16 fault : faults)
            for (const bool after : {false, true})
                for (u32 nth = 1; nth <= MESSAGES; ++nth, ++points) {
                    SCOPED_TRACE(::testing::Message() << std::hex << "event 0x" << fault << (after ? " after" : " before")
                                                      << " message " << nth << (synchronous ? ", sync" : ""));
                    life run(synchronous);
                    u32 seen = 0;
                    run.node.beside = [&](const scripted_node::event&, bool delivered) {
                        const u32 path = run.node.paths.empty() ? 0 : run.node.paths.rbegin()->first;
                        if (delivered != after || ++seen != nth || (fault == NODE_EVENT_PATH_FAILURE && path == 0))
                            return;
                        run.has_forked = fault == NODE_EVENT_FORKED;
                        run.node.interrupts_with({fault, fault == NODE_EVENT_PATH_FAILURE ? path : 0, {}});
                    };
                    run.runs();
                    run.ends();
                    EXPECT_GE(seen, nth) << "there was no such message";
                }
    std::cout << points << " points\n";
}

}  // namespace tessaly::test
