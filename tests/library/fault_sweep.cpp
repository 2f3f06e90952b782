// The fault sweep: every fallible runtime call of every scenario fails, alone and with all that follow, one after the other; and
// right before and right after every message of every scenario its path is lost, its TP abends, the node terminates. In the
// environment, TESSALY_FAULT_POINT=scenario/number/mode plays one point only.
#include "tests/support/library_test.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <string_view>

namespace tessaly::test {

namespace {

constexpr u16 STATUS = 19;  // of calls that fail: no node is there
constexpr outcome NO_FURTHER_NODE = rc(PARAMETER_CHECK, SEC_NODE_NOT_FOUND);
constexpr outcome NO_MEMORY = rc(UNEXPECTED_SYSTEM_ERROR, SEC_NO_MEMORY);

// clang-format off
// told: by the verb, when the operation fails
struct fallible { std::string_view name; may_fail operation; outcome told; };
#define FALLIBLE(operation, told) {#operation, may_fail::operation, told}
constexpr fallible operations[] = {
    FALLIBLE(nba_mm_alloc, NO_MEMORY), FALLIBLE(nba_create_handle, NO_MEMORY), FALLIBLE(vtm_get_free_entry, NO_MEMORY),
    FALLIBLE(vtm_table_init, NO_MEMORY), FALLIBLE(vpm_allocate_wait_object, NO_MEMORY), FALLIBLE(vpm_create_path, NO_MEMORY),
    FALLIBLE(vpm_init_path_user, rc(COMMS_SUBSYSTEM_NOT_LOADED, STATUS)),
    FALLIBLE(vsm_query_services, rc(COMMS_SUBSYSTEM_NOT_LOADED)),
    FALLIBLE(vpm_send_datagram, rc(UNEXPECTED_SYSTEM_ERROR, STATUS)),
    FALLIBLE(vpm_send_ips, rc(COMMS_SUBSYSTEM_ABENDED)),  // a path failure follows, which may lead to further nodes
    FALLIBLE(vpm_send_ips, NO_FURTHER_NODE),
};

// Where blocks hold the length and the address of their data.
constexpr u16 data_places[][3] = {{SEND_DATA, 26, 28}, {SEND_CONVERSATION, 152, 156}, {SEND_CONVERSATION, 186, 188},
                                  {RECEIVE_AND_WAIT, 30, 36}, {RECEIVE_AND_POST, 30, 36}};
// clang-format on

// Steps of a script that are no verbs: what the node does; and the CANCEL_CONV of a TP_STARTED.
enum node_step : u16 { CONVERSATION_COMES = 0xF001, WAIT_FAILS, NEWS, PATH_LOST, ABENDED, TERMINATED, CANCEL_START };

// A fresh node, on which one script is played.
class fault_run : public library_test {
public:
    explicit fault_run(entry through = entry::appc) : through_(through)
    {
        node.nodes = {1, 2};
        for (const u16 opcode : {ALLOCATE, SEND_DATA, CONFIRM, DEALLOCATE, SEND_CONVERSATION, RECEIVE_ALLOCATE, CANCEL_CONV})
            node.answers(opcode);
        for (const u16 opcode : {RECEIVE_AND_WAIT, RECEIVE_AND_POST})
            node.answers(opcode, filled<appc_receive>([](auto& block) { block.dlen = 5; }, as_bytes("hello", 5)));
    }

    void takes(u16 step)
    {
        if (step == NEWS && node.count(DEALLOCATE) != 0) {
            sent_verb news = node.last(DEALLOCATE);
            store<u16>(news.message.data(), 112, IMPLIED_FORGET);
            node.answer(news);
        } else if ((step == CONVERSATION_COMES || step == WAIT_FAILS) && !node.datagrams.empty()) {
            conversation_ready(load<u32>(node.datagrams.front().data(), 8), step == WAIT_FAILS ? VSM_ST_FAILED : VSM_ST_READY);
        } else if (step == PATH_LOST && !node.sent.empty()) {
            node.loses_path(node.sent.back().path);
        } else if (step == ABENDED && !node.sent.empty()) {
            node.abends(node.sent.back().path, node.sent.back().header().src_corr);
        } else if (step == TERMINATED) {
            stop_library();
        } else if (step == CANCEL_START) {
            issues(CANCEL_CONV, 0);
        } else if (published(step) != nullptr) {
            issues(step);
        }
        if (running.id.empty() && issued_.front()->codes() == rc(OK))
            running = tp_of(*issued_.front());
    }

