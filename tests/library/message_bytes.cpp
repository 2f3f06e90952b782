// What travels to the node for each verb, byte by byte.
#include "tests/support/library_test.h"

#include <cstring>

namespace tessaly::test {

namespace {

// Bytes that differ from their neighbours and from what lies 4 or 8 bytes further.
void fill_with_pattern(verb& v, u32 from)
{
    const u32 size = static_cast<u32>(v.image().size());
    for (u32 i = from; i < size; ++i)
        v.block()[i] = static_cast<u8>(i * 7 + 3);
}

// The block as the library may have copied it: codes cleared, the node's identifier of the TP in its place.
bytes expected_block(verb& v, const tp& of, u32 length)
{
    bytes expected = v.image();
    expected.resize(length);
    expected[4] = expected[5] = 0;
    const auto id = scripted_node::id_of(of.handle);
    std::copy(id.begin(), id.end(), expected.begin() + 12);
    return expected;
}

void set(bytes& block, u32 at, const bytes& value)
{
    std::copy(value.begin(), value.end(), block.begin() + at);
}

}  // namespace

class message_bytes : public library_test {
protected:
    message_bytes() : running_(start_tp()) {}

    // A block whose every byte counts, but for routines and data buffers.
    verb& patterned(u16 opcode, u8 format, u32 size = 0)
    {
        verb& v = make(opcode, format, size);
        fill_with_pattern(v, 20);
        std::copy(running_.id.begin(), running_.id.end(), v.header().tp_id);
        return v;
    }

