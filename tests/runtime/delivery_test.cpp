// What arrives, when, how much of it, and who frees it.
#include "runtime_fixture.h"

namespace tessaly {

class Delivery : public RuntimeTest {
protected:
    u32 path = (vpm_lock(), open_path());
    ~Delivery() override { vpm_unlock(1); }

    event message(u32 pend) const { return {NODE_EVENT_IPS, path, pend}; }
};

TEST_F(Delivery, waits_for_the_sleep_of_the_thread_that_sent)
{
    const u32 object = vpm_allocate_wait_object();
    EXPECT_EQ(send(path, object), 0);
    EXPECT_TRUE(events.empty()) << "neither the send nor the unlock delivers";
    vpm_sleep(object, NO_LIMIT);
    EXPECT_EQ(events, (event_list{message(object)}));
    vpm_release_wait_object(object);
}

TEST_F(Delivery, nests_and_keeps_the_order_of_arrival)
{
    std::vector<u32> finished;
    on_event = [&](u32, rcv_info& info) {
        const u32 pend = pend_of(info);
        if (pend == 1)
            vpm_process_pending_events();
        return finished.push_back(pend), NODE_RESULT_DONE;
    };
    for (u32 pend : {1u, 2u, 3u})
        send(path, pend);
    vpm_process_pending_events();
    EXPECT_EQ(events, (event_list{message(1), message(2), message(3)}));
    EXPECT_EQ(finished, (std::vector<u32>{2, 3, 1}));
}

TEST_F(Delivery, of_pending_events_ends_although_every_callback_issues_a_verb)
{
    on_event = [&](u32, rcv_info& info) { return send(path, pend_of(info) + 1), NODE_RESULT_DONE; };
    send(path, 1);
    for (std::size_t calls : {1u, 2u}) {
        vpm_process_pending_events();
        EXPECT_EQ(events.size(), calls);
    }
    on_event = nullptr;
}

TEST_F(Delivery, copies_no_more_data_than_came_and_the_verb_has_room_for)
{
    struct data_case { std::string why; u16 opcode, room; std::string came; u32 wanted; std::string copied; };
    const data_case rows[] = {
        {"all of it fits", RECEIVE_AND_WAIT, 10, "received", 8, "received"},
        {"the library asks for less", RECEIVE_IMMEDIATE, 10, "received", 3, "rec"},
        {"the verb has room for less", RECEIVE_AND_POST, 5, "received", 8, "recei"},
        {"less came than the answer claims", RECEIVE_EXPEDITED_DATA, 100, "rec", 50, "rec"},
        {"the verb receives nothing", SEND_DATA, 100, "received", 8, ""},
    };
    for (const auto& row : rows) {
        char buffer[64] = {};
        const u32 pend = nba_create_handle(buffer);
        static u32 data_callbacks;
        data_callbacks = 0;
        script.on_message = [&](const frame&, frame_sink& output) {
            const auto bytes = static_cast<u32>(row.came.size());
            node_sends(output, frame_kind::message, path, verb(row.opcode, pend, bytes), row.came);
        };
        on_event = [&](u32, rcv_info& info) {
            store<u32>(info.rcv_ips, offsetof(verb_message_header, buf_len), BLOCK_BYTES - 8);  // as if the block were narrowed
            info.data_buf = static_cast<u32>(reinterpret_cast<std::uintptr_t>(buffer));
            info.data_len = row.wanted;
            info.data_callback = [](u32, rcv_info* same) -> u16 { return ++data_callbacks, same->result = NODE_RESULT_DONE; };
            return NODE_RESULT_DELIVER;
        };
        send(path, verb(row.opcode, pend, 0, row.room));
        send(path, 0);  // takes the room of no other verb
        vpm_process_pending_events();
        EXPECT_EQ(std::string(buffer), row.copied) << row.why;
        EXPECT_EQ(data_callbacks, 2u) << row.why;
        nba_destroy_handle(pend);
    }
}

TEST_F(Delivery, frees_the_buffer_unless_the_library_did)
{
    const auto allocate = [] { return nba_mm_alloc(BLOCK_BYTES, 770, &nba_blank_name, 0, 0); };
    for (const u16 result : {NODE_RESULT_FREED, NODE_RESULT_DONE}) {
        void* kept = nullptr;
        on_event = [&](u32, rcv_info& info) {
            nba_mm_free(info.rcv_ips, 0);
            kept = allocate();  // may well be the same memory
            return result;
        };
        send(path, 1);
        vpm_process_pending_events();
        void* other = allocate();
        EXPECT_NE(other, kept) << "a double free gives it away again";
        nba_mm_free(other, 0);
        nba_mm_free(kept, 0);
    }
}

TEST_F(Delivery, of_a_message_whose_lengths_do_not_fit_fails_the_path_instead)
{
    const std::pair<u32, u32> bad_lengths[] = {
        {BLOCK_BYTES, BLOCK_BYTES + 1}, {BLOCK_BYTES + 4, BLOCK_BYTES}, {8, BLOCK_BYTES}, {BLOCK_BYTES, 0xFFFFFFFF}};
    for (const auto& [buf_len, msg_len] : bad_lengths) {
        const u32 doomed = open_path();
        script.on_message = [&, header = buf_len, whole = msg_len](const frame&, frame_sink& output) {
            auto block = verb(SEND_DATA, 1);
            store(block.data(), offsetof(verb_message_header, buf_len), header);
            store(block.data(), offsetof(verb_message_header, msg_len), whole);
            node_sends(output, frame_kind::message, doomed, block);
        };
        send(doomed, 1);
        vpm_process_pending_events();
        vpm_process_pending_events();
        EXPECT_EQ(events, (event_list{{NODE_EVENT_PATH_FAILURE, doomed, 0}})) << buf_len << ' ' << msg_len;
        EXPECT_EQ(script.seen.back().kind, frame_kind::path_closed);
        events.clear();
    }
}

TEST_F(Delivery, stops_for_a_path_that_is_closed)
{
    const u32 other = open_path();
    send(path, 1);
    send(other, 2);
    send(path, 3);
    script.seen.clear();
    for (int twice = 0; twice < 2; ++twice)
        vpm_close_path(path, 0xC000);
    send(other, 4);
    vpm_process_pending_events();
    EXPECT_EQ(events, (event_list{{NODE_EVENT_IPS, other, 2}, {NODE_EVENT_IPS, other, 4}}));
    EXPECT_NE(send(path, 5), 0);
    EXPECT_EQ(script.seen.size(), 2u) << "the path closed once, and message 4";
}

TEST_F(Delivery, reports_a_lost_path_once_and_forgets_it)
{
    script.on_message = [this](const frame&, frame_sink& output) {
        node_sends(output, frame_kind::message, path, verb(SEND_DATA, 1));
        for (int twice = 0; twice < 2; ++twice)
            output.add(1, frame_kind::path_failed, path, 0);
    };
    send(path, 1);
    EXPECT_NE(send(path, 2), 0);
    vpm_process_pending_events();
    EXPECT_EQ(events, (event_list{message(1), {NODE_EVENT_PATH_FAILURE, path, 0}}));
    vpm_close_path(path, 0xC000);
    EXPECT_EQ(script.seen.size(), 1u) << "the node dropped the path itself";
}

TEST_F(Delivery, of_datagrams_follows_their_type)
{
    static std::vector<u16> to_server;
    std::vector<u16> to_library;
    u32 servers[2] = {};
    for (u32& server : servers)
        vpm_init_path_user(0x20, 1, [](u32, rcv_info* info) -> u16 {
            to_server.push_back(info->rcv_ips != nullptr ? load<u16>(info->rcv_ips, 2) : info->event);
            return info->result = NODE_RESULT_DONE;
        }, 0, &server);
    on_event = [&](u32, rcv_info& info) {
        return to_library.push_back(info.rcv_ips != nullptr ? load<u16>(info.rcv_ips, 2) : info.event), NODE_RESULT_DONE;
    };
    script.on_datagram = [](const frame&, frame_sink& output) {
        for (u8 type : {u8{0x82}, u8{11}, u8{23}, u8{147}, u8{150}, u8{9}})
            node_sends(output, frame_kind::datagram, 0, {4, 0, type, 0});
        node_sends(output, frame_kind::datagram, 0, {5, 0, 0x82, 0});  // longer than what came
        output.add(1, frame_kind::terminated, 0, 0);
    };
    u16 asks[3] = {4, 22};
    EXPECT_EQ(vpm_send_datagram(16, 0, asks, 4), 0);
    for (u32 wrong : {3u, 5u})
        EXPECT_NE(vpm_send_datagram(16, 0, asks, wrong), 0);
    vpm_process_pending_events();
    EXPECT_EQ(to_library, (std::vector<u16>{0x82, NODE_EVENT_TERMINATED}));
    EXPECT_EQ(to_server, (std::vector<u16>{11, 23, 147, 150, NODE_EVENT_TERMINATED, NODE_EVENT_TERMINATED}));
    for (u32 server : servers)
        vpm_terminate_path_user(server);
}

// A start request is taken by a routine that frees it or says so. Otherwise, and without a TP server, it goes back.
TEST_F(Delivery, of_a_start_request_that_nobody_takes_sends_it_back)
{
    static u16 result;
    static bool frees;
    script.on_datagram = [](const frame&, frame_sink& output) {
        std::vector<u8> request(24, 9);
        store<u32>(request.data(), 0, 11 << 16 | 24);
        node_sends(output, frame_kind::datagram, 0, request);
    };
    const struct { bool server; u16 result; bool frees, comes_back; } rows[] = {
        {true, NODE_RESULT_FREED, true, false}, {true, NODE_RESULT_DONE, true, false}, {true, NODE_RESULT_DONE, false, true},
        {false, 0, false, true}};
    for (const auto& row : rows) {
        std::tie(result, frees) = std::tie(row.result, row.frees);
        script.seen.clear();
        u32 server = 0;
        if (row.server)
            vpm_init_path_user(0x20, 1, [](u32, rcv_info* info) -> u16 {
                if (frees)
                    nba_mm_free(info->rcv_ips, 0);
                return info->result = result;
            }, 0, &server);
        u16 asks[2] = {4, 22};
        EXPECT_EQ(vpm_send_datagram(16, 0, asks, 4), 0);
        vpm_process_pending_events();
        vpm_terminate_path_user(server);
        std::vector<frame_kind> told;
        for (const node::seen_frame& each : script.seen)
            told.push_back(each.kind);
        std::vector<frame_kind> expected;
        if (row.server)
            expected = {frame_kind::tp_server_opened, frame_kind::tp_server_closed};
        if (row.comes_back)
            expected.insert(expected.begin() + (row.server ? 1 : 0), frame_kind::datagram_returned);
        EXPECT_EQ(told, expected);
    }
}

TEST_F(Delivery, of_pip_data_to_a_tp_server_keeps_to_what_came_and_what_it_asks_for)
{
    static char buffer[8];
    u32 server = 0;
    vpm_init_path_user(0x20, 1, [](u32, rcv_info* info) -> u16 {
        info->data_buf = static_cast<u32>(reinterpret_cast<std::uintptr_t>(buffer));
        info->data_len = load<u16>(info->rcv_ips, sizeof(verb_message_header) + 32);
        info->data_callback = [](u32, rcv_info* same) -> u16 { return nba_mm_free(same->rcv_ips, 0), NODE_RESULT_DONE; };
        return NODE_RESULT_DELIVER;
    }, 0, &server);
    const u32 own = vpm_create_path(server, node::NODE_ADDRESS, 1, nullptr);
    for (const u16 asked_for : {u16{2}, u16{0xFFFF}}) {
        script.on_message = [&](const frame&, frame_sink& output) {
            auto answer = verb(0x0104, 5, 3);
            store(answer.data(), sizeof(verb_message_header) + 32, asked_for);
            node_sends(output, frame_kind::message, own, answer, "pip");
        };
        std::memset(buffer, 0, sizeof buffer);
        send(own, verb(0x0104, 5));
        vpm_process_pending_events();
        EXPECT_EQ(std::string(buffer), asked_for == 2 ? "pi" : "pip");
    }
    vpm_terminate_path_user(server);
}

// The node's time may stand still until something waits for it, but never goes back.
TEST_F(Delivery, of_time_comes_from_the_sleeping_caller)
{
    constexpr u64 LATER_MS = 15;
    const u32 object = vpm_allocate_wait_object();
    u64 told = 0;
    script.on_message = [&](const frame& input, frame_sink&) { script.deadline_ms = input.now_ms + LATER_MS; };
    script.on_time = [&](const frame& input, frame_sink& output) {
        EXPECT_GE(input.now_ms, told);
        told = input.now_ms;
        if (script.deadline_ms.has_value() && told >= *script.deadline_ms) {
            script.deadline_ms.reset();
            node_sends(output, frame_kind::message, path, verb(SEND_DATA, object));
        }
    };
    for (int twice = 0; twice < 2; ++twice) {
        const auto begin = std::chrono::steady_clock::now();
        send(path, 1);
        vpm_sleep(object, NO_LIMIT);
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds{LATER_MS - 1});
    }
    EXPECT_EQ(events, (event_list{message(object), message(object)}));
    vpm_release_wait_object(object);
}

