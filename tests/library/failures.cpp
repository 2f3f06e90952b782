// What a failure does to whatever waits: which verbs complete, with which codes, in which order, and what becomes of the TP.
#include "tests/support/library_test.h"

#include "v6/records/pndcb.h"

namespace tessaly::test {

using word_list = std::vector<std::string>;

struct failing : library_test {
    using step = std::function<void()>;

    // A library that has just started, with a TP or without.
    void set_up(u32 nodes, bool with_tp)
    {
        restart_with({});
        node.nodes.assign({1, 2});
        node.nodes.resize(nodes);
        for (const u16 opcode : {TP_STARTED, SET_TP_PROPERTIES})
            node.answers(opcode);
        node.stays_silent(TP_ENDED);
        running = with_tp ? start_tp() : tp{};
        followed.clear();
        completion_order.clear();
        verbs_before = verbs.size();
    }

    // Nobody waits any more for what was issued since.
    void forget_verbs()
    {
        for (size_t i = verbs_before; i < verbs.size(); ++i)
            verbs[i].result = 0;
    }

    // Waits for all of them, side by side when synchronous; then runs a step, and they must end.
    void wait_for(std::vector<verb*> waiting, const step& then)
    {
        if (waiting.empty())
            return then();
        verb& first = *waiting.front();
        waiting.erase(waiting.begin());
        followed.push_back(&first);
        if (!synchronous) {
            issue(first);
            return wait_for(waiting, then);
        }
        node.while_asleep([=, this] { wait_for(waiting, then); });
        run(first, appc_c1);
    }

    verb& on_tp(u16 opcode, u32 conv_id = CONV_7, u8 format = 0) { return make_on(running, opcode, conv_id, format); }

    verb& deallocate()
    {
        verb& v = on_tp(DEALLOCATE, CONV_7, 1);
        v.as<appc_deallocate>().forget_callback = forget;
        return v;
    }

    verb& receive_allocate(u8 attach = 0)
    {
        verb& v = make(RECEIVE_ALLOCATE_EX, 1);
        v.as<appc_receive_allocate>().attach_id[0] = attach;
        return v;
    }

    verb& cancel(u32 conv_id)
    {
        verb& v = make(CANCEL_CONV);
        v.header().conv_id = conv_id;
        return v;
    }

    static std::string text_of(rc codes)
    {
        const std::pair<rc, const char*> names[] = {
            {rc(OK, UNTOUCHED), "ok"}, {rc(OK), "ok"}, {rc(COMMS_SUBSYSTEM_ABENDED), "abended"}, {rc(CANCELLED), "cancelled"},
            {rc(CANCELLED, UNTOUCHED), "cancelled"}, {rc(PARAMETER_CHECK, SEC_NODE_NOT_FOUND), "no node"}, {PENDING, "waits"}};
        const auto* found = std::ranges::find(names, codes, &std::pair<rc, const char*>::first);
        return found != std::end(names) ? found->second : ::testing::PrintToString(codes);
    }

    static std::string name_of(verb& v)
    {
        static const std::map<u16, const char*> names = {
            {TP_STARTED, "TP_STARTED"}, {TP_ENDED, "TP_ENDED"}, {ALLOCATE, "ALLOCATE"}, {CONFIRM, "CONFIRM"}, {FLUSH, "FLUSH"},
            {DEALLOCATE, "DEALLOCATE"}, {GET_LU_STATUS, "GET_LU_STATUS"}, {RECEIVE_AND_WAIT, "RECEIVE"}, {CANCEL_CONV, "CANCEL"},
            {RECEIVE_AND_POST, "POST"}, {TEST_RTS_AND_POST, "TEST"}, {RECEIVE_ALLOCATE_EX, "ACCEPT"},
            {RECEIVE_ALLOCATE, "ACCEPT"}};
        return names.at(v.header().opcode);
    }