    // Ends the library; every verb must have completed once, or been refused. Result: the verbs' codes.
    std::vector<outcome> finish()
    {
        stop_library();  // while calls still fail
        TearDown();
        std::vector<outcome> all;
        for (verb* each : issued_) {
            const u16 opcode = each->header().opcode;
            const bool called = through_ == entry::appc ? each == posting_ : each->result == VAV_IN_PROGRESS;
            const auto forgets = std::ranges::count(each->calls, callback::forget, &callback::by);
            EXPECT_TRUE(through_ == entry::appc || called || each->result == VAV_COMPLETE) << "opcode " << opcode;
            EXPECT_EQ(std::ssize(each->calls) - forgets, called ? 1 : 0) << "opcode " << opcode;
            EXPECT_EQ(forgets, opcode == DEALLOCATE && each->codes() == rc(OK) ? 1 : 0) << "opcode " << opcode;
            all.push_back(each->codes());
        }
        return all;
    }

    void TestBody() override {}  // it is no test of its own

    using library_test::node;
    tp running;
    bool was_stopped = false;

private:
    void issues(u16 opcode, u32 conv_id = CONV_7)
    {
        const bool format_1 = published(opcode)->format[1].length != 0;
        verb& v = opcode == TP_STARTED ? tp_started() : make_on(running, opcode, conv_id, format_1);
        for (const auto& [of, length_at, address_at] : data_places)
            if (of == opcode)
                store<u16>(v.block(), length_at, 5), store(v.block(), address_at, &buffer_[0]);
        if (opcode == RECEIVE_AND_POST)
            v.as<appc_receive>().callback = post;
        if (opcode == DEALLOCATE)
            v.as<appc_deallocate>().forget_callback = forget;
        issued_.push_back(&v);
        const holdings before = node.held();
        const auto calls_before = std::ssize(node.calls);
        enter(through_, v);
        const auto new_calls = node.calls.begin() + calls_before;
        if (opcode == RECEIVE_AND_POST && std::count(new_calls, node.calls.end(), std::string_view("vpm_send_ips")) != 0)
            posting_ = &v;
        const holdings now = node.held();
        EXPECT_EQ(now.path_users, now.tables) << "the library has started by half";
        const bool refused = v.result != VAV_IN_PROGRESS && v.codes().primary != OK;
        EXPECT_TRUE(!refused || (now.entries <= before.entries && now.handles <= before.handles)) << now;
        if (opcode != CONFIRM)  // so that many are under way together
            node.deliver();
    }

