// What the node's answers do: statuses, the description of an attach, PIP data.
#include "tests/tp_server/serving.h"

#include "common/runtime_guards.h"
#include "vtpsrv/vtpscbck_ltv.h"
#include "vtpsrv/vtpscbck_receive.h"

#include <random>

namespace tessaly::test {

namespace {

u32 visits;

void visit(u32, u16, const u8*, u32)
{
    ++visits;
}

}  // namespace

class answered : public serving_test {
protected:
    // A block and its return codes after the answer; what the node was told meanwhile.
    appc_query_attach& query_block(verb& query) { return query.as<appc_query_attach>(); }
    size_t told() const { return node.datagrams.size(); }

    const u32 server = register_server();
};

// clang-format off
const struct { u16 opcode; u32 status; rc codes; } statuses[] = {
    {NAP_REGISTER_TP,   0,          {OK}},
    {NAP_UNREGISTER_TP, 0,          {OK}},
    {NAP_REGISTER_TP,   11,         {0x0200, 0x02FF0000}},
    {NAP_UNREGISTER_TP, 12,         {0x0200, 0x06FF0000}},
    {NAP_REGISTER_TP,   5,          {0x11F0, 5}},
    {NAP_REGISTER_TP,   9,          {0x11F0, 9}},
    {NAP_QUERY_ATTACH,  0,          {OK}},
    {NAP_QUERY_ATTACH,  9,          {0x0200, 0x15000000}},
    {NAP_QUERY_ATTACH,  10,         {0x0100, 0x03000001}},
    {NAP_QUERY_ATTACH,  0xFFFFFFFF, {0x11F0, 0xFFFFFFFF}},
    {NAP_START_APPL_OK, 0,          {OK}},
    {NAP_START_APPL_OK, 9,          {0x0200, 0x15000000}},
    {NAP_START_APPL_OK, 11,         {0x11F0, 11}},
};
// clang-format on

TEST_F(answered, verbs_have_the_codes_of_their_status)
{
    for (const auto& each : statuses)
        for (const bool synchronous : {true, false}) {
            SCOPED_TRACE(::testing::Message() << std::hex << each.opcode << " status " << each.status);
            verb& v = make(each.opcode, server);
            const u32 reg_id = load<u32>(v.block(), 16);
            const bool updates = each.opcode == NAP_REGISTER_TP || each.opcode == NAP_UNREGISTER_TP;
            const size_t before = told() + 1;
            const auto answers = [&] { updates ? answers_update(each.status) : answers_query({}, each.status); };
            if (synchronous)
                node.while_asleep(answers);
            enter(synchronous, v);
            if (!synchronous)
                answers();
            EXPECT_EQ(node.last_result, NODE_RESULT_FREED);
            EXPECT_EQ(v.codes(), each.codes);
            EXPECT_EQ(load<u32>(v.block(), 16), updates && each.status == 0 ? 0x1234 : reg_id);
            EXPECT_EQ(told() - before, each.opcode == NAP_START_APPL_OK && each.status == 0 ? 1u : 0u);
        }
    const callback expected{callback::completion, bytes(8), 0, CORR};
    for (verb* each : completion_order)
        EXPECT_EQ(each->calls, std::vector{expected});
}

TEST_F(answered, START_APPL_OK_fails_when_its_response_cannot_be_sent)
{
    verb& v = start(NAP_START_APPL_OK, server);
    node.refuse(may_fail::vpm_send_datagram, 1, false, 0x77);
    answers_query();
    EXPECT_EQ(v.codes(), rc(UNEXPECTED_SYSTEM_ERROR, 0x77));
}

TEST_F(answered, only_by_what_fits)
{
    verb &update = start(NAP_REGISTER_TP, server), &query = start_query(server, 10), &ok = start(NAP_START_APPL_OK, server);
    answers_query_with_pip(2);  // so that the query waits for PIP data
    ASSERT_EQ(node.count(NAP_EXTRACT_PIP), 1u);
    const auto ignored = [&](const char* why, const std::function<void()>& answer) {
        const size_t before = told();
        node.last_result = 0x0BAD;
        answer();
        EXPECT_EQ(node.last_result, NODE_RESULT_DONE) << why;
        EXPECT_EQ(told(), before) << why;
        EXPECT_TRUE(completion_order.empty()) << why;
    };
    const auto short_datagram = [&](u16 type, u32 correlator_at, u32 correlator) {
        bytes datagram = words({23u | u32{type} << 16, 0, 0, 0, 0, 0});
        store(datagram.data(), correlator_at, correlator);
        datagram.pop_back();
        node.sends_datagram(datagram);
    };
    ignored("an update answer for a query", [&] { answers_update(0, 1, 2); });
    ignored("an update answer for nobody", [&] { answers_update(0, 1, 77); });
    ignored("an update answer for START_APPL_OK", [&] { answers_update(0, 1, 3); });
    ignored("a query answer for NAP_REGISTER_TP", [&] { answers_query({}, 0, 1); });
    ignored("a query answer for nobody", [&] { answers_query({}, 0, 0xFFFFFFFF); });
    ignored("a second query answer", [&] { answers_query_with_pip(2); });
    ignored("PIP data for NAP_REGISTER_TP", [&] { answers_pip({}, 0, {OK}, 1); });
    ignored("PIP data for nobody", [&] { answers_pip({}, 0, {OK}, 78); });
    ignored("a failed PIP answer for START_APPL_OK", [&] { answers_pip({}, 0, {STATE_CHECK}, 3); });
    ignored("a start request for nobody", [&] { asks_to_start(0x5555); });
    ignored("a short update answer", [&] { short_datagram(TPS_MSG_UPDATE_TP_RSP, 19, 1); });
    ignored("a short query answer", [&] { short_datagram(TPS_MSG_QUERY_DLOAD_RSP, 8, 3); });
    ignored("a short start request", [&] { short_datagram(TPS_MSG_START_APPL_REQ, 4, server); });
    EXPECT_EQ(node.count(NAP_EXTRACT_PIP), 1u);
    EXPECT_TRUE(server_calls.empty());

    answers_update(0, 1, 1);
    answers_query({}, 0, 3);
    answers_pip({}, 0);
    EXPECT_EQ(completion_order, (std::vector{&update, &ok, &query}));
}

TEST_F(answered, elements_are_visited_as_far_as_they_are_sound)
{
    const bytes sound = joined({element(3, bytes(8)), element(99, {})});
    // clang-format off
    const struct { bytes elements; u32 visited; } cases[] = {
        {{}, 0}, {{0}, 0}, {{0, 4, 0}, 0}, {sound, 2}, {{0, 12, 0, 3, 1, 2, 3, 4, 5, 6, 7, 8}, 1},
        {{0, 12, 0, 3, 1, 2, 3, 4, 5, 6, 7}, 0},
        {joined({sound, {0, 3, 0, 3}, sound}), 2}, {joined({sound, {0, 0, 0, 3}}), 2}, {joined({sound, {0, 5, 0, 3}}), 2},
        {joined({sound, {0, 4, 0}}), 2}, {{0xFF, 0xFF, 0, 3}, 0}, {{4, 0, 0, 3}, 0},
    };
    // clang-format on
    for (const auto& each : cases) {
        visits = 0;
        EXPECT_EQ(tps_parse_ltv(each.elements.data(), static_cast<u32>(each.elements.size()), visit, 1), each.visited);
        EXPECT_EQ(visits, each.visited);
    }
}

TEST_F(answered, elements_fill_their_fields_and_no_other_byte)
{
    // clang-format off
    const struct { u16 type; u32 sent, at, stored; } cases[] = {
        {3, 8, 88, 8}, {3, 12, 88, 8}, {3, 5, 88, 5}, {5, 17, 96, 17}, {5, 30, 96, 17}, {5, 0, 96, 0}, {6, 9, 113, 8},
        {6, 3, 113, 3}, {4, 8, 0, 0}, {7, 40, 0, 0},  // no buffer for the attach header
    };
    // clang-format on
    for (const auto& each : cases) {
        bytes value(each.sent);
        for (u32 i = 0; i < each.sent; ++i)
            value[i] = static_cast<u8>(0x80 + i);
        verb& query = start_query(server, 0, 0);
        bytes expected = query.image();
        std::copy_n(value.begin(), each.stored, expected.begin() + each.at);
        store<u16>(expected.data(), 124, 0);
        answers_query(joined({{0, 4, 0, 99}, element(each.type, value)}));
        EXPECT_TRUE(same_bytes(query.image(), expected)) << each.type;
    }
}

TEST_F(answered, elements_are_checked_against_their_verb)
{
    const process_lock lock;
    const bytes value(8, 0xEE);
    verb& update = start(NAP_REGISTER_TP, server);
    const bytes before = update.image();
    for (const char* text : {"correlator != NB_NULL_HANDLE", "TPS_QUA(verb_info->verb)->opcode == NAP_QUERY_ATTACH"})
        node.expect_assertion(text);
    tps_parsed_ltv(8, 3, value.data(), 0);
    tps_parsed_ltv(8, 3, value.data(), correlator());
    tps_parsed_ltv(8, 3, value.data(), 4711);
    EXPECT_EQ(node.broken[0].line, 476u);
    EXPECT_EQ(node.broken[1].line, 484u);
    EXPECT_EQ(node.broken[1].module, "vtpscbck");
    EXPECT_EQ(update.image(), before);
    answers_update();
}

class attach_headers : public answered {
protected:
    // Without its first byte, what a cap leaves of a header: part by part, byte by byte, as long as header and element have some.
    static bytes expected_of(const bytes& value, u32 cap, bool privileged, bytes& tp_name)
    {
        const u32 end = value.empty() ? 0 : std::min<u32>(value[0], static_cast<u32>(value.size()));
        bytes whole;
        u32 from = 0;
        const auto takes = [&](u32 count) {
            for (; count != 0 && from < end; --count, ++from)
                whole.push_back(value[from]);
        };
        takes(9);
        if (cap > 9 && from < end) {
            const u32 name = value[9];
            takes(name + 1);
            const size_t seen = std::min<size_t>(whole.size(), cap) - 10;
            tp_name = bytes(whole.begin() + 10, whole.begin() + 10 + static_cast<i32>(std::min<size_t>(seen, 64)));
            tp_name.resize(64, 0x40);
            if (from < end && whole.size() < cap) {
                const u32 subfield = value[from] + 1;
                if (privileged)
                    takes(subfield);
                else
                    whole.push_back(0), from += subfield;
                takes(1000);
            }
        }
        whole.resize(std::min<size_t>(whole.size(), cap));
        if (!whole.empty())
            whole[0] = static_cast<u8>(whole.size());
        return whole;
    }

