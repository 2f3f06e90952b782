// What of an answer reaches the application's block, byte by byte.
#include "tests/support/library_test.h"

#include <cstring>

namespace tessaly::test {

// Where an answer's bytes go: count bytes from one offset of the answer to one of the block.
struct taken {
    u16 to;
    u16 from;
    u16 count;
};

struct result_case {
    const char* name;
    u16 opcode;
    u8 format;
    u8 opext;
    std::vector<taken> parts;
    std::vector<u16> zero_in_answer = {};        // u16 fields that would start something else
    std::vector<u16> full_names_in_answer = {};  // lengths of identifiers that need no unpacking
};

void PrintTo(const result_case& row, std::ostream* out)
{
    *out << row.name;
}

namespace {

// Bytes of the node have the high bit set, those of the application do not.
u8 from_node(u32 offset)
{
    return static_cast<u8>(0x80 | (offset & 0x7F));
}

u8 from_application(u32 offset)
{
    return static_cast<u8>(~offset & 0x7F);
}

// clang-format off
const result_case cases[] = {
    {"CONFIRM", CONFIRM, 0, 0, {{4, 4, 24}}},
    {"CONFIRM_1", CONFIRM, 1, 0, {{4, 4, 24}}},
    {"CONFIRMED", CONFIRMED, 0, 0, {{4, 4, 20}}},
    {"FLUSH", FLUSH, 0, 0, {{4, 4, 20}}},
    {"GET_TYPE", GET_TYPE, 0, 0, {{4, 4, 24}}},
    {"GET_TYPE_1", GET_TYPE, 1, 0, {{4, 4, 24}}},
    {"GET_STATE", GET_STATE, 0, 0, {{4, 4, 24}}},
    {"PREPARE_TO_RECEIVE", PREPARE_TO_RECEIVE, 0, 0, {{4, 4, 24}}},
    {"REQUEST_TO_SEND", REQUEST_TO_SEND, 0, 0, {{4, 4, 20}}},
    {"TEST_RTS", TEST_RTS, 0, 0, {{4, 4, 24}}},
    {"GET_LU_STATUS", GET_LU_STATUS, 0, 0, {{4, 4, 36}}},
    {"CANCEL_CONV", CANCEL_CONV, 0, 0, {{4, 4, 20}}},
    {"TP_ENDED", TP_ENDED, 0, 0, {{4, 4, 20}}},
    {"SEND_DATA", SEND_DATA, 0, 0, {{4, 4, 2}, {8, 8, 4}, {0x18, 0x18, 2}}},
    {"SEND_DATA_1", SEND_DATA, 1, 0, {{4, 4, 2}, {8, 8, 4}, {0x18, 0x18, 2}}},
    {"MC_SEND_DATA", SEND_DATA, 0, 1, {{4, 4, 2}, {8, 8, 4}, {0x18, 0x18, 1}}},
    {"MC_SEND_DATA_1", SEND_DATA, 1, 1, {{4, 4, 2}, {8, 8, 4}, {0x18, 0x18, 2}}},
    {"SEND_ERROR", SEND_ERROR, 0, 0, {{4, 4, 2}, {8, 8, 4}, {0x18, 0x18, 1}, {0x1B, 0x1B, 1}}},
    {"SEND_EXPEDITED_DATA", SEND_EXPEDITED_DATA, 0, 0, {{4, 4, 2}, {8, 8, 4}, {0x18, 0x18, 2}}},
    {"SEND_CONVERSATION", SEND_CONVERSATION, 0, 0, {{4, 4, 2}, {8, 8, 4}, {0x20, 0x20, 4}}},
    {"RECEIVE_AND_WAIT", RECEIVE_AND_WAIT, 0, 0, {{4, 4, 32}, {0x2C, 0x2C, 4}}, {0x20}},
    {"RECEIVE_IMMEDIATE", RECEIVE_IMMEDIATE, 0, 0, {{4, 4, 32}, {0x2C, 0x2C, 4}}, {0x20}},
    {"RECEIVE_AND_POST", RECEIVE_AND_POST, 0, 0, {{4, 4, 32}, {0x2C, 0x2C, 4}}, {0x20}},
    {"RECEIVE_EXPEDITED_DATA", RECEIVE_EXPEDITED_DATA, 0, 0, {{4, 4, 32}}, {0x20}},
    {"TEST_RTS_AND_POST", TEST_RTS_AND_POST, 0, 0, {{4, 4, 24}}},
    {"TEST_RTS_AND_POST_1", TEST_RTS_AND_POST, 1, 0, {{4, 4, 24}}},
    {"DEALLOCATE", DEALLOCATE, 0, 0, {{4, 4, 24}}},
    {"DEALLOCATE_1", DEALLOCATE, 1, 0, {{4, 4, 24}}},
    {"GET_ATTRIBUTES", GET_ATTRIBUTES, 0, 0, {{4, 4, 128}}},
    {"GET_ATTRIBUTES_1", GET_ATTRIBUTES, 1, 0, {{4, 4, 160}}, {}, {0x82}},
    {"GET_TP_PROPERTIES", GET_TP_PROPERTIES, 0, 0, {{4, 4, 152}}, {}, {0x5C}},
    {"GET_TP_PROPERTIES_1", GET_TP_PROPERTIES, 1, 0, {{4, 4, 180}}, {}, {0x5C, 0x9B}},
    {"SET_TP_PROPERTIES", SET_TP_PROPERTIES, 0, 0, {{4, 4, 96}}, {0x14, 0x30}},
    {"ALLOCATE", ALLOCATE, 0, 0, {{4, 4, 25}, {0x26, 0x28, 114}, {0x9C, 0xA0, 28}}},
    {"ALLOCATE_1", ALLOCATE, 1, 0, {{4, 4, 152}, {0xA0, 0xA0, 28}}},
};
// clang-format on

}  // namespace

class results : public library_test, public ::testing::WithParamInterface<result_case> {
protected:
    // Makes a block in which every byte counts, but for its header, its routines and its lengths of data to send.
    verb& patterned(const result_case& row, const tp& of)
    {
        verb& v = make(row.opcode, row.format);
        const u32 size = static_cast<u32>(v.image().size());
        for (u32 i = 4; i < size; ++i)
            v.block()[i] = from_application(i);
        std::copy(of.id.begin(), of.id.end(), v.header().tp_id);
        v.header().opext = row.opext;
        if (row.opcode == SEND_DATA || row.opcode == SEND_EXPEDITED_DATA || row.opcode == DEALLOCATE)
            store<u16>(v.block(), 26, 0);
        if (row.opcode == SEND_ERROR)
            store<u16>(v.block(), 28, 0);
        if (row.opcode == ALLOCATE)
            store<u16>(v.block(), row.format == 0 ? 150 : 152, 0);
        if (row.opcode == SEND_CONVERSATION) {
            store<u16>(v.block(), 152, 0);
            store<u16>(v.block(), 186, 0);
        }
        if (row.opcode == RECEIVE_AND_POST)
            store(v.block(), 0x28, post);
        if (row.opcode == TEST_RTS_AND_POST)
            store(v.block(), 0x1C, post);
        return v;
    }
};

TEST_P(results, take_these_bytes_of_the_answer_and_no_others)
{
    const result_case& row = GetParam();
    const tp running = start_tp();
    verb& v = patterned(row, running);
    const bytes before = v.image();
    reply answer;
    answer.fill = [&](u8* block) {
        for (u32 i = 4; i < 192; ++i)
            block[i] = from_node(i);
        for (const u16 at : row.zero_in_answer)
            store<u16>(block, at, 0);
        for (const u16 at : row.full_names_in_answer)
            block[at] = 17;
    };
    node.answers_once(row.opcode, answer);
    issue(v);
    node.deliver();

    bytes expected = before;
    bytes answered(192);
    std::memcpy(answered.data(), before.data(), 4);
    answer.fill(answered.data());
    for (const taken& part : row.parts)
        std::copy_n(answered.begin() + part.from, part.count, expected.begin() + part.to);
    std::copy(running.id.begin(), running.id.end(), expected.begin() + 12);
    EXPECT_TRUE(same_bytes(v.image(), expected));
    EXPECT_EQ(v.calls.size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(of, results, ::testing::ValuesIn(cases), [](const auto& row) { return row.param.name; });

using starting_verbs = library_test;

TEST_F(starting_verbs, TP_STARTED_returns_92_bytes_and_the_librarys_identifier)
{
    verb& v = make(TP_STARTED);
    const u32 size = static_cast<u32>(v.image().size());
    for (u32 i = 12; i < size; ++i)
        v.block()[i] = from_application(i);
    bytes expected = v.image();
    node.answers_once(TP_STARTED, {.fill = [](u8* block) {
                          for (u32 i = 12; i < 112; ++i)
                              block[i] = from_node(i);
                      }});
    run(v);
    for (u32 i = 12; i < 92; ++i)
        expected[i] = from_node(i);
    store<u32>(expected.data(), 8, 0);
    store<u32>(expected.data(), 20, 0);
    store<u32>(expected.data(), 24, node.last(TP_STARTED).header().src_corr);
    expected[92] = 0;  // the library clears it
    EXPECT_TRUE(same_bytes(v.image(), expected));
}

struct receive_allocate_case {
    u16 opcode;
    u8 format;
    std::vector<taken> parts;
};

TEST_F(starting_verbs, receive_allocate_returns_the_bytes_of_its_format_and_its_own_opcode)
{
    const receive_allocate_case all[] = {
        {RECEIVE_ALLOCATE, 0, {{12, 12, 112}, {0x95, 0x95, 1}, {0x9A, 0x9A, 8}, {0xA2, 0xA2, 2}}},
        {RECEIVE_ALLOCATE, 1, {{12, 12, 152}}},
        {RECEIVE_ALLOCATE_EX, 1, {{12, 12, 152}}},
        {RECEIVE_ALLOCATE_CPIC, 0, {{12, 12, 112}, {0x95, 0x95, 1}, {0x9A, 0x9A, 8}, {0xA2, 0xA2, 2}}},
        {RECEIVE_ALLOCATE_CPIC, 1, {{12, 12, 152}}},
    };
    node.answers(RECEIVE_ALLOCATE, {.fill = [](u8* block) {
                     for (u32 i = 12; i < 192; ++i)
                         block[i] = from_node(i);
                 }});
    for (const receive_allocate_case& row : all) {
        SCOPED_TRACE(::testing::Message() << "opcode 0x" << std::hex << row.opcode << " format " << u32{row.format});
        verb& v = make(row.opcode, row.format);
        const u32 size = static_cast<u32>(v.image().size());
        for (u32 i = 12; i < size; ++i)
            v.block()[i] = from_application(i);
        std::memset(v.block() + 166, 0, 8);  // no attach identifier
        bytes expected = v.image();
        issue(v);
        const u32 handle = announced();
        conversation_ready(handle);
        node.deliver();

        for (const taken& part : row.parts)
            for (u32 i = 0; i < part.count; ++i)
                expected[part.to + i] = from_node(part.from + i);
        store<u32>(expected.data(), 8, 0);
        store<u32>(expected.data(), 76, 0);
        store<u32>(expected.data(), 80, handle);
        EXPECT_TRUE(same_bytes(v.image(), expected));
        EXPECT_EQ(v.calls.size(), 1u);
    }
}

struct identifier_case {
    u8 length;
    const char* name;
};

TEST_F(starting_verbs, packed_identifiers_are_unpacked)
{
    const tp running = start_tp();
    const identifier_case names[] = {{0, ""}, {5, "ABCDE"}, {17, "NETWORK1.LUNAME17"}};
    for (const identifier_case& each : names) {
        bytes packed = {each.length};
        const bytes name = ebcdic(each.name);
        packed.insert(packed.end(), name.begin(), name.end());
        packed.insert(packed.end(), {1, 2, 3, 4, 5, 6, 7, 8});
        bytes fixed = {each.length};
        const bytes padded = ebcdic(each.name, 17);
        fixed.insert(fixed.end(), padded.begin(), padded.end());
        fixed.insert(fixed.end(), {1, 2, 3, 4, 5, 6, 7, 8});

        const auto put = [&packed](u8* at) { std::copy(packed.begin(), packed.end(), at); };
        node.answers_once(GET_ATTRIBUTES, {.fill = [&](u8* block) { put(block + 0x82); }});
        node.answers_once(GET_TP_PROPERTIES, {.fill = [&](u8* block) { put(block + 0x5C), put(block + 0x9B); }});
        node.answers_once(SET_TP_PROPERTIES, {.fill = [&](u8* block) {
                              block[0x14] = block[0x30] = 1;
                              put(block + 0x16), put(block + 0x32);
                          }});
        auto& attributes = run(make_on(running, GET_ATTRIBUTES, CONV_7, 1)).as<appc_get_attributes>();
        auto& got = run(make_on(running, GET_TP_PROPERTIES, 0, 1)).as<appc_get_tp_properties>();
        auto& set = run(make_on(running, SET_TP_PROPERTIES)).as<appc_set_tp_properties>();
        for (const appc_luw_id* id :
             {&attributes.luw_id, &got.luw_id, &got.unprot_luw_id, &set.prot_id, &set.unprot_id})
            EXPECT_TRUE(same_bytes(as_bytes(id, sizeof *id), fixed)) << each.name;
    }
}

TEST_F(starting_verbs, an_identifier_with_an_impossible_length_counts_as_full)
{
    const tp running = start_tp();
    node.answers_once(GET_ATTRIBUTES, {.fill = [](u8* block) { std::memset(block + 0x82, 0xFF, 26); }});
    auto& attributes = run(make_on(running, GET_ATTRIBUTES, CONV_7, 1)).as<appc_get_attributes>();
    EXPECT_EQ(as_bytes(&attributes.luw_id.fq_lu_name, 25), bytes(25, 0xFF));
}

}  // namespace tessaly::test