    entry through_;
    std::vector<verb*> issued_;
    verb* posting_ = nullptr;  // it was accepted
    char buffer_[6] = {};
};

struct scenario {
    const char* name;
    entry through;
    u32 least_calls;  // that can fail; fewer, and the scenario has done nothing
    std::vector<u16> script;
    std::vector<outcome> own = {};  // codes that a fault may lead to besides those that tell of it
    void (*prepare)(fault_run& run) = [](fault_run&) {};
};

const std::vector<u16> start_and_end = {TP_STARTED, TP_ENDED};

std::vector<scenario> scenarios()
{
    using enum entry;
    const std::vector<u16> converse = {TP_STARTED, ALLOCATE, SEND_DATA, CONFIRM, RECEIVE_AND_WAIT, DEALLOCATE, NEWS, TP_ENDED};
    std::vector<u16> many(112, CONFIRM);  // more than the records that are kept for reuse
    many.front() = TP_STARTED, many.back() = TP_ENDED;
    const auto attached = [](fault_run&) { setenv("APPC_ATTACH_ID", "0000000100000002", 1); };
    const auto refused = [](fault_run& run) { run.node.answers_once(TP_STARTED, {STATE_CHECK}); };
    const auto lost = [](fault_run& run) {
        run.node.stays_silent(SET_TP_PROPERTIES);
        run.node.while_asleep([&run] { run.node.loses_path(run.node.last(TP_STARTED).path); });
        run.node.while_asleep([&run] { run.node.answer(run.node.last(SET_TP_PROPERTIES)); });
    };
    const auto silent = [](fault_run& run) { run.node.stays_silent(TP_STARTED); };
    const auto nameless = [](fault_run& run) { run.node.stays_silent(SET_TP_PROPERTIES); };
    const auto silent_post = [](fault_run& run) { run.node.stays_silent(RECEIVE_AND_POST); };
    const auto attached_to_silence = [](fault_run& run) {
        setenv("APPC_ATTACH_ID", "0000000100000002", 1);
        run.node.stays_silent(RECEIVE_ALLOCATE);
    };
    // clang-format off
    return {
        {"start", appc, 14, start_and_end},
        {"start_async", appc_async, 12, start_and_end},
        {"start_without_user_name", appc, 14, start_and_end, {}, [](fault_run& run) { run.node.user_name.reset(); }},
        {"start_on_second_node", appc, 16, start_and_end, {rc(STATE_CHECK)}, refused},
        {"start_again_on_second_node", appc, 16, start_and_end, {NO_FURTHER_NODE}, lost},
        {"conversation", appc, 24, converse},
        {"conversation_async", appc_async, 17, converse},
        {"send_conversation", appc, 16, {TP_STARTED, SEND_CONVERSATION, TP_ENDED}},
        {"post", appc, 16, {TP_STARTED, RECEIVE_AND_POST, TP_ENDED}},
        {"accept", appc, 12, {RECEIVE_ALLOCATE, TP_ENDED}, {},
         [](fault_run& run) { run.node.while_asleep([&run] { run.takes(CONVERSATION_COMES); }); }},
        {"accept_async", appc_async, 10, {RECEIVE_ALLOCATE, CONVERSATION_COMES, TP_ENDED}},
        {"accept_ex", appc_async, 10, {RECEIVE_ALLOCATE_EX, CONVERSATION_COMES, TP_ENDED}},
        {"accept_cpic", appc_async, 10, {RECEIVE_ALLOCATE_CPIC, CONVERSATION_COMES, TP_ENDED}},
        {"attach", appc, 11, {RECEIVE_ALLOCATE, TP_ENDED}, {}, attached},
        {"attach_async", appc_async, 9, {RECEIVE_ALLOCATE, TP_ENDED}, {}, attached},
        {"cancel", appc_async, 10, {RECEIVE_ALLOCATE, CANCEL_CONV, WAIT_FAILS}, {rc(STATE_CHECK, SEC_ALLOCATE_FAILED)}},
        {"cancel_as_it_comes", appc_async, 11, {RECEIVE_ALLOCATE, CANCEL_CONV, CONVERSATION_COMES}, {rc(OK)}},
        {"registration", appc, 4, {REGISTER_CPIC_TP, UNREGISTER_CPIC_TP}},
        {"many", appc_async, 230, many},
        {"cancelled_start", appc_async, 12, {TP_STARTED, CANCEL_START}, {}, silent},
        {"cancelled_user_name", appc_async, 13, {TP_STARTED, CANCEL_START}, {}, nameless},
        {"cancelled_attach", appc_async, 9, {RECEIVE_ALLOCATE_EX, CANCEL_CONV}, {rc(OK)}, attached_to_silence},
        {"cancelled_conversation", appc_async, 24, {TP_STARTED, FLUSH, GET_TYPE, CANCEL_CONV, FLUSH, TP_ENDED},
         {rc(OK, UNTOUCHED), rc(COMMS_SUBSYSTEM_ABENDED)}},
        {"lost_path", appc_async, 20, {TP_STARTED, DEALLOCATE, FLUSH, RECEIVE_AND_POST, PATH_LOST, FLUSH, TP_ENDED},
         {}, silent_post},
        {"abend", appc_async, 20, {TP_STARTED, DEALLOCATE, FLUSH, RECEIVE_AND_POST, ABENDED, FLUSH, TP_ENDED},
         {}, silent_post},
        {"termination", appc_async, 20, {TP_STARTED, DEALLOCATE, FLUSH, RECEIVE_AND_POST, TERMINATED, FLUSH},
         {rc(PARAMETER_CHECK, SEC_BAD_TP_ID)}, silent_post},
        {"lost_attach", appc_async, 9, {RECEIVE_ALLOCATE_CPIC, PATH_LOST}, {}, attached_to_silence},
        {"abended_user_name", appc_async, 17, {TP_STARTED, ABENDED}, {NO_FURTHER_NODE}, nameless},
        {"terminated_user_name", appc_async, 13, {TP_STARTED, TERMINATED}, {}, nameless},
    };
    // clang-format on
}

// clang-format off
// What can fail, in order, how many messages the node sends, and what becomes of the verbs.
struct course { std::vector<std::string_view> calls; u32 messages; std::vector<outcome> codes; };
// clang-format on

course play(const scenario& played, fault_run& run)
{
    u32 messages = 0;
    if (!run.node.beside)
        run.node.beside = [&messages](auto&, bool delivered) { messages += delivered; };
    played.prepare(run);
    for (const u16 step : played.script)
        run.takes(step);
    run.node.beside = nullptr;
    course seen{{}, messages, run.finish()};
    for (const std::string_view call : run.node.calls)
        if (std::ranges::count(operations, call, &fallible::name) != 0)
            seen.calls.push_back(call);
    return seen;
}

course play_soundly(const scenario& played)
{
    fault_run run(played.through);
    const course sound = play(played, run);
    EXPECT_GE(sound.calls.size(), played.least_calls) << "the scenario does less than it should";
    constexpr u16 sound_codes[] = {OK, CANCELLED, COMMS_SUBSYSTEM_ABENDED};
    for (const outcome& codes : sound.codes)
        EXPECT_EQ(std::ranges::count(sound_codes, codes.primary) + std::ranges::count(played.own, codes), 1) << codes;
    return sound;
}

// Plays with one fault; every verb ends as without it, or tells of it.
std::vector<outcome> play_with(const scenario& played, const course& sound, fault_run& run, std::vector<outcome> allowed)
{
    const std::vector<outcome> all = play(played, run).codes;
    allowed.insert(allowed.end(), played.own.begin(), played.own.end());
    if (run.running.id.empty() || run.was_stopped)
        allowed.push_back(rc(PARAMETER_CHECK, SEC_BAD_TP_ID));
    for (size_t i = 0; i < all.size(); ++i)
        EXPECT_TRUE(all[i] == sound.codes[i] || std::ranges::count(allowed, all[i]) != 0) << "verb " << i << ": " << all[i];
    return all;
}

void refuse_call(const scenario& played, const course& sound, u32 number, bool from_then_on)
{
    std::vector<outcome> allowed;
    fault_run run(played.through);
    for (const auto& [name, operation, told] : operations) {
        if (!from_then_on && name != sound.calls[number])
            continue;
        const auto before = std::count(sound.calls.begin(), sound.calls.begin() + static_cast<i32>(number), name);
        run.node.refuse(operation, static_cast<u32>(before) + 1, from_then_on, STATUS);
        allowed.push_back(told);
    }
    const std::vector<outcome> all = play_with(played, sound, run, allowed);
    EXPECT_NE(run.node.refused(), 0u) << "nothing failed";
    // An attach response that is not sent concerns no verb, and a start goes on to the next node.
    EXPECT_TRUE(all != sound.codes || sound.calls[number].starts_with("vpm_send")) << "no verb tells of the fault";
}

enum class fault : u8 { refused_call, path_lost, abend, termination };

void interrupt(const scenario& played, const course& sound, u32 number, fault what, bool after)
{
    fault_run run(played.through);
    u32 seen = 0;
    run.node.beside = [&](const scripted_node::event& message, bool delivered) {
        if (delivered != after || seen++ != number)
            return;
        const bool datagram = message.kind == NODE_EVENT_DATAGRAM;
        const u32 tp_handle = load<u32>(message.content.data(), datagram ? 8 : offsetof(verb_message_header, dest_corr));
        const u32 path = datagram && !run.node.paths.empty() ? run.node.paths.rbegin()->first : message.path;
        switch (what) {
        case fault::refused_call: break;
        case fault::path_lost: run.node.interrupts_with({NODE_EVENT_PATH_FAILURE, path, {}}); break;
        case fault::abend: run.node.interrupts_with(scripted_node::abend_of(message.path, tp_handle)); break;
        case fault::termination: run.node.interrupts_with({NODE_EVENT_TERMINATED, 0, {}}); run.was_stopped = true; break;
        }
    };
    play_with(played, sound, run, {rc(COMMS_SUBSYSTEM_ABENDED), NO_FURTHER_NODE});
    EXPECT_GT(seen, number) << "there was no such message";
}

// clang-format off
// The ways of disturbing a scenario, at each of its calls or messages. second: all further calls too, or after the message.
constexpr struct mode { const char* name; fault what; bool second; } modes[] = {
    {"once", fault::refused_call, false},            {"on", fault::refused_call, true},
    {"path_lost_before", fault::path_lost, false},   {"path_lost_after", fault::path_lost, true},
    {"abend_before", fault::abend, false},           {"abend_after", fault::abend, true},
    {"termination_before", fault::termination, false}, {"termination_after", fault::termination, true},
};
// clang-format on

}  // namespace

TEST(fault_sweep, completes_every_verb_once_and_leaves_nothing)
{
    const char* const wanted = std::getenv("TESSALY_FAULT_POINT");
    u32 played = 0;
    for (const scenario& each : scenarios()) {
        const course sound = play_soundly(each);
        u32 points = 0;
        for (const mode& how : modes) {
            const u32 places = how.what == fault::refused_call ? static_cast<u32>(sound.calls.size()) : sound.messages;
            for (u32 number = 0; number < places; ++number, ++points) {
                const std::string point = std::string(each.name) + "/" + std::to_string(number + 1) + "/" + how.name;
                if (wanted != nullptr && point != wanted)
                    continue;
                SCOPED_TRACE("TESSALY_FAULT_POINT=" + point + " bin/tests/library_tests --gtest_filter='fault_sweep.*'");
                if (how.what == fault::refused_call)
                    refuse_call(each, sound, number, how.second);
                else
                    interrupt(each, sound, number, how.what, how.second);
                EXPECT_EQ(play_soundly({"healthy", entry::appc, 14, start_and_end}).codes, (std::vector{rc(OK), rc(OK)}));
                ++played;
            }
        }
        RecordProperty(each.name, static_cast<int>(points));
        std::cout << each.name << ": " << points << " points, at " << sound.calls.size() << " calls and " << sound.messages
                  << " messages\n";
    }
    EXPECT_NE(played, 0u) << "there is no such point";
}

}  // namespace tessaly::test
