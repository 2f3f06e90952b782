// What arrives, when, how much of it, and who frees it.
#include "runtime_fixture.h"

namespace tessaly {

namespace {

constexpr u16 OTHER_VERB = SEND_DATA;

class Delivery : public RuntimeTest {
protected:
    u32 path = (vpm_lock(), open_path());
    ~Delivery() override { vpm_unlock(1); }

    u32 record(void* any) { return nba_create_handle(any); }
    event message(u32 pend) const { return {NODE_EVENT_IPS, path, pend}; }
};

TEST_F(Delivery, waits_for_the_sleep_of_the_thread_that_sent)
{
    const u32 object = vpm_allocate_wait_object();
    on_event = [&](u32, rcv_info&) { return vpm_wakeup(object), NODE_RESULT_DONE; };
    const u16 token = vpm_lock();
    EXPECT_EQ(send(path, verb(OTHER_VERB, 1)), 0);
    vpm_unlock(token);
    EXPECT_TRUE(events.empty()) << "neither the send nor the unlock delivers";
    vpm_sleep(object, NO_LIMIT);
    EXPECT_EQ(events, (std::vector{message(1)}));
    vpm_release_wait_object(object);
}

TEST_F(Delivery, nests_and_keeps_the_order_of_arrival)
{
    std::vector<u32> finished;
    on_event = [&](u32, rcv_info& info) {
        const u32 pend = pend_of(info);
        if (pend == 1)
            vpm_process_pending_events();
        finished.push_back(pend);
        return NODE_RESULT_DONE;
    };
    for (u32 pend : {1u, 2u, 3u})
        send(path, verb(OTHER_VERB, pend));
    vpm_process_pending_events();
    EXPECT_EQ(events, (std::vector{message(1), message(2), message(3)}));
    EXPECT_EQ(finished, (std::vector<u32>{2, 3, 1}));
}

TEST_F(Delivery, of_pending_events_ends_although_every_callback_issues_a_verb)
{
    on_event = [&](u32, rcv_info& info) { return send(path, verb(OTHER_VERB, pend_of(info) + 1)), NODE_RESULT_DONE; };
    send(path, verb(OTHER_VERB, 1));
    vpm_process_pending_events();
    EXPECT_EQ(events, (std::vector{message(1)}));
    vpm_process_pending_events();
    EXPECT_EQ(events, (std::vector{message(1), message(2)}));
    on_event = nullptr;
}

struct data_case {
    const char* why;
    u16 opcode;         // of the verb that was sent
    u16 max_len;        // its room
    std::string data;   // what the node sends behind the block
    u32 wanted;         // what the library asks for
    std::string copied;
};

const data_case data_cases[] = {
    {"all of it fits", RECEIVE_AND_WAIT, 10, "received", 8, "received"},
    {"the library asks for less", RECEIVE_IMMEDIATE, 10, "received", 3, "rec"},
    {"the verb has room for less", RECEIVE_AND_POST, 5, "received", 8, "recei"},
    {"less came than the answer claims", RECEIVE_EXPEDITED_DATA, 100, "rec", 50, "rec"},
    {"the verb receives nothing", OTHER_VERB, 100, "received", 8, ""},
};

TEST_F(Delivery, copies_no_more_data_than_came_and_the_verb_has_room_for)
{
    for (const data_case& now : data_cases) {
        char buffer[64] = {};
        const u32 pend = record(buffer);
        u32 data_callbacks = 0;
        static u32* counter;
        counter = &data_callbacks;
        script.answer = [&](const frame& input, frame_sink& output) {
            auto block = verb(now.opcode, pend, static_cast<u32>(now.data.size()));
            if (input.kind == frame_kind::message)
                node_sends(output, frame_kind::message, path, block, now.data);
        };
        on_event = [&](u32, rcv_info& info) {
            // As the library does when it narrows the block.
            store<u32>(info.rcv_ips, offsetof(verb_message_header, buf_len), BLOCK_BYTES - 8);
            info.data_buf = static_cast<u32>(reinterpret_cast<std::uintptr_t>(buffer));
            info.data_len = now.wanted;
            info.data_callback = [](u32, rcv_info* same) -> u16 { return ++*counter, same->result = NODE_RESULT_DONE; };
            return NODE_RESULT_DELIVER;
        };
        send(path, verb(now.opcode, pend, 0, now.max_len));
        send(path, verb(OTHER_VERB, 0));
        vpm_process_pending_events();
        EXPECT_EQ(std::string(buffer), now.copied) << now.why;
        EXPECT_EQ(data_callbacks, 2u) << now.why;
        nba_destroy_handle(pend);
    }
}

TEST_F(Delivery, frees_the_buffer_unless_the_library_did)
{
    constexpr std::pair<bool, node_event_result> cases[] = {
        {true, NODE_RESULT_FREED}, {true, NODE_RESULT_DONE}, {false, NODE_RESULT_DONE}};
    for (const auto& [freed, result] : cases) {
        void* kept = nullptr;
        on_event = [&, library_frees = freed, answer = result](u32, rcv_info& info) {
            if (library_frees) {
                nba_mm_free(info.rcv_ips, 0);
                kept = nba_mm_alloc(BLOCK_BYTES, 770, &nba_blank_name, 0, 0);  // may well be the same memory
                std::memset(kept, 7, BLOCK_BYTES);
            }
            return answer;
        };
        send(path, verb(OTHER_VERB, 1));
        vpm_process_pending_events();
        if (kept != nullptr) {
            // A double free would have given it away again.
            void* other = nba_mm_alloc(BLOCK_BYTES, 770, &nba_blank_name, 0, 0);
            EXPECT_NE(other, kept);
            nba_mm_free(other, 0);
            nba_mm_free(kept, 0);
        }
    }
    EXPECT_EQ(events.size(), 3u);
}

TEST_F(Delivery, of_a_message_whose_lengths_do_not_fit_fails_the_path_instead)
{
    const std::pair<u32, u32> bad_lengths[] = {
        {BLOCK_BYTES, BLOCK_BYTES + 1}, {BLOCK_BYTES + 4, BLOCK_BYTES}, {8, BLOCK_BYTES}, {BLOCK_BYTES, 0xFFFFFFFF}};
    for (const auto& [buf_len, msg_len] : bad_lengths) {
        const u32 doomed = open_path();
        script.answer = [&, header = buf_len, whole = msg_len](const frame& input, frame_sink& output) {
            auto block = verb(OTHER_VERB, 1);
            store(block.data(), offsetof(verb_message_header, buf_len), header);
            store(block.data(), offsetof(verb_message_header, msg_len), whole);
            if (input.kind == frame_kind::message)
                node_sends(output, frame_kind::message, doomed, block);
        };
        send(doomed, verb(OTHER_VERB, 1));
        vpm_process_pending_events();
        vpm_process_pending_events();
        EXPECT_EQ(events, (std::vector<event>{{NODE_EVENT_PATH_FAILURE, doomed, 0}})) << buf_len << ' ' << msg_len;
        EXPECT_EQ(script.seen_of(frame_kind::path_closed).back().path, doomed);
        events.clear();
    }
}

TEST_F(Delivery, stops_for_a_path_that_is_closed)
{
    const u32 other = open_path();
    send(path, verb(OTHER_VERB, 1));
    send(other, verb(OTHER_VERB, 2));
    send(path, verb(OTHER_VERB, 3));
    vpm_close_path(path, 0xC000);
    vpm_process_pending_events();
    EXPECT_EQ(events, (std::vector<event>{{NODE_EVENT_IPS, other, 2}}));
    EXPECT_EQ(script.seen_of(frame_kind::path_closed).size(), 1u);
    EXPECT_NE(send(path, verb(OTHER_VERB, 4)), 0);
    vpm_close_path(path, 0xC000);
    EXPECT_EQ(script.seen_of(frame_kind::path_closed).size(), 1u);
}

TEST_F(Delivery, reports_a_lost_path_once_and_forgets_it)
{
    script.answer = [this](const frame& input, frame_sink& output) {
        if (input.kind != frame_kind::message)
            return;
        node_sends(output, frame_kind::message, path, verb(OTHER_VERB, 1));
        output.add(1, frame_kind::path_failed, path, 0);
        output.add(1, frame_kind::path_failed, path, 0);
    };
    send(path, verb(OTHER_VERB, 1));
    EXPECT_NE(send(path, verb(OTHER_VERB, 2)), 0);
    vpm_process_pending_events();
    EXPECT_EQ(events, (std::vector<event>{message(1), {NODE_EVENT_PATH_FAILURE, path, 0}}));
    vpm_close_path(path, 0xC000);
    EXPECT_TRUE(script.seen_of(frame_kind::path_closed).empty()) << "the node dropped the path itself";
}

TEST_F(Delivery, of_datagrams_follows_their_type)
{
    static std::vector<u16> to_server;
    to_server.clear();
    u32 servers[2] = {};
    for (u32& server : servers)
        vpm_init_path_user(0x20, 1, [](u32, rcv_info* info) -> u16 {
            to_server.push_back(info->rcv_ips != nullptr ? load<u16>(info->rcv_ips, 2) : info->event);
            return info->result = NODE_RESULT_DONE;
        }, 0, &server);
    std::vector<u16> to_library;
    on_event = [&](u32, rcv_info& info) {
        to_library.push_back(info.rcv_ips != nullptr ? load<u16>(info.rcv_ips, 2) : info.event);
        return NODE_RESULT_DONE;
    };
    script.answer = [](const frame& input, frame_sink& output) {
        if (input.kind != frame_kind::datagram)
            return;
        for (u16 type : {u16{0x82}, u16{11}, u16{23}, u16{147}, u16{150}, u16{9}})
            node_sends(output, frame_kind::datagram, 0, {4, 0, static_cast<u8>(type), 0});
        node_sends(output, frame_kind::datagram, 0, {5, 0, 0x82, 0});  // longer than what came
        output.add(1, frame_kind::terminated, 0, 0);
    };
    u16 asks[2] = {4, 22};
    EXPECT_EQ(vpm_send_datagram(16, 0, asks, 4), 0);
    EXPECT_NE(vpm_send_datagram(16, 0, asks, 3), 0);
    vpm_process_pending_events();
    EXPECT_EQ(to_library, (std::vector<u16>{0x82, NODE_EVENT_TERMINATED}));
    EXPECT_EQ(to_server, (std::vector<u16>{11, 23, 147, 150, NODE_EVENT_TERMINATED, NODE_EVENT_TERMINATED}));
    for (u32 server : servers)
        vpm_terminate_path_user(server);
}

TEST_F(Delivery, of_time_comes_from_the_sleeping_caller)
{
    const u32 object = vpm_allocate_wait_object();
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const u64 due = static_cast<u64>(now.tv_sec) * 1000 + static_cast<u64>(now.tv_nsec) / 1'000'000 + 15;
    script.answer = [&, told = u64{0}](const frame& input, frame_sink& output) mutable {
        EXPECT_GE(input.now_ms, told) << "time never goes back";
        told = input.now_ms;
        if (input.kind == frame_kind::message)
            script.deadline_ms = due;
        if (input.kind != frame_kind::time_passed || input.now_ms < due || !script.deadline_ms)
            return;
        script.deadline_ms.reset();
        node_sends(output, frame_kind::message, path, verb(OTHER_VERB, 9));
    };
    on_event = [&](u32, rcv_info&) { return vpm_wakeup(object), NODE_RESULT_DONE; };
    send(path, verb(OTHER_VERB, 1));
    vpm_sleep(object, NO_LIMIT);
    EXPECT_EQ(events, (std::vector{message(9)}));
    vpm_release_wait_object(object);
}

struct parts_case {
    const char* why;
    std::vector<std::string> parts;  // sent behind the block of a message that announces 6 bytes
    bool arrives;
};

const parts_case part_cases[] = {
    {"in one call", {"abcdef"}, true},
    {"in three", {"ab", "c", "def"}, true},
    {"nothing with the block", {"", "abcdef"}, true},
    {"too much at once", {"abcdefg"}, false},
    {"too much in the end", {"abc", "defg"}, false},
    {"more after the end", {"abcdef", "g"}, false},
};

TEST_F(Delivery, to_the_node_is_whole_messages_only)
{
    for (const parts_case& now : part_cases) {
        script.seen.clear();
        events.clear();
        const u32 own = open_path();
        send(own, verb(SEND_DATA, 1, 6), now.parts[0]);
        for (std::size_t i = 1; i < now.parts.size(); ++i)
            vpm_send_ips(own, nullptr, 0, now.parts[i].data(), static_cast<u32>(now.parts[i].size()));
        vpm_process_pending_events();
        const auto came = script.seen_of(frame_kind::message);
        if (now.arrives || now.parts[0] == "abcdef") {
            ASSERT_EQ(came.size(), 1u) << now.why;
            EXPECT_EQ(came[0].block, verb(SEND_DATA, 1, 6)) << now.why;
            EXPECT_EQ(std::string(came[0].data.begin(), came[0].data.end()), "abcdef") << now.why;
        } else {
            EXPECT_TRUE(came.empty()) << now.why;
        }
        ASSERT_FALSE(events.empty()) << now.why;
        EXPECT_EQ(events.back().kind, now.arrives ? NODE_EVENT_IPS : NODE_EVENT_PATH_FAILURE) << now.why;
        vpm_close_path(own, 0xC000);
    }
}

TEST_F(Delivery, makes_paths_to_the_one_node_only)
{
    u32 cursor[2] = {};
    EXPECT_EQ(vsm_query_services(1, 0, cursor), node::NODE_ADDRESS);
    EXPECT_EQ(vsm_query_services(1, 0, cursor), 0u);
    EXPECT_EQ(vpm_create_path(user, 0x02020202, 1, nullptr), 0u);
    EXPECT_EQ(vpm_create_path(user + 1, node::NODE_ADDRESS, 1, nullptr), 0u);
    u32 none = 77;
    EXPECT_NE(vpm_init_path_user(3, 0, receive, 0, &none), 0);
    EXPECT_EQ(none, 77u);
}

}  // namespace

}  // namespace tessaly
