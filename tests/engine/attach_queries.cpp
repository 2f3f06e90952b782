// What TP servers learn about the attaches that they are to start for, and what they may send.
#include "tests/engine/serving.h"

#include <random>

namespace tessaly::node::playing {
namespace {

constexpr rc GONE{STATE_CHECK, APPC_SEC_ATTACH_GONE};
constexpr rc UNKNOWN{PARAMETER_CHECK, APPC_SEC_BAD_ATTACH_ID};

using AttachQuery = TpServer;

// The header that a query's elements hold, behind those that it checks.
TEST_F(AttachQuery, learns_what_the_attach_says_and_the_user_only_as_root)
{
    const std::string_view elements("\0\x0C\0\3SERVER  \0\x15\0\5"
                                    "\xE3\xC5\xE2\xE2\xC1\xD3\xE8\x4B\xD3\xD6\xC3\xC1\xD3\x40\x40\x40\x40"
                                    "\0\x0C\0\6\xC9\xD5\xE3\xC5\xD9\x40\x40\x40\0", 46);
    const std::string_view fixed("\5\2\xFF\x08\3\xD1\0\x40\4\xC5\xC3\xC8\xD6", 13);
    const std::string_view user("\x09\4\1\xE2\xC5\xC3\3\2\xC1\xC2", 10), nobody("\0", 1);
    // The LU's name, an instance of the TP, the sequence number; then the session.
    const std::string_view luw("\x16\x0D\xE3\xC5\xE2\xE2\xC1\xD3\xE8\x4B\xD3\xD6\xC3\xC1\xD3", 15);
    for (const bool root : {true, false}) {
        open(S, 1, {true, root});
        EXPECT_EQ(update(S, {}), 0u);
        appc_allocate verb = allocate("ECHO");
        verb.security = APPC_SECURITY_PGM;
        name(verb.user_id, "AB");
        name(verb.pwd, "SEC");
        const u32 conv = a.run(verb, as_bytes("pip")).block.conv_id;
        const bytes answer = query(S, asked(S).start_id);
        EXPECT_EQ(load<u32>(answer.data(), 12), 0u);
        EXPECT_EQ(load<u32>(answer.data(), 8), 88u);
        std::string expected{elements};
        const std::size_t length = 14 + (root ? user : nobody).size() + luw.size() + 8 + 5;
        expected += static_cast<char>(4 + length);
        expected += std::string("\0\7", 2) + static_cast<char>(length);
        expected += std::string{fixed} + std::string{root ? user : nobody} + std::string{luw};
        const std::string got{answer.begin() + 24, answer.end()};
        EXPECT_EQ(got.substr(0, expected.size()), expected) << testing::PrintToString(got);
        EXPECT_EQ(got.size(), expected.size() + 8 + 5);
        EXPECT_EQ(got[expected.size() + 8], 4);
        EXPECT_EQ(a.codes(plain(CANCEL_CONV, conv)), rc{});
        w.client_gone(S);
    }
}

TEST_F(AttachQuery, names_and_lengths_that_programs_make_up_fit_the_header)
{
    serve(S);
    auto properties = verb_of_tp<appc_set_tp_properties>(SET_TP_PROPERTIES);
    properties.set_prot_id = 1;
    std::memset(&properties.prot_id, 0xFF, sizeof properties.prot_id);
    EXPECT_EQ(a.codes(properties), rc{});
    EXPECT_EQ(update(S, {.tp = std::string(64, 'L'), .server = 0x1002}), 0u);
    appc_allocate verb = allocate(std::string(64, 'L'), 0);
    verb.security = APPC_SECURITY_PGM;
    name(verb.user_id, "ABCDEFGHIJ");
    name(verb.pwd, "ABCDEFGHIJ");
    EXPECT_EQ(a.codes(verb), rc{});
    const bytes answer = query(S, asked(S).start_id);
    const std::size_t header = answer.size() - 24 - 12 - 21 - 12 - 4;
    EXPECT_EQ(header, 9u + 65 + 25 + 27 + 5);
    EXPECT_EQ(answer[answer.size() - header], header);
}

TEST_F(AttachQuery, is_refused_an_attach_that_is_over_or_not_its_own)
{
    serve(S);
    open(S2);
    converse_with(a, "ECHO");
    const auto start = asked(S).start_id;
    rights[5] = {};
    EXPECT_EQ(query_status(S, start), 0u);
    EXPECT_EQ(query_status(S2, start), 10u);
    EXPECT_EQ(query_status(5, start), 1u);
    EXPECT_EQ(query_status(S, {start.attach, 1}), 10u);
    for (const u32 never : {0u, 1u, start.attach + 0x10000, start.attach + 1, 0xFFFFFFFFu})
        EXPECT_EQ(query_status(S, {never, NODE_ADDRESS}), 10u) << never;
    EXPECT_EQ(take_attach(start), rc{});
    EXPECT_EQ(query_status(S, start), 9u);
}

TEST_F(AttachQuery, fetches_pip_data_on_a_path_of_its_own)
{
    serve(S);
    std::string pip(3000, 'p');
    pip += "end";
    const u32 conv = a.run(allocate("ECHO"), as_bytes(pip)).block.conv_id;
    const auto start = asked(S).start_id;
    const auto fetch = [&](client_id client, const start_id_words& about, u16 room) {
        verb_signal request{};
        request.header.msg_len = sizeof request;
        request.header.kind = VERB_MESSAGE_KIND;
        request.header.pend_handle = 99;
        request.block.opcode = NAP_EXTRACT_PIP;
        request.block.attach = about;
        request.block.pip_buf_len = room;
        w.feed({.kind = frame_kind::path_opened, .client = client, .path = 50});
        const bytes block{reinterpret_cast<u8*>(&request), reinterpret_cast<u8*>(&request + 1)};
        w.feed({.kind = frame_kind::message, .client = client, .path = 50, .block = block});
        const auto came = w.take_answer(client, 50, 99);
        return came ? came->content : bytes(160);
    };
    // clang-format off
    const struct { client_id client; start_id_words about; u16 room; rc codes; u32 data, told; } cases[] = {
        {S,  start,                 5000,   {},      3003, 3003},
        {S,  start,                 3002,   {},      3002, 3003},
        {S,  start,                 0,      {},      0,    3003},
        {S2, start,                 5000,   UNKNOWN, 0,    0},
        {S,  {start.attach, 5},     5000,   UNKNOWN, 0,    0},
        {S,  {start.attach + 0x10000, start.node}, 5000, UNKNOWN, 0, 0},
    };
    // clang-format on
    verb_signal answer;
    for (const auto& each : cases) {
        const bytes came = fetch(each.client, each.about, each.room);
        ASSERT_EQ(came.size(), sizeof answer + each.data);
        std::memcpy(&answer, came.data(), sizeof answer);
        EXPECT_EQ((rc{answer.block.primary_rc, answer.block.secondary_rc}), each.codes);
        EXPECT_EQ(answer.block.pip_len, each.told);
        EXPECT_EQ(answer.header.buf_len, sizeof answer);
        EXPECT_EQ(answer.header.msg_len, came.size());
        EXPECT_EQ(std::string(came.begin() + 160, came.end()), pip.substr(0, each.data));
    }
    EXPECT_EQ(a.codes(plain(CANCEL_CONV, conv)), rc{});
    std::memcpy(&answer, fetch(S, start, 100).data(), sizeof answer);
    EXPECT_EQ((rc{answer.block.primary_rc, answer.block.secondary_rc}), GONE);
    a.send({{.msg_len = 160}, bytes(48), {}});
    EXPECT_TRUE(w.take(a.client, frame_kind::path_failed, a.path));
}

TEST_F(AttachQuery, harms_nobody_with_datagrams_of_any_type_and_length)
{
    serve(S2);
    const u32 conv = converse_with(a, "ECHO");
    const auto start = asked(S2).start_id;
    open(S, 1, ADMITTED);
    std::minstd_rand random;
    for (const frame_kind kind : {frame_kind::datagram, frame_kind::datagram_returned})
        for (const u32 type : {1u, 11u, 19u, 22u, 23u, 139u, 147u, 150u})
            for (u32 length = 0; length <= 140; ++length) {
                bytes content(length);
                for (u8& byte : content)
                    byte = static_cast<u8>(random());
                if (length >= 4) {
                    store(content.data(), 0, static_cast<u16>(length));
                    store(content.data(), 2, static_cast<u16>(type));
                }
                w.feed({.kind = kind, .client = S, .block = content, .rights = ADMITTED});
                while (w.take(S, frame_kind::datagram, 0))
                    ;
            }
    EXPECT_EQ(w.node.counts().unreachable, 0u);
    report(S2, start, 0);
    EXPECT_EQ(take_attach(start), rc{});
    EXPECT_EQ(a.codes(send_data(conv), as_bytes("x")), rc{});
}

}  // namespace
}  // namespace tessaly::node::playing
