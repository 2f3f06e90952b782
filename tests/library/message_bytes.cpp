// What travels to the node for each verb, byte by byte.
#include "tests/support/library_test.h"

namespace tessaly::test {

struct message_bytes : running_tp_test {
    // The block as the library may have copied it: codes cleared, the node's identifier of the TP in its place.
    bytes expected_block(const verb& v, u32 length) const
    {
        bytes expected = v.image();
        expected.resize(length);
        expected[4] = expected[5] = 0;
        std::ranges::copy(node.id_of(running.handle), expected.begin() + 12);
        return expected;
    }

    // expected: in the caller's layout.
    const sent_verb& has_travelled(u16 opcode, const bytes& expected, const std::string& data = "") const
    {
        const sent_verb& sent = node.last(opcode);
        EXPECT_TRUE(same_bytes(sent.block(), converted(expected, layout::node)));
        EXPECT_EQ(std::string(sent.data.begin(), sent.data.end()), data);
        return sent;
    }
};

TEST_F(message_bytes, a_header_names_both_ends_the_verb_and_the_lengths)
{
    EXPECT_EQ(node.last(TP_STARTED).header().dest_corr, 0u) << "the node has not named the TP yet";
    EXPECT_EQ(node.last(TP_STARTED).header().src_corr, running.handle);
    verb& v = make_on(running, SEND_DATA, CONV_7);
    v.as<appc_send_data>().dlen = 5;
    v.as<appc_send_data>().dptr = "hello";
    issue(v);
    const sent_verb& sent = node.last(SEND_DATA);
    verb_message_header expected{};
    expected.owner_link = sent.address;
    expected.dest_corr = node.corr_of(running.handle);
    expected.buf_len = 112 + 48;
    expected.msg_len = 112 + 48 + 5;
    expected.kind = 12;
    expected.src_corr = running.handle;
    expected.code = 0x2001;
    expected.pend_handle = node.handles.rbegin()->first;
    EXPECT_TRUE(same_bytes({sent.message.begin(), sent.message.begin() + 112}, as_bytes(&expected, 112)));
    EXPECT_EQ(sent.path, running.path);
    v.as<appc_send_data>().dptr = nullptr;
    issue(v);
    EXPECT_EQ(node.last(SEND_DATA).header().msg_len, 112u + 48) << "a null address sends no data";
}

TEST_F(message_bytes, most_blocks_travel_as_they_are_but_for_addresses)
{
    constexpr u16 others[] = {ALLOCATE, TP_STARTED, RECEIVE_ALLOCATE, SEND_CONVERSATION};
    const std::string data = "some data";
    for (const published_verb& row : published_verbs) {
        for (u8 format = 0; format < 2; ++format) {
            const auto& [length, node_length, pointer, pointer_2] = row.format[format];
            if (length == 0 || row.opcode >= 0xF100 || std::ranges::count(others, row.opcode) != 0)
                continue;
            SCOPED_TRACE(::testing::Message() << "opcode 0x" << std::hex << row.opcode << " format " << u32{format});
            // Another TP each time, for one of the verbs is TP_ENDED.
            running = start_tp();
            const bool sends = pointer != 0 && pointer != 0x24;  // where receive verbs have their buffer
            verb& v = patterned(running, row.opcode, format);
            if (pointer != 0)
                store(v.block(), pointer, data.data());
            if (sends)
                store<u16>(v.block(), row.opcode == SEND_ERROR ? 28 : 26, 9);
            EXPECT_EQ(issue(v).codes(), PENDING);
            bytes expected = expected_block(v, length);
            if (pointer != 0)
                store<u32>(expected.data(), pointer, 0);
            if (row.opcode == DEALLOCATE && format == 1)
                store<u32>(expected.data(), 32, 1);  // that a forget routine is named, not which
            EXPECT_EQ(has_travelled(row.opcode, expected, sends ? data : "").header().buf_len, 112u + node_length);
        }
    }
    issue(make_on(running, DEALLOCATE, CONV_7, 1));  // names none
    EXPECT_EQ(node.last(DEALLOCATE).block()[40], 0);
}

TEST_F(message_bytes, TP_STARTED_asks_for_format_1_and_carries_no_identifier)
{
    verb& v = tp_started();
    store<u32>(v.block(), 92, 0xABABABAB);
    v.as<appc_tp_started>().tp_id[5] = 0x77;
    bytes expected = v.image();
    expected[3] = 1;
    expected[4] = expected[5] = 0;
    store<u32>(expected.data(), 92, 0x00010100);
    issue(v);
    has_travelled(TP_STARTED, expected);
    EXPECT_EQ(v.image()[3], 0) << "in the application's block the format stays";
    EXPECT_EQ(v.image()[92], 0);
}

TEST_F(message_bytes, ALLOCATE_travels_in_188_bytes_as_format_0_and_the_second_family_of_entries_promotes_it)
{
    verb& promoted = patterned(running, ALLOCATE, 0, 188);
    issue(promoted, appc_async1);
    EXPECT_EQ(promoted.header().format, 1);
    EXPECT_EQ(promoted.as<appc_allocate>().conv_group_id, 0u);
    bytes expected = expected_block(promoted, 188);
    expected[3] = 0;
    store<u32>(expected.data(), 156, 0);
    has_travelled(ALLOCATE, expected);

    verb& format_0 = patterned(running, ALLOCATE, 0);
    format_0.as<appc_allocate_format_0>().rtn_ctl = 0x55;
    format_0.as<appc_allocate_format_0>().pip_dlen = 4;
    format_0.as<appc_allocate_format_0>().pip_dptr = "data";
    issue(format_0);
    const bytes source = expected_block(format_0, 184);
    expected.assign(188, 0);
    std::copy_n(source.begin(), 29, expected.begin());
    std::copy_n(source.begin() + 38, 114, expected.begin() + 40);
    std::copy_n(source.begin() + 156, 28, expected.begin() + 160);
    has_travelled(ALLOCATE, expected, "data");

    node.answers(ALLOCATE, {.primary = STATE_CHECK});
    EXPECT_EQ(run(patterned(running, ALLOCATE, 0, 188), appc_c1).header().format, 1);
    EXPECT_EQ(issue(make(RECEIVE_ALLOCATE, 0), appc_async_int).header().format, 1);
    EXPECT_EQ(issue(make(RECEIVE_ALLOCATE, 0)).header().format, 0);
}

TEST_F(message_bytes, SEND_CONVERSATION_has_two_buffers_and_needs_at_most_two_sends)
{
    for (const auto& [first, second] : {std::pair<u16, u16>{0, 0}, {4, 0}, {0, 6}, {4, 6}}) {
        verb& v = patterned(running, SEND_CONVERSATION);
        auto& block = v.as<appc_send_conversation>();
        block.pip_dlen = first;
        block.pip_dptr = "PIP.";
        block.dlen = second;
        block.dptr = "record";
        issue(v);
        bytes expected = expected_block(v, 192);
        store<u32>(expected.data(), 156, 0);
        store<u32>(expected.data(), 188, 0);
        const std::string data = std::string("PIP.", first) + std::string("record", second);
        EXPECT_EQ(has_travelled(SEND_CONVERSATION, expected, data).parts.size(), first != 0 && second != 0 ? 2u : 1u);
    }
}

TEST_F(message_bytes, SET_TP_PROPERTIES_packs_the_identifiers_that_are_present)
{
    const std::pair<u32, const char*> identifiers[] = {{22, "17 >= stp->prot_id.fq_lu_name_len"},
                                                       {50, "17 >= stp->unprot_id.fq_lu_name_len"}};
    for (const auto& [at, too_long] : identifiers) {
        verb& v = patterned(running, SET_TP_PROPERTIES);
        store<u16>(v.block(), at - 2, 1);
        v.block()[at] = 5;
        issue(v);
        bytes expected = expected_block(v, 100);
        std::copy_n(v.image().begin() + at + 18, 8, expected.begin() + at + 1 + 5);
        std::fill_n(expected.begin() + at + 1 + 5 + 8, 12, u8{0x40});
        has_travelled(SET_TP_PROPERTIES, expected);
        v.block()[at] = 200;
        node.expect_assertion(too_long);
        issue(v);
        has_travelled(SET_TP_PROPERTIES, expected_block(v, 100));
    }
}

TEST_F(message_bytes, the_internal_SET_TP_PROPERTIES_carries_the_user)
{
    const char* const users[][2] = {{"operator", "operator  "}, {"averylongname", "averylongn"}, {"", "          "}};
    for (const auto& [user, carried] : users) {
        node.user_name = user;
        const bytes id = node.id_of(start_tp().handle);
        bytes expected = joined({words({0x7E, 0, 0}), id, bytes(80)});
        expected[0x4C] = 1;
        std::ranges::copy(ebcdic(carried), expected.begin() + 0x4E);
        has_travelled(SET_TP_PROPERTIES, expected);
    }
}

}  // namespace tessaly::test
