// What of an answer reaches the application's block, byte by byte, and whom the callback is told of.
#include "tests/support/library_test.h"

namespace tessaly::test {

namespace {

// Bytes of the node have the high bit set, those of the application do not.
u8 from_node(u32 offset)
{
    return static_cast<u8>(0x80 | (offset & 0x7F));
}

// clang-format off
// Where an answer's bytes go: count bytes from one offset of the answer to one of the block.
struct taken { u16 to, from, count; };
struct result_case { u16 opcode; u8 format; u8 opext; std::vector<taken> parts; };

// The verbs of which not the whole block is taken.
const result_case partial[] = {
    {SEND_DATA,              0, 0, {{4, 4, 2}, {8, 8, 4}, {0x18, 0x18, 2}}},
    {SEND_DATA,              1, 0, {{4, 4, 2}, {8, 8, 4}, {0x18, 0x18, 2}}},
    {SEND_DATA,              0, 1, {{4, 4, 2}, {8, 8, 4}, {0x18, 0x18, 1}}},  // mapped
    {SEND_DATA,              1, 1, {{4, 4, 2}, {8, 8, 4}, {0x18, 0x18, 2}}},
    {SEND_ERROR,             0, 0, {{4, 4, 2}, {8, 8, 4}, {0x18, 0x18, 1}, {0x1B, 0x1B, 1}}},
    {SEND_EXPEDITED_DATA,    0, 0, {{4, 4, 2}, {8, 8, 4}, {0x18, 0x18, 2}}},
    {SEND_CONVERSATION,      0, 0, {{4, 4, 2}, {8, 8, 4}, {0x20, 0x20, 4}}},
    {RECEIVE_AND_WAIT,       0, 0, {{4, 4, 32}, {0x2C, 0x2C, 4}}},
    {RECEIVE_IMMEDIATE,      0, 0, {{4, 4, 32}, {0x2C, 0x2C, 4}}},
    {RECEIVE_AND_POST,       0, 0, {{4, 4, 32}, {0x2C, 0x2C, 4}}},
    {RECEIVE_EXPEDITED_DATA, 0, 0, {{4, 4, 32}}},
    {TEST_RTS_AND_POST,      0, 0, {{4, 4, 24}}},
    {TEST_RTS_AND_POST,      1, 0, {{4, 4, 24}}},
    {DEALLOCATE,             0, 0, {{4, 4, 24}}},
    {DEALLOCATE,             1, 0, {{4, 4, 24}}},
    {ALLOCATE,               0, 0, {{4, 4, 25}, {0x26, 0x28, 114}, {0x9C, 0xA0, 28}}},
    {ALLOCATE,               1, 0, {{4, 4, 152}, {0xA0, 0xA0, 28}}},
};
// clang-format on

std::vector<result_case> all_cases()
{
    std::vector<result_case> all(std::begin(partial), std::end(partial));
    for (const published_verb& row : published_verbs) {
        for (u8 format = 0; format < 2; ++format) {
            const auto is_row = [&](auto& each) { return each.opcode == row.opcode && each.format == format; };
            const bool starts = row.opcode == TP_STARTED || row.opcode == RECEIVE_ALLOCATE || row.opcode >= 0xF100;
            if (row.format[format].length != 0 && !starts && std::ranges::none_of(partial, is_row))
                all.push_back({row.opcode, format, 0, {{4, 4, static_cast<u16>(row.format[format].length - 4)}}});
        }
    }
    return all;
}

// An answer whose every byte counts.
reply bytes_of_the_node(u32 first)
{
    return {.fill = [first](u8* block) {
        for (u32 i = first; i < 192; ++i)
            block[i] = from_node(i);
    }};
}

void take(bytes& block, const std::vector<taken>& parts)
{
    for (const auto& [to, from, count] : parts)
        for (u32 i = 0; i < count; ++i)
            block[to + i] = from_node(from + i);
}

}  // namespace

using results = library_test;

TEST_F(results, are_these_bytes_of_the_answer_and_no_others)
{
    for (const result_case& row : all_cases()) {
        SCOPED_TRACE(::testing::Message() << "opcode 0x" << std::hex << row.opcode << " format " << u32{row.format});
        const tp running = start_tp();
        verb& v = patterned(running, row.opcode, row.format);
        v.header().opext = row.opext;
        bytes expected = v.image();
        node.answers_once(row.opcode, bytes_of_the_node(4));
        EXPECT_EQ(issue(v).codes(), PENDING);
        node.deliver();
        take(expected, row.parts);
        std::ranges::copy(running.id, expected.begin() + 12);
        EXPECT_TRUE(same_bytes(v.image(), expected));
        const u32 conversation = published(row.opcode)->conv_verb ? load<u32>(expected.data(), 20) : 0;
        EXPECT_EQ(v.calls, (std::vector<callback>{{callback::completion, running.id, conversation, CORR}}));
    }
}

TEST_F(results, of_TP_STARTED_are_92_bytes_with_the_librarys_identifier)
{
    verb& v = patterned({bytes(8), 0, 0}, TP_STARTED);
    bytes expected = v.image();
    node.answers_once(TP_STARTED, bytes_of_the_node(12));
    run(v);
    take(expected, {{12, 12, 80}});
    expected[4] = expected[5] = 0;
    store<u32>(expected.data(), 8, 0);
    std::ranges::copy(words({0, node.last(TP_STARTED).header().src_corr}), expected.begin() + 20);
    expected[92] = 0;  // the library clears it
    EXPECT_TRUE(same_bytes(v.image(), expected));
}

TEST_F(results, of_receive_allocate_are_the_bytes_of_its_format_and_its_own_opcode)
{
    const std::vector<taken> format_0 = {{12, 12, 112}, {0x95, 0x95, 1}, {0x9A, 0x9A, 8}, {0xA2, 0xA2, 2}};
    const std::vector<taken> format_1 = {{12, 12, 152}};
    node.answers(RECEIVE_ALLOCATE, bytes_of_the_node(12));
    for (const u16 opcode : {RECEIVE_ALLOCATE, RECEIVE_ALLOCATE_CPIC, RECEIVE_ALLOCATE_EX}) {
        for (u8 format = opcode == RECEIVE_ALLOCATE_EX ? 1 : 0; format < 2; ++format) {
            SCOPED_TRACE(::testing::Message() << "opcode 0x" << std::hex << opcode << " format " << u32{format});
            verb& v = patterned({bytes(8), 0, 0}, opcode, format);
            std::memset(v.block() + 166, 0, 8);  // no attach identifier
            bytes expected = v.image();
            issue(v);
            const u32 handle = announced();
            conversation_ready(handle);
            node.deliver();
            take(expected, format == 0 ? format_0 : format_1);
            expected[4] = expected[5] = 0;
            store<u32>(expected.data(), 8, 0);
            std::ranges::copy(words({0, handle}), expected.begin() + 76);
            EXPECT_EQ(v.codes(), rc(OK));
            EXPECT_TRUE(same_bytes(v.image(), expected));
        }
    }
}

TEST_F(results, hold_identifiers_unpacked_and_one_of_impossible_length_as_it_came)
{
    const tp running = start_tp();
    const bytes tail = {1, 2, 3, 4, 5, 6, 7, 8};
    for (const char* name : {"", "ABCDE", "NETWORK1.LUNAME17", "impossible"}) {
        const bytes length = {name[0] == 'i' ? u8{0xFF} : static_cast<u8>(std::strlen(name))};
        const bytes unpacked = joined({length, ebcdic(name, 17), tail});
        const bytes packed = name[0] == 'i' ? unpacked : joined({length, ebcdic(name), tail});
        const auto put = [&packed](u8* at) { std::ranges::copy(packed, at); };
        node.answers_once(GET_ATTRIBUTES, {.fill = [&](u8* block) { put(block + 0x82); }});
        node.answers_once(GET_TP_PROPERTIES, {.fill = [&](u8* block) { put(block + 0x5C), put(block + 0x9B); }});
        node.answers_once(SET_TP_PROPERTIES, {.fill = [&](u8* block) {
                              block[0x14] = block[0x30] = 1;
                              put(block + 0x16), put(block + 0x32);
                          }});
        const u8* attributes = run(make_on(running, GET_ATTRIBUTES, CONV_7, 1)).block();
        const u8* got = run(make_on(running, GET_TP_PROPERTIES, 0, 1)).block();
        const u8* set = run(make_on(running, SET_TP_PROPERTIES)).block();
        for (const u8* id : {attributes + 0x82, got + 0x5C, got + 0x9B, set + 0x16, set + 0x32})
            EXPECT_TRUE(same_bytes(as_bytes(id, 26), unpacked)) << name;
    }
}

}  // namespace tessaly::test