    // The ends of the verbs followed, and the implied forgets, in their order. The order of synchronous verbs shows nowhere.
    word_list ends()
    {
        std::map<verb*, size_t> seen;
        word_list all;
        for (verb* each : completion_order) {
            const bool forgets = each->calls[seen[each]++].by == callback::forget;
            all.push_back(forgets ? "forget" : name_of(*each) + " " + text_of(each->codes()));
        }
        for (verb* each : followed)
            if (synchronous || each->codes() == PENDING)
                all.push_back(name_of(*each) + " " + text_of(each->codes()));
        return in_order(all);
    }

    word_list in_order(word_list all) const
    {
        if (synchronous)
            std::ranges::sort(all);
        return all;
    }

    u32 path() const
    {
        const auto of_tp = [this](auto& sent) { return sent.header().src_corr == running.handle; };
        const auto last = std::find_if(node.sent.rbegin(), node.sent.rend(), of_tp);
        return last == node.sent.rend() ? 0 : last->path;
    }

    // The answers to all that was sent on other TPs, after these are over.
    void come_too_late(const tp& by)
    {
        const auto sent = node.sent;
        for (const sent_verb& late : sent)
            if (late.header().src_corr != by.handle && node.paths.at(by.path).open) {
                node.logs.clear();
                node.sends(by.path, scripted_node::answer_to(late));
                ASSERT_EQ(node.logs.size(), 1u);
                EXPECT_TRUE(node.logs[0].point == 210 || node.logs[0].point == 211) << node.logs[0];
            }
    }

    // What the TP is good for: "alive", "failed", "gone".
    std::string left()
    {
        if (running.id.empty())
            return "";
        const rc codes = issue_on(running, FLUSH).codes();
        if (codes == rc(COMMS_SUBSYSTEM_ABENDED)) {
            EXPECT_EQ(codes_of(running, TP_ENDED), codes) << "this releases it";
        }
        EXPECT_TRUE(codes == PENDING || codes_of(running, TP_ENDED) == rc(PARAMETER_CHECK, SEC_BAD_TP_ID));
        return codes == PENDING ? "alive" : codes == rc(COMMS_SUBSYSTEM_ABENDED) ? "failed" : "gone";
    }