    tp running_;
};

TEST_F(message_bytes, a_header_names_both_ends_the_verb_and_the_lengths)
{
    verb& v = make_on(running_, SEND_DATA, CONV_7);
    v.as<appc_send_data>().dlen = 5;
    v.as<appc_send_data>().dptr = "hello";
    issue(v);
    const sent_verb& sent = node.last(SEND_DATA);
    verb_message_header expected{};
    expected.owner_link = sent.address;
    expected.dest_corr = scripted_node::corr_of(running_.handle);
    expected.buf_len = 112 + 48;
    expected.msg_len = 112 + 48 + 5;
    expected.kind = 12;
    expected.src_corr = running_.handle;
    expected.code = 0x2001;
    expected.pend_handle = sent.header().pend_handle;
    EXPECT_NE(node.record_of(expected.pend_handle), nullptr);
    EXPECT_TRUE(same_bytes({sent.message.begin(), sent.message.begin() + 112}, as_bytes(&expected, 112)));
    EXPECT_EQ(sent.path, running_.path);
    EXPECT_EQ(sent.data, as_bytes("hello", 5));

    const sent_verb& started = node.last(TP_STARTED);
    EXPECT_EQ(started.header().dest_corr, 0u) << "the node has not named the TP yet";
    EXPECT_EQ(started.header().src_corr, running_.handle);
}

struct plain_message {
    u16 opcode;
    u8 format;
    u32 buf_len;
    u32 length_at;   // of the data that is sent; 0: none
    u32 address_at;  // of its address, or of the receive buffer
};

TEST_F(message_bytes, most_blocks_travel_as_they_are_but_for_addresses)
{
    // clang-format off
    const plain_message messages[] = {
        {CONFIRM, 0, 140, 0, 0}, {CONFIRM, 1, 140, 0, 0},
        {CONFIRMED, 0, 136, 0, 0},
        {FLUSH, 0, 136, 0, 0},
        {GET_ATTRIBUTES, 0, 244, 0, 0}, {GET_ATTRIBUTES, 1, 276, 0, 0},
        {GET_TYPE, 0, 140, 0, 0}, {GET_TYPE, 1, 140, 0, 0},
        {GET_STATE, 0, 140, 0, 0},
        {PREPARE_TO_RECEIVE, 0, 140, 0, 0},
        {RECEIVE_AND_WAIT, 0, 168, 0, 36},
        {RECEIVE_IMMEDIATE, 0, 168, 0, 36},
        {RECEIVE_AND_POST, 0, 168, 0, 36},
        {REQUEST_TO_SEND, 0, 136, 0, 0},
        {SEND_DATA, 0, 160, 26, 28}, {SEND_DATA, 1, 160, 26, 28},
        {SEND_ERROR, 0, 152, 28, 32},
        {SEND_EXPEDITED_DATA, 0, 160, 26, 28},
        {TEST_RTS, 0, 140, 0, 0},
        {GET_TP_PROPERTIES, 0, 268, 0, 0}, {GET_TP_PROPERTIES, 1, 296, 0, 0},
        {CANCEL_CONV, 0, 136, 0, 0},
        {GET_LU_STATUS, 0, 152, 0, 0},
        {IMPLIED_FORGET, 0, 140, 0, 0},
        {TEST_RTS_AND_POST, 0, 144, 0, 0}, {TEST_RTS_AND_POST, 1, 144, 0, 0},
        {RECEIVE_EXPEDITED_DATA, 0, 160, 0, 36},
        {TP_ENDED, 0, 136, 0, 0},  // last: nothing may follow it
    };
    // clang-format on
    node.stays_silent(TP_ENDED);
    char data[] = "some data";
    for (const plain_message& row : messages) {
        SCOPED_TRACE(::testing::Message() << "opcode 0x" << std::hex << row.opcode << " format " << u32{row.format});
        verb& v = patterned(row.opcode, row.format);
        if (row.address_at != 0)
            store<const void*>(v.block(), row.address_at, data);
        if (row.length_at != 0)
            store<u16>(v.block(), row.length_at, sizeof data);
        if (row.opcode == RECEIVE_AND_POST)
            v.as<appc_receive>().callback = post;
        if (row.opcode == TEST_RTS_AND_POST)
            v.as<appc_test_rts_and_post>().callback = post;
        ASSERT_EQ(issue(v).result, VAV_IN_PROGRESS);

        bytes expected = expected_block(v, running_, published(row.opcode)->format[row.format].length);
        if (row.address_at != 0)
            store<u32>(expected.data(), row.address_at, 0);
        const sent_verb& sent = node.last(row.opcode);
        EXPECT_TRUE(same_bytes(sent.block(), in_node_layout(expected)));
        EXPECT_EQ(sent.header().buf_len, row.buf_len);
        EXPECT_EQ(sent.data, row.length_at == 0 ? bytes{} : as_bytes(data, sizeof data));
    }
}

TEST_F(message_bytes, TP_STARTED_asks_for_format_1_and_carries_no_identifier)
{
    verb& v = tp_started();
    v.block()[92] = v.block()[93] = v.block()[94] = v.block()[95] = 0xAB;
    v.as<appc_tp_started>().tp_id[5] = 0x77;
    bytes expected = v.image();
    expected[3] = 1;
    expected[4] = expected[5] = 0;
    set(expected, 92, {0, 1, 1, 0});
    issue(v);
    EXPECT_TRUE(same_bytes(node.last(TP_STARTED).block(), expected));
    EXPECT_EQ(v.image()[3], 0) << "in the application's block the format stays";
    EXPECT_EQ(v.image()[92], 0);
}

TEST_F(message_bytes, ALLOCATE_travels_in_188_bytes_as_format_0)
{
    const char pip[] = "pip data";
    verb& format_1 = patterned(ALLOCATE, 1);
    format_1.as<appc_allocate>().pip_dlen = sizeof pip;
    format_1.as<appc_allocate>().pip_dptr = pip;
    issue(format_1);
    bytes expected = expected_block(format_1, running_, 188);
    expected[3] = 0;
    store<u32>(expected.data(), 156, 0);
    EXPECT_TRUE(same_bytes(node.last(ALLOCATE).block(), in_node_layout(expected)));
    EXPECT_EQ(node.last(ALLOCATE).data, as_bytes(pip, sizeof pip));
    EXPECT_EQ(node.last(ALLOCATE).header().buf_len, 312u);

    verb& format_0 = patterned(ALLOCATE, 0);
    format_0.as<appc_allocate_format_0>().pip_dlen = sizeof pip;
    format_0.as<appc_allocate_format_0>().pip_dptr = pip;
    issue(format_0);
    const bytes source = expected_block(format_0, running_, 184);
    expected.assign(188, 0);
    std::copy_n(source.begin(), 29, expected.begin());
    std::copy_n(source.begin() + 38, 114, expected.begin() + 40);
    std::copy_n(source.begin() + 152, 32, expected.begin() + 156);
    store<u32>(expected.data(), 156, 0);
    EXPECT_TRUE(same_bytes(node.last(ALLOCATE).block(), in_node_layout(expected)));
    EXPECT_EQ(node.last(ALLOCATE).data, as_bytes(pip, sizeof pip));
}

TEST_F(message_bytes, the_second_family_of_entries_promotes_format_0)
{
    verb& v = patterned(ALLOCATE, 0, 188);
    v.as<appc_allocate>().pip_dlen = 0;
    v.as<appc_allocate>().conv_group_id = 0x11223344;
    enter(entry::appc_async1, v);
    EXPECT_EQ(v.header().format, 1);
    EXPECT_EQ(v.as<appc_allocate>().conv_group_id, 0u);
    bytes expected = expected_block(v, running_, 188);
    expected[3] = 0;
    EXPECT_TRUE(same_bytes(node.last(ALLOCATE).block(), in_node_layout(expected)));

    verb& receive = make(RECEIVE_ALLOCATE, 0);
    enter(entry::appc_async_int, receive);
    EXPECT_EQ(receive.header().format, 1);
    verb& plain = make(RECEIVE_ALLOCATE, 0);
    issue(plain);
    EXPECT_EQ(plain.header().format, 0);
}

TEST_F(message_bytes, DEALLOCATE_tells_only_whether_a_forget_routine_is_named)
{
    for (const bool named : {false, true}) {
        verb& format_1 = patterned(DEALLOCATE, 1);
        auto& block = format_1.as<appc_deallocate>();
        block.dlen = 0;
        block.forget_callback = named ? forget : nullptr;
        issue(format_1);
        bytes expected = expected_block(format_1, running_, 36);
        store<u32>(expected.data(), 28, 0);
        set(expected, 32, {u8{named}, 0, 0, 0});
        EXPECT_TRUE(same_bytes(node.last(DEALLOCATE).block(), in_node_layout(expected)));
        EXPECT_EQ(node.last(DEALLOCATE).header().buf_len, 160u);
    }
    verb& format_0 = patterned(DEALLOCATE, 0);
    format_0.as<appc_deallocate>().dlen = 3;
    format_0.as<appc_deallocate>().dptr = "log";
    issue(format_0);
    bytes expected = expected_block(format_0, running_, 32);
    store<u32>(expected.data(), 28, 0);
    EXPECT_TRUE(same_bytes(node.last(DEALLOCATE).block(), in_node_layout(expected)));
    EXPECT_EQ(node.last(DEALLOCATE).header().buf_len, 152u);
    EXPECT_EQ(node.last(DEALLOCATE).data, as_bytes("log", 3));
}

struct two_buffers {
    u16 first;
    u16 second;
    std::vector<u32> parts;
};

TEST_F(message_bytes, SEND_CONVERSATION_has_two_buffers_and_needs_at_most_two_sends)
{
    const two_buffers cases[] = {{0, 0, {0}}, {4, 0, {4}}, {0, 6, {6}}, {4, 6, {4, 6}}};
    for (const two_buffers& each : cases) {
        verb& v = patterned(SEND_CONVERSATION, 0);
        auto& block = v.as<appc_send_conversation>();
        block.pip_dlen = each.first;
        block.pip_dptr = "PIP.";
        block.dlen = each.second;
        block.dptr = "record";
        issue(v);
        bytes expected = expected_block(v, running_, 192);
        store<u32>(expected.data(), 156, 0);
        store<u32>(expected.data(), 188, 0);
        const sent_verb& sent = node.last(SEND_CONVERSATION);
        EXPECT_TRUE(same_bytes(sent.block(), in_node_layout(expected)));
        EXPECT_EQ(sent.header().buf_len, 112u + 208);
        EXPECT_EQ(sent.header().msg_len, 112u + 208 + each.first + each.second);
        EXPECT_EQ(sent.parts, each.parts);
        EXPECT_EQ(sent.data, as_bytes(each.first == 0 ? "record" : "PIP.record", u32{each.first} + each.second));
    }
}

TEST_F(message_bytes, a_null_data_address_sends_no_data)
{
    verb& v = make_on(running_, SEND_DATA, CONV_7);
    v.as<appc_send_data>().dlen = 100;
    issue(v);
    EXPECT_EQ(node.last(SEND_DATA).header().msg_len, 160u);
    EXPECT_TRUE(node.last(SEND_DATA).data.empty());
}

TEST_F(message_bytes, SET_TP_PROPERTIES_packs_the_identifiers_that_are_present)
{
    verb& v = patterned(SET_TP_PROPERTIES, 0);
    auto& block = v.as<appc_set_tp_properties>();
    block.set_prot_id = 1;
    block.prot_id.fq_lu_name_len = 5;
    block.set_unprot_id = 0;
    issue(v);
    const bytes source = expected_block(v, running_, 100);
    bytes expected = source;
    std::copy_n(source.begin() + 40, 8, expected.begin() + 23 + 5);
    std::fill(expected.begin() + 23 + 5 + 8, expected.begin() + 48, u8{0x40});
    EXPECT_TRUE(same_bytes(node.last(SET_TP_PROPERTIES).block(), expected));

    block.set_prot_id = 0;
    block.set_unprot_id = 1;
    block.unprot_id.fq_lu_name_len = 17;
    verb& second = patterned(SET_TP_PROPERTIES, 0);
    std::copy_n(v.block(), 100, second.block());
    issue(second);
    EXPECT_TRUE(same_bytes(node.last(SET_TP_PROPERTIES).block(), expected_block(second, running_, 100)));

    node.expect_assertion("17 >= stp->prot_id.fq_lu_name_len");
    verb& too_long = patterned(SET_TP_PROPERTIES, 0);
    too_long.as<appc_set_tp_properties>().set_prot_id = 1;
    too_long.as<appc_set_tp_properties>().prot_id.fq_lu_name_len = 200;
    too_long.as<appc_set_tp_properties>().set_unprot_id = 0;
    issue(too_long);
    EXPECT_TRUE(same_bytes(node.last(SET_TP_PROPERTIES).block(), expected_block(too_long, running_, 100)));
}

struct user_case {
    const char* user;
    const char* carried;  // ten characters
};

TEST_F(message_bytes, the_internal_SET_TP_PROPERTIES_carries_the_user)
{
    const user_case cases[] = {{"operator", "operator  "}, {"averylongname", "averylongn"}, {"", "          "}};
    for (const user_case& each : cases) {
        node.user_name = each.user;
        const tp started = start_tp();
        bytes expected(100, 0);
        expected[0] = 0x7E;
        const auto id = scripted_node::id_of(started.handle);
        std::copy(id.begin(), id.end(), expected.begin() + 12);
        expected[0x4C] = 1;
        set(expected, 0x4E, ebcdic(each.carried));
        EXPECT_TRUE(same_bytes(node.last(SET_TP_PROPERTIES).block(), expected)) << each.user;
    }
}

}  // namespace tessaly::test