    void check(u32 by, const bytes& value, u16 cap, bool privileged)
    {
        SCOPED_TRACE(::testing::Message() << ::testing::PrintToString(value) << " cap " << cap << " privileged " << privileged);
        verb& query = start_query(by, 0, cap);
        auto& block = query_block(query);
        bytes tp_name = as_bytes(block.tp_name, 64);
        const bytes stored = expected_of(value, cap, privileged, tp_name);
        answers_query(element(7, value));
        EXPECT_EQ(query.codes(), rc(OK));
        EXPECT_EQ(block.attach_len, stored.size());
        EXPECT_TRUE(same_bytes(as_bytes(attach, cap), joined({stored, bytes(cap - stored.size())})));
        EXPECT_TRUE(same_bytes(as_bytes(block.tp_name, 64), tp_name));
        verbs.pop_back();
        completion_order.clear();
        buffers.clear();
    }

    u32 root_server()
    {
        node.effective_user = 0;
        return register_server();
    }
};

TEST_F(attach_headers, hide_their_security_subfield_from_all_but_root)
{
    const bytes name = ebcdic("ECHO"), header = attach_header(name, {2, 0xAA, 0xBB, 3, 1, 2, 3});
    const bytes head(header.begin() + 1, header.begin() + 14);
    const auto stored_by = [&](u32 by, u16 cap) {
        verb& query = start_query(by, 0, cap);
        answers_query(element(7, header));
        return as_bytes(attach, query_block(query).attach_len);
    };
    const u32 root = root_server();
    EXPECT_TRUE(same_bytes(stored_by(root, 100), joined({{21}, head, {2, 0xAA, 0xBB, 3, 1, 2, 3}})));
    EXPECT_TRUE(same_bytes(stored_by(server, 100), joined({{19}, head, {0, 3, 1, 2, 3}})));
    EXPECT_TRUE(same_bytes(stored_by(root, 16), joined({{16}, head, {2, 0xAA}})));
    EXPECT_TRUE(same_bytes(stored_by(server, 16), joined({{16}, head, {0, 3}})));
    const verb& last = verbs.back();
    EXPECT_TRUE(same_bytes(as_bytes(last.memory.get() + 24, 64), ebcdic("ECHO", 64)));
}

TEST_F(attach_headers, are_stored_as_far_as_element_header_and_buffer_reach)
{
    const u32 root = root_server();
    std::mt19937 random(7);
    const auto below = [&](u32 limit) { return static_cast<u32>(random() % limit); };
    for (u32 round = 0; round < 2000; ++round) {
        bytes value(below(4) == 0 ? below(300) : below(40));
        for (u8& byte : value)
            byte = static_cast<u8>(below(3) == 0 ? below(12) : below(256));
        if (!value.empty() && below(2) == 0)
            value[0] = static_cast<u8>(value.size());
        if (value.size() > 9 && below(2) == 0)
            value[9] = static_cast<u8>(below(static_cast<u32>(value.size())));
        if (value.size() > 4)
            value[FMH5_FLAGS] &= static_cast<u8>(~FMH5_PIP_PRESENT);
        const bool privileged = below(2) == 0;
        check(privileged ? root : server, value, static_cast<u16>(1 + (below(3) == 0 ? below(300) : below(30))), privileged);
        if (HasFailure())
            return;
    }
}

class pip_data : public answered {
protected:
    // A query that waits for its PIP data.
    verb& fetching(u16 pip_buf_len = 100)
    {
        verb& query = start_query(server, pip_buf_len);
        answers_query_with_pip();
        return query;
    }
    size_t paths_made() const { return static_cast<size_t>(std::ranges::count(node.calls, std::string_view("vpm_create_path"))); }
    void lose_all_paths()
    {
        for (const auto& [number, path] : std::map(node.paths))
            node.loses_path(number);
    }
    rc lost{COMMS_SUBSYSTEM_ABENDED};
};

TEST_F(pip_data, are_asked_for_in_160_bytes_and_delivered_as_far_as_they_fit)
{
    verb& query = fetching();
    EXPECT_EQ(query.codes(), PENDING);
    const sent_verb& sent = node.last(NAP_EXTRACT_PIP);
    bytes expected(160);
    const std::pair<u32, u32> fields[] = {{16, sent.address}, {56, 160},      {80, 1},
                                          {112, 0x0104},      {124, START_1}, {128, NODE_ADDRESS}};
    for (const auto& [at, value] : fields)
        store(expected.data(), at, value);
    store<u16>(expected.data(), 62, 12);
    store<u16>(expected.data(), 142, 100);
    EXPECT_TRUE(same_bytes(sent.message, expected));
    const path_record& path = node.paths.at(sent.path);
    EXPECT_EQ(path.node, NODE_ADDRESS);
    EXPECT_EQ(path.caps, (bytes{0x08, 0x00, 0x01, 0x00, 0x15, 0x00, 0x02, 0xF0}));

    answers_pip(bytes(300, 0x5A), 300);
    EXPECT_EQ(query.codes(), rc(OK));
    EXPECT_EQ(query_block(query).pip_len, 100);
    EXPECT_EQ(query_block(query).pip_buf_len, 300);
    EXPECT_EQ(as_bytes(pip, 100), bytes(100, 0x5A));
}

TEST_F(pip_data, that_the_node_refuses_give_its_codes)
{
    verb& query = fetching();
    answers_pip({}, 9, {STATE_CHECK, 0x0BADC0DE});
    EXPECT_EQ(query.codes(), rc(STATE_CHECK, 0x0BADC0DE));
    EXPECT_EQ(query_block(query).pip_buf_len, 100);
}

TEST_F(pip_data, are_asked_for_only_on_the_strength_of_this_answer)
{
    const bytes with_pip = element(7, attach_header({0xC1})), without = element(7, attach_header({0xC1}, {}, 0xF7));
    // clang-format off
    const struct { u16 room, cap; bytes elements; bool fetched; } cases[] = {
        {10, 100, with_pip, true}, {10, 5, with_pip, true}, {0, 100, with_pip, false}, {10, 4, with_pip, false},
        {10, 100, {}, false},
        {10, 0, with_pip, false}, {10, 100, without, false}, {10, 100, joined({with_pip, without}), false},
        {10, 100, element(7, {}), false}, {10, 100, element(7, {4, 0, 0, 0, 8, 0}), false},
        {10, 100, joined({{0, 2, 0, 7}, with_pip}), false},
    };
    // clang-format on
    for (const auto& each : cases) {
        verb& query = start_query(server, each.room, each.cap);
        std::fill_n(attach, each.cap, 0xFF);  // an older header there would have PIP data
        query_block(query).attach_len = 50;
        const size_t before = node.count(NAP_EXTRACT_PIP);
        answers_query(each.elements);
        EXPECT_EQ(node.count(NAP_EXTRACT_PIP) - before, each.fetched ? 1u : 0u);
        EXPECT_EQ(query.codes(), each.fetched ? PENDING : rc(OK));
        if (each.fetched)
            answers_pip({1}, 1);
        EXPECT_EQ(query_block(query).pip_len, each.fetched ? 1 : 0);
    }
}

TEST_F(pip_data, of_one_node_share_a_path_until_it_fails)
{
    verb &first = fetching(), &second = fetching();
    EXPECT_EQ(paths_made(), 1u);
    answers_query_with_pip();
    verb& described = start_query(server, 10);  // waits for the node, not for the path
    node.loses_path(node.last(NAP_EXTRACT_PIP).path);
    EXPECT_EQ(first.codes(), lost);
    EXPECT_EQ(second.codes(), lost);
    EXPECT_EQ(described.codes(), PENDING);
    answers_query_with_pip();
    EXPECT_EQ(paths_made(), 2u);
    start_query(server, 10);
    answers_query(element(7, attach_header({0xC1})), 0, 0, NODE_ADDRESS + 1);
    EXPECT_EQ(paths_made(), 3u);
    lose_all_paths();
}

TEST_F(pip_data, on_a_path_of_a_server_that_is_unregistered_are_lost_for_all)
{
    const u32 other = register_server();
    verb& own = fetching();
    verb& others = start_query(other, 10);
    answers_query_with_pip();
    EXPECT_EQ(paths_made(), 1u);
    EXPECT_EQ(start(NAP_UNREGISTER_TP_SERVER, server).codes(), rc(OK));
    EXPECT_EQ(own.codes(), lost);
    EXPECT_EQ(others.codes(), lost);
    start_query(other, 10);
    answers_query_with_pip();
    EXPECT_EQ(paths_made(), 2u);
    answers_pip({7}, 1);
    EXPECT_EQ(verbs.back().codes(), rc(OK));
}

TEST_F(pip_data, that_cannot_be_asked_for_complete_their_query)
{
    // clang-format off
    const struct { may_fail what; u32 nth; u32 secondary; } cases[] = {
        {may_fail::vpm_create_path, 1, scripted_node::SHORTAGE}, {may_fail::nba_mm_alloc, 2, scripted_node::SHORTAGE},
        {may_fail::vpm_send_ips, 1, 0x13},
    };
    // clang-format on
    for (const auto& each : cases) {
        verb& query = start_query(server, 10);
        node.refuse(each.what, each.nth);  // memory: that of the path record comes first
        answers_query_with_pip();
        EXPECT_EQ(query.codes(), rc(UNEXPECTED_SYSTEM_ERROR, each.secondary));
        node.refuse_nothing();
        node.deliver();
        lose_all_paths();
    }
    verb& query = start_query(server, 10);
    node.refuse(may_fail::nba_mm_alloc, 1);  // the path is used, though it cannot be kept
    answers_query_with_pip();
    EXPECT_EQ(query.codes(), PENDING);
    node.loses_path(node.last(NAP_EXTRACT_PIP).path);
    EXPECT_EQ(query.codes(), lost);
}

TEST_F(pip_data, are_delivered_only_to_queries)
{
    const process_lock lock;
    for (const char* text : {"rcv_info != NULL", "verb_signal != NULL", "TPS_SIG_VCB(verb_signal)->opcode == NAP_EXTRACT_PIP",
                             "TPS_QUA(verb_info->verb)->opcode == NAP_QUERY_ATTACH"})
        node.expect_assertion(text);
    verb_signal signal{};
    rcv_info info{NODE_EVENT_IPS, 9, nullptr, 0, 0, nullptr};
    start(NAP_REGISTER_TP, server);
    EXPECT_EQ(tps_data_callback(0, nullptr), 0);
    EXPECT_EQ(tps_data_callback(0, &info), 0);
    info.rcv_ips = &signal;
    EXPECT_EQ(tps_data_callback(0, &info), 0);
    signal.block.opcode = NAP_EXTRACT_PIP;
    signal.header.pend_handle = correlator();
    info.result = 9;
    EXPECT_EQ(tps_data_callback(0, &info), 0);
    EXPECT_EQ(info.result, 0);
    const std::vector<u32> lines{317, 321, 322, 341};
    for (size_t i = 0; i < lines.size(); ++i)
        EXPECT_EQ(node.broken.at(i).line, lines[i]);
    EXPECT_TRUE(completion_order.empty());
}

}  // namespace tessaly::test