TEST_F(Delivery, to_the_node_is_whole_messages_only)
{
    // Sent behind the block of a message that announces 6 bytes; messages that reach the node; what comes back.
    struct parts_case { std::string why; std::vector<std::string> parts; std::size_t reach_node; u16 comes_back; };
    const parts_case rows[] = {
        {"in one call", {"abcdef"}, 1, NODE_EVENT_IPS},
        {"in three", {"ab", "c", "def"}, 1, NODE_EVENT_IPS},
        {"nothing with the block", {"", "abcdef"}, 1, NODE_EVENT_IPS},
        {"too much at once", {"abcdefg"}, 0, NODE_EVENT_PATH_FAILURE},
        {"too much in the end", {"abc", "defg"}, 0, NODE_EVENT_PATH_FAILURE},
        {"more after the end", {"abcdef", "g"}, 1, NODE_EVENT_PATH_FAILURE},
    };
    auto whole = verb(SEND_DATA, 1, 6);
    for (u8 byte : {'a', 'b', 'c', 'd', 'e', 'f'})
        whole.push_back(byte);
    for (const auto& row : rows) {
        script.seen.clear();
        const u32 own = open_path();
        send(own, verb(SEND_DATA, 1, 6), row.parts[0]);
        for (std::size_t i = 1; i < row.parts.size(); ++i)
            vpm_send_ips(own, nullptr, 0, row.parts[i].data(), static_cast<u32>(row.parts[i].size()));
        vpm_process_pending_events();
        std::erase_if(script.seen, [](const node::seen_frame& one) { return one.kind != frame_kind::message; });
        ASSERT_EQ(script.seen.size(), row.reach_node) << row.why;
        for (const node::seen_frame& one : script.seen)
            EXPECT_EQ(one.bytes, whole) << row.why;
        EXPECT_EQ(std::get<0>(events.back()), row.comes_back) << row.why;
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

}  // namespace tessaly