    bool synchronous = false;
    tp running;
    std::vector<verb*> followed;
    size_t verbs_before = 0;
    char buffer[8];
};

using waiting = void (*)(failing&, const failing::step& then);
using failure = void (*)(failing&);

// clang-format off
constexpr struct { const char* why; failure happens; } failures[] = {
    {"the path is lost",       [](failing& t) { t.node.loses_path(t.path()); }},
    {"the TP abends",          [](failing& t) { t.node.abends(t.path(), t.running.handle); }},
    {"the node terminates",    [](failing& t) { t.stop_library(); }},
};

// nodes: that offer the verb service. lost, left: how the verbs end, and the TP, when the path is lost or the TP abends.
const struct { const char* why; waiting waits; u32 nodes; word_list lost; std::string left; word_list terminated;
               std::string left_then; } states[] = {
    {"nothing", [](failing& t, auto& then) { t.wait_for({}, then); }, 1, {}, "failed", {}, "gone"},
    {"a conversation and the TP", [](failing& t, auto& then) {
        t.wait_for({&t.on_tp(RECEIVE_AND_WAIT), &t.on_tp(CONFIRM, CONV_8), &t.on_tp(GET_LU_STATUS, 0), &t.on_tp(ALLOCATE, 0, 1)},
                   then);
     }, 2, {"RECEIVE abended", "CONFIRM abended", "GET_LU_STATUS abended", "ALLOCATE abended"}, "failed",
           {"RECEIVE abended", "CONFIRM abended", "GET_LU_STATUS abended", "ALLOCATE abended"}, "gone"},
    {"an implied forget, with its caller not awake yet", [](failing& t, auto& then) {
        t.wait_for({&t.deallocate()}, [&] { t.node.answer(t.node.last(DEALLOCATE)), t.wait_for({&t.on_tp(CONFIRM)}, then); });
     }, 1, {"DEALLOCATE ok", "forget", "CONFIRM abended"}, "failed", {"DEALLOCATE ok", "forget", "CONFIRM abended"}, "gone"},
    {"a DEALLOCATE", [](failing& t, auto& then) { t.wait_for({&t.deallocate()}, then); }, 1,
     {"DEALLOCATE abended"}, "failed", {"DEALLOCATE abended"}, "gone"},
    {"a record that is about to be delivered", [](failing& t, auto& then) {
        verb& receive = t.on_tp(RECEIVE_AND_WAIT);
        receive.as<appc_receive>().dptr = t.buffer;
        receive.as<appc_receive>().max_len = sizeof t.buffer;
        t.wait_for({&receive}, [&] {
            t.node.before_data = then;
            t.node.answer(t.node.last(RECEIVE_AND_WAIT), filled<appc_receive>([](auto& b) { b.dlen = 2; }, as_bytes("ab", 2)));
        });
     }, 1, {"RECEIVE abended"}, "failed", {"RECEIVE abended"}, "gone"},
    {"the end of the TP", [](failing& t, auto& then) { t.wait_for({&t.on_tp(CONFIRM), &t.on_tp(TP_ENDED, 0)}, then); }, 1,
     {"CONFIRM abended", "TP_ENDED abended"}, "gone", {"CONFIRM abended", "TP_ENDED abended"}, "gone"},
    {"a cancelling", [](failing& t, auto& then) { t.wait_for({&t.on_tp(RECEIVE_AND_WAIT), &t.on_tp(CANCEL_CONV)}, then); }, 1,
     {"RECEIVE abended", "CANCEL abended"}, "failed", {"RECEIVE abended", "CANCEL abended"}, "gone"},
    {"a start", [](failing& t, auto& then) {
        t.node.stays_silent(TP_STARTED);
        t.wait_for({&t.tp_started()}, [&] { t.running.handle = t.node.last(TP_STARTED).header().src_corr, then(); });
     }, 1, {"TP_STARTED no node"}, "", {"TP_STARTED abended"}, ""},
    {"a start with a node to spare", [](failing& t, auto& then) {
        t.node.stays_silent(TP_STARTED);
        t.wait_for({&t.tp_started()}, [&] {
            t.running.handle = t.node.last(TP_STARTED).header().src_corr, t.node.answers(TP_STARTED), then();
        });
     }, 2, {"TP_STARTED ok"}, "", {"TP_STARTED abended"}, ""},
    {"the user's name", [](failing& t, auto& then) {
        t.node.stays_silent(SET_TP_PROPERTIES);
        t.wait_for({&t.tp_started()}, [&] {
            t.node.deliver(), t.running.handle = t.node.last(SET_TP_PROPERTIES).header().src_corr, then();
        });
     }, 1, {"TP_STARTED no node"}, "", {"TP_STARTED abended"}, ""},
    {"the user's name with a node to spare", [](failing& t, auto& then) {
        t.node.stays_silent(SET_TP_PROPERTIES);
        t.wait_for({&t.tp_started()}, [&] {
            t.node.deliver(), t.running.handle = t.node.last(SET_TP_PROPERTIES).header().src_corr;
            t.node.answers(SET_TP_PROPERTIES), then();
        });
     }, 2, {"TP_STARTED ok"}, "", {"TP_STARTED abended"}, ""},
    {"an attach", [](failing& t, auto& then) {
        t.wait_for({&t.receive_allocate(1)}, [&] { t.running.handle = t.node.sent.back().header().src_corr, then(); });
     }, 1, {"ACCEPT abended"}, "", {"ACCEPT abended"}, ""},
};
// clang-format on

TEST_F(failing, ends_everything_that_waits_once_and_leaves_the_rest_as_it_was)
{
    for (const auto& state : states)
        for (const auto& [why, happens] : failures)
            for (const bool waits : {false, true}) {
                SCOPED_TRACE(::testing::Message() << state.why << ", and " << why << (waits ? ", synchronously" : ""));
                set_up(state.nodes, !state.left.empty());
                const tp elsewhere = start_tp();
                verb& other = issue_on(elsewhere, RECEIVE_AND_WAIT, CONV_7);
                synchronous = waits;
                state.waits(*this, [&] { happens(*this); });
                node.deliver();
                const bool terminated = happens == failures[2].happens;
                std::erase(completion_order, &other);
                EXPECT_EQ(ends(), in_order(terminated ? state.terminated : state.lost));
                come_too_late(elsewhere);
                EXPECT_EQ(ends(), in_order(terminated ? state.terminated : state.lost)) << "late answers change nothing";
                EXPECT_EQ(left(), terminated ? state.left_then : state.left);
                EXPECT_EQ(other.codes(), terminated ? rc(COMMS_SUBSYSTEM_ABENDED) : PENDING);
            }
}

TEST_F(failing, in_a_forked_child_completes_nothing_and_closes_no_path_of_its_parent)
{
    for (const auto& state : states) {
        SCOPED_TRACE(state.why);
        set_up(state.nodes, !state.left.empty());
        state.waits(*this, [&] {
            const word_list before = ends();
            node.reports(NODE_EVENT_FORKED);
            EXPECT_EQ(ends(), before);
        });
        EXPECT_EQ(node.held(), holdings{});
        forget_verbs();
    }
}

// clang-format off
// What a routine may do in the middle of a sweep, and what a verb that it issues on the TP gets.
const struct { const char* why; std::function<void(failing&)> acts; bool fails_all = false, forks = false; } acts[] = {
    {"issues a verb",          [](failing& t) { t.issue(t.on_tp(CONFIRM)); }},
    {"cancels",                [](failing& t) { t.issue(t.on_tp(CANCEL_CONV)); }},
    {"ends the TP",            [](failing& t) { t.issue(t.on_tp(TP_ENDED, 0)); }},
    {"sees the path lost",     [](failing& t) { t.node.interrupts_with({NODE_EVENT_PATH_FAILURE, t.path(), {}}); }},
    {"sees the TP abend",      [](failing& t) { t.node.interrupts_with(scripted_node::abend_of(0, t.running.handle)); }, true},
    {"sees the node end",      [](failing& t) { t.node.interrupts_with({NODE_EVENT_TERMINATED, 0, {}}); }, true},
    {"sees the process fork",  [](failing& t) { t.node.interrupts_with({NODE_EVENT_FORKED, 0, {}}); }, false, true},
    {"starts a TP",            [](failing& t) { t.issue(t.tp_started()); }},
    {"starts a TP after a fork", [](failing& t) { t.node.interrupts_with({NODE_EVENT_FORKED, 0, {}}), t.issue(t.tp_started()); },
     false, true},
};
const struct { const char* why; failure happens; rc refusal; } sweeps[] = {
    {"the path is lost",       failures[0].happens, rc(COMMS_SUBSYSTEM_ABENDED)},
    {"the TP abends",          failures[1].happens, rc(COMMS_SUBSYSTEM_ABENDED)},
    {"the node terminates",    failures[2].happens, rc(COMMS_SUBSYSTEM_ABENDED)},
    {"TP_ENDED is answered",   [](failing& t) { t.node.answer(t.node.last(TP_ENDED)); }, rc(PARAMETER_CHECK, SEC_BAD_TP_ID)},
    {"CANCEL_CONV is answered", [](failing& t) { t.node.answer(t.node.last(CANCEL_CONV)); }, PENDING},
};
// clang-format on

TEST_F(failing, lets_a_routine_do_anything_in_the_middle_of_a_sweep)
{
    for (const auto& sweep : sweeps)
        for (const auto& act : acts)
            for (const u16 actor : {DEALLOCATE, RECEIVE_AND_POST, CONFIRM}) {
                SCOPED_TRACE(::testing::Message() << sweep.why << ", and the routine of verb " << actor << " " << act.why);
                set_up(1, true);
                const u16 cause = sweep.happens == sweeps[3].happens ? TP_ENDED : CANCEL_CONV;
                followed = {&deallocate(), &on_tp(RECEIVE_AND_POST), &on_tp(CONFIRM), &on_tp(FLUSH), &on_tp(cause)};
                followed[1]->as<appc_receive>().callback = post;
                for (verb* each : followed)
                    issue(*each);
                node.answer(node.last(DEALLOCATE));
                const size_t issued = verbs.size();
                bool acted = false;
                for (verb* each : followed)
                    if (each->header().opcode == actor)
                        each->on_call = [&] { std::exchange(acted, true) ? void() : act.acts(*this); };
                sweep.happens(*this);
                if (verbs.size() > issued && verbs.back().header().opcode != TP_STARTED) {
                    EXPECT_EQ(verbs.back().codes(), sweep.refusal);
                }
                if (act.forks)
                    forget_verbs();
                for (verb& each : verbs)
                    each.on_call = nullptr;
            }
}

TEST_F(failing, lets_the_routine_of_a_cancelled_wait_do_anything)
{
    for (const auto& act : acts)
        for (const bool waits : {false, true}) {
            if (waits && act.forks)
                continue;
            SCOPED_TRACE(::testing::Message() << act.why << (waits ? ", while a caller waits for the CANCEL_CONV" : ""));
            set_up(1, false);
            verb& accept = issue(receive_allocate());
            running = tp{words({0, announced()}), announced(), 0};
            accept.on_call = [&] { act.acts(*this); };
            verb& cancelling = cancel(1);
            enter(waits, cancelling, [&] { conversation_ready(running.handle); });
            accept.on_call = nullptr;
            EXPECT_EQ(accept.codes(), rc(CANCELLED));
            if (act.forks)
                forget_verbs();
            else
                EXPECT_EQ(text_of(cancelling.codes()) + left(), act.fails_all ? "abendedgone" : "okgone");
        }
}

// No verb gives its block up today, but its record may be without one.
TEST_F(failing, frees_the_records_that_nobody_waits_for)
{
    ptrc[1] = 0;  // a verb that nobody waits for has no response
    const auto forsake = [this](u16 opcode, u32 conv_id) {
        issue(on_tp(opcode, conv_id)).result = 0;
        auto* pend = static_cast<pndcb*>(node.handles.at(node.sent.back().header().pend_handle));
        pend->vcb = nullptr;
        pend->forget_conv_id = conv_id;
    };
    for (const auto& sweep : sweeps) {
        SCOPED_TRACE(sweep.why);
        set_up(1, true);
        forsake(CONFIRM, CONV_7);
        forsake(CONFIRM, CONV_8);
        const bool cancels = sweep.happens == sweeps[4].happens, ends = sweep.happens == sweeps[3].happens;
        if (cancels || ends)
            forsake(cancels ? CANCEL_CONV : TP_ENDED, CONV_7);
        sweep.happens(*this);
        EXPECT_EQ(node.held().handles, cancels ? 1u : 0u) << "CANCEL_CONV leaves other conversations alone";
        EXPECT_EQ(left(), cancels ? "alive" : "gone");
    }
    for (const u32 status : {VSM_ST_READY, VSM_ST_FAILED, VSM_ST_WITHDRAWN}) {
        set_up(1, false);
        issue(receive_allocate());
        const u32 handle = announced();
        issue(cancel(1));
        for (const auto& [number, pend] : node.handles)
            static_cast<pndcb*>(pend)->vcb = nullptr;
        conversation_ready(handle, status);
        EXPECT_EQ(node.held_by_tps(), 0u);
        forget_verbs();
    }
}

}  // namespace tessaly::test
