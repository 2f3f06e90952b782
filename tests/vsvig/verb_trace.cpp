// The verb trace over the scripted node: what a record holds, when there is one, and where it stands among the events of a verb.
// That every request has one response is checked by the fixture, in all tests of the library.
#include "tests/support/library_test.h"

#include <tessaly/diagnostics.h>

namespace tessaly::test {

namespace {

// clang-format off
// The published table of the trace, typed in by hand. at, at_1: where length and address of the data lie, 0: none.
struct traced_verb { u16 opcode; const char* name; u32 bytes[2]; u32 at[2] = {}; u32 at_1[2] = {}; bool in_responses = false; };

const traced_verb traced_verbs[] = {
    {0x0001, "ALLOCATE", {184, 188}, {0x96, 0x98}, {0x98, 0x9C}, true},
    {0x0003, "CONFIRM", {28, 28}}, {0x0004, "CONFIRMED", {24, 24}},
    {0x0005, "DEALLOCATE", {32, 44}, {0x1A, 0x1C}, {0x1A, 0x1C}, true},
    {0x0006, "FLUSH", {24, 24}}, {0x0007, "GET_ATTRIBUTES", {132, 164}}, {0x0008, "GET_TYPE", {28, 28}},
    {0x0009, "GET_STATE", {28, 28}}, {0x000A, "PREPARE_TO_RECEIVE", {28, 28}},
    {0x000B, "RECEIVE_AND_WAIT", {48, 48}, {0x20, 0x24}, {0x20, 0x24}, true},
    {0x000C, "RECEIVE_IMMEDIATE", {48, 48}, {0x20, 0x24}, {0x20, 0x24}, true},
    {0x000D, "RECEIVE_AND_POST", {48, 48}, {0x20, 0x24}, {0x20, 0x24}, true},
    {0x000E, "REQUEST_TO_SEND", {24, 24}},
    {0x000F, "SEND_DATA", {44, 44}, {0x1A, 0x1C}, {0x1A, 0x1C}},
    {0x0010, "SEND_ERROR", {36, 36}, {0x1C, 0x20}, {0x1C, 0x20}},
    {0x0011, "SEND_EXPEDITED_DATA", {36, 36}, {0x1A, 0x1C}, {0x1A, 0x1C}},
    {0x0012, "TEST_RTS", {28, 28}}, {0x0013, "TP_ENDED", {24, 24}}, {0x0014, "TP_STARTED", {112, 112}},
    {0x0016, "RECEIVE_ALLOCATE", {164, 192}}, {0x0017, "GET_TP_PROPERTIES", {156, 184}},
    {0x0018, "SEND_CONVERSATION", {192, 192}, {0xBA, 0xBC}, {0xBA, 0xBC}},
    {0x0072, "CANCEL_CONV", {24, 24}}, {0x007E, "SET_TP_PROPERTIES", {100, 100}}, {0x007F, "GET_LU_STATUS", {40, 40}},
    {0x0081, "TEST_RTS_AND_POST", {32, 32}},
    {0x0102, "RECEIVE_EXPEDITED_DATA", {40, 40}, {0x20, 0x24}, {0x20, 0x24}, true},
    {0xF100, "RECEIVE_ALLOCATE_CPIC", {200, 200}, {0xC0, 0xC4}, {0xC0, 0xC4}},
    {0xF101, "REGISTER_CPIC_TP", {76, 76}}, {0xF102, "UNREGISTER_CPIC_TP", {76, 76}},
    {0xF103, "RECEIVE_ALLOCATE_EX", {192, 192}},
};

const std::pair<u16, const char*> results[] = {
    {0x0000, "OK"}, {0x0100, "PARAMETER_CHECK"}, {0x0200, "STATE_CHECK"}, {0x02F0, "TP_BUSY"}, {0x0300, "ALLOCATION_ERROR"},
    {0x0310, "ACTIVATION_FAIL_RETRY"}, {0x03F0, "COMMS_SUBSYSTEM_ABENDED"}, {0x0410, "ACTIVATION_FAIL_NO_RETRY"},
    {0x04F0, "COMMS_SUBSYSTEM_NOT_LOADED"}, {0x0500, "DEALLOC_ABEND"}, {0x0510, "LU_SESS_LIMIT_EXCEEDED"},
    {0x0600, "DEALLOC_ABEND_PROG"}, {0x0610, "FUNCTION_NOT_SUPPORTED"}, {0x0700, "DEALLOC_ABEND_SVC"},
    {0x0800, "DEALLOC_ABEND_TIMER"}, {0x0900, "DEALLOC_NORMAL"}, {0x0C00, "PROG_ERROR_NO_TRUNC"}, {0x0D00, "PROG_ERROR_TRUNC"},
    {0x0E00, "PROG_ERROR_PURGING"}, {0x0F00, "CONV_FAILURE_RETRY"}, {0x1000, "CONV_FAILURE_NO_RETRY"},
    {0x1100, "SVC_ERROR_NO_TRUNC"}, {0x11F0, "UNEXPECTED_SYSTEM_ERROR"}, {0x1200, "SVC_ERROR_TRUNC"},
    {0x1300, "SVC_ERROR_PURGING"}, {0x1400, "UNSUCCESSFUL"}, {0x1800, "CNOS_PARTNER_LU_REJECT"},
    {0x1900, "CONVERSATION_TYPE_MIXED"}, {0x2100, "CANCELLED"}, {0x2200, "BACKED_OUT"}, {0x2300, "DUPLEX_TYPE_MIXED"},
    {0xF008, "INVALID_VERB_SEGMENT"}, {0xF015, "STACK_TOO_SMALL"}, {0xFFFF, "INVALID_VERB"},
    {0x0001, "***UNKNOWN RC***"}, {0x2400, "***UNKNOWN RC***"}, {0x5541, "***UNKNOWN RC***"},
};
// clang-format on

std::string at(const char* what, const void* address)
{
    char text[80];
    std::snprintf(text, sizeof text, "---- %s at address %p ----", what, address);
    return text;
}

using calls = std::vector<trace_call>;

calls appended(calls first, const calls& more)
{
    first.insert(first.end(), more.begin(), more.end());
    return first;
}

struct traced : running_tp_test {
    traced() { node.reads_dumps = true; }

    // What is traced meanwhile.
    template <typename Work>
    calls of(Work work)
    {
        node.trace.clear();
        work();
        return std::exchange(node.trace, {});
    }

    calls record(u16 kind, bytes& block)
    {
        // A block of its own, not a byte longer than what may be read.
        const auto exact = std::make_unique<u8[]>(block.size());
        std::ranges::copy(block, exact.get());
        calls written = of([&] { seputrap(kind, exact.get()); });
        for (trace_call& call : written) {
            call.start = call.start == exact.get() ? block.data() : call.start;
            if (call.what == at("Verb Parameter Block", exact.get()))
                call.what = at("Verb Parameter Block", block.data());
        }
        return written;
    }

    // The headlines of what is traced, and "." for each callback.
    std::string story;
    void follow(verb& what)
    {
        what.on_call = [this] { take_headlines(), story += ".\n"; };
    }
    void take_headlines()
    {
        for (const trace_call& call : std::exchange(node.trace, {}))
            for (const char* word : {" request", " = ", " indication"})
                story += call.what.find(word) != std::string::npos ? call.what + "\n" : "";
    }
};

}  // namespace

TEST_F(traced, records_show_headline_block_and_data_of_every_verb)
{
    const bytes data(64, 0x5D);
    for (const traced_verb& verb : traced_verbs)
        for (const u8 format : bytes{0, 1, 7})
            for (const u8 opext : bytes{0, 1, 2, 3})
                for (const u16 kind : std::vector<u16>{1, 2, 9}) {
                    SCOPED_TRACE(testing::Message() << verb.name << " format " << +format << " opext " << +opext << " " << kind);
                    const bool short_send = verb.opcode == SEND_DATA && format == 0 && opext == 1;
                    bytes block(short_send ? 36 : verb.bytes[format == 0 ? 0 : 1], 0xA5);
                    store(block.data(), 0, verb.opcode);
                    block[2] = opext, block[3] = format;
                    store<u16>(block.data(), 4, 0x0900);
                    const u32* field = format == 0 ? verb.at : verb.at_1;
                    const bool entries = verb.opcode == RECEIVE_ALLOCATE_CPIC;
                    if (entries)
                        store<u32>(block.data(), field[0], 1025);  // 65600 bytes, of which 16 bits count
                    else if (field[0] != 0)
                        store<u16>(block.data(), field[0], 64);
                    if (field[0] != 0)
                        store(block.data(), field[1], data.data());

                    const std::string name = std::string((opext & 1) != 0 ? "MC_" : "") + verb.name;
                    calls expected = {{"lock"}, {"sep"},
                        {name + (kind == 1 ? " request" : " response, result = DEALLOC_NORMAL")},
                        {at("Verb Parameter Block", block.data())}, {"dump", block.data(), block}};
                    const calls without_data = appended(expected, {{"unlock"}});
                    if (field[0] != 0 && (kind != 2 || verb.in_responses))
                        expected = appended(expected, {{at("Data", data.data())}, {"dump", data.data(), data}});
                    EXPECT_EQ(record(kind, block), appended(expected, {{"unlock"}}));
                    if (field[0] == 0)
                        continue;
                    entries ? store<u32>(block.data(), field[0], 0x400) : store<u16>(block.data(), field[0], 0);
                    calls empty = record(kind, block);
                    EXPECT_EQ(empty.size(), without_data.size()) << "no data, no line";
                }
}

TEST_F(traced, results_and_unknown_verbs_are_in_words)
{
    for (const auto& [value, name] : results) {
        bytes block(24);
        block[0] = FLUSH;
        store(block.data(), 4, value);
        EXPECT_EQ(record(2, block).at(2).what, std::string("FLUSH response, result = ") + name);
    }
    for (const u16 opcode : std::vector<u16>{0x0000, 0x0002, 0x0015, 0x0080, 0x0103, 0xF104, 0xFFFF}) {
        bytes block = {static_cast<u8>(opcode), static_cast<u8>(opcode >> 8), 0x01, 0x00, 0x00, 0x01};
        EXPECT_EQ(record(1, block), (calls{{"lock"}, {"sep"}, {"***UNKNOWN VERB*** request"},
                                           {at("Verb Parameter Block", block.data())}, {"dump", block.data(), block},
                                           {"unlock"}}));
        EXPECT_EQ(record(2, block).at(2).what, "***UNKNOWN VERB*** response, result = PARAMETER_CHECK");
    }
}

TEST_F(traced, implied_forgets_are_told_in_seven_lines)
{
    const u8 tp_id[] = {0x00, 0x01, 0x9A, 0xFF, 0x10, 0x20, 0x30, 0x40};
    const auto pointer = [](u32 value) { return reinterpret_cast<void*>(value); };
    for (const auto& [type, text] : {std::pair<u16, const char*>{0, "DATA FLOW"}, {1, "UNBIND"}, {2, "FAILURE"},
                                     {3, "UNKNOWN : 0x3"}, {0xFFFF, "UNKNOWN : 0xFFFF"}})
        EXPECT_EQ(of([&, code = type] { seputrap2(pointer(0x1234), 0xABC, 0xFFFFFFFF, tp_id, code, pointer(0x5678)); }),
                  (calls{{"lock"}, {"sep"}, {"IMPLIED_FORGET indication"},
                         {"deallocate vcb at address:    0x1234"}, {"correlator:                   abc"},
                         {"conversation ID:              ffffffff"}, {"TP ID:                        00019AFF 10203040"},
                         {"implied forget type:          " + std::string(text)}, {"application callback address: 0x5678"},
                         {"unlock"}}));
}

TEST_F(traced, the_gate_opens_in_its_order)
{
    bytes block(24);
    const bytes tp_id(8);
    using operation = std::function<void()>;
    for (const operation& write : {operation{[&] { seputrap(1, block.data()); }},
                                   operation{[&] { seputrap2(nullptr, 0, 0, tp_id.data(), 0, nullptr); }}}) {
        trc_api = {};
        ptrc[1] = 0xF7;
        EXPECT_EQ(of(write), (calls{{"init"}})) << "off, and yet prepared";
        EXPECT_EQ(trc_api.initialised, 1);
        EXPECT_EQ(of(write), calls{});

        trc_api = {};
        node.flags_of_trace = 0x08;
        EXPECT_EQ(of(write).at(1), trace_call{"lock"}) << "switched on by the preparation";
        node.flags_of_trace = 0;

        node.trace_file = TRC_NO_FILE;
        EXPECT_EQ(of(write), (calls{{"lock"}})) << "no file: nothing is written, nothing unlocked";
        node.trace_file = 0x7ACE;
        EXPECT_EQ(of(write).back(), trace_call{"unlock"});
    }
}

TEST_F(traced, requests_show_the_block_as_issued_and_responses_precede_the_callback)
{
    verb& sent = make_on(running, SEND_DATA, CONV_7);
    const bytes as_issued = (sent.header().primary_rc = 0x0900, sent.image());
    follow(sent);
    EXPECT_EQ(of([&] { issue(sent); }).at(4).shown, as_issued);
    node.answer(node.last(SEND_DATA), {STATE_CHECK, SEC_SEND_DATA_NOT_SEND_STATE});

    bytes room(100, 0x11);
    verb& receiving = make_on(running, RECEIVE_AND_POST, CONV_7);
    receiving.as<appc_receive>().dptr = room.data();
    receiving.as<appc_receive>().max_len = 100;
    receiving.as<appc_receive>().callback = post;
    receiving.on_call = [&] {
        EXPECT_EQ(node.trace.at(node.trace.size() - 2).shown, bytes(80, 0x22)) << "the data as it came";
        take_headlines(), story += ".\n";
    };
    node.answers(RECEIVE_AND_POST, filled<appc_receive>([](auto& block) { block.dlen = 80; }, bytes(80, 0x22)));
    run(receiving);
    node.deliver();

    verb& busy = make_on(running, 0x0015, CONV_7);
    run(busy);
    issue(make_on({bytes(8), 0, 0}, CONFIRM));
    take_headlines();
    EXPECT_EQ(story, "SEND_DATA response, result = STATE_CHECK\n.\n"
                     "RECEIVE_AND_POST request\nRECEIVE_AND_POST response, result = OK\n.\n"
                     "***UNKNOWN VERB*** request\n***UNKNOWN VERB*** response, result = INVALID_VERB\n"
                     "CONFIRM request\nCONFIRM response, result = PARAMETER_CHECK\n");

    ptrc[1] = 0;
    EXPECT_EQ(of([&] { issue_on(running, FLUSH), node.answer(node.last(FLUSH)); }), calls{}) << "off: no call";
}

TEST_F(traced, responses_show_no_more_than_was_issued_whatever_the_node_says)
{
    const struct { u16 opcode; u32 length_at, room_at, address_at, block_bytes; } verbs_with_data[] = {
        {RECEIVE_AND_WAIT, 32, 30, 36, 48}, {RECEIVE_EXPEDITED_DATA, 32, 30, 36, 40}, {DEALLOCATE, 26, 26, 28, 32},
        {ALLOCATE, 152, 150, 152, 184},
    };
    for (const auto& each : verbs_with_data) {
        SCOPED_TRACE(each.opcode);
        const auto data = std::make_unique<u8[]>(10);
        verb& v = make_on(running, each.opcode, CONV_7);
        store<u16>(v.block(), each.room_at, 10);
        store(v.block(), each.address_at, data.get());
        issue(v);
        const calls shown = of([&] {
            node.answer(node.last(each.opcode), {.fill = [&](u8* block) {
                block[3] = each.opcode == ALLOCATE;  // the other layout
                store<u16>(block, each.length_at, 0xFFFF);
            }, .data = bytes(10)});
        });
        EXPECT_EQ(v.completions(), 1);
        EXPECT_EQ(shown.at(4).shown.size(), each.block_bytes);
        EXPECT_EQ(shown.at(6).start, data.get());
        EXPECT_EQ(shown.at(6).shown.size(), 10u);
    }
}

TEST_F(traced, implied_forgets_precede_their_callback)
{
    verb& ending = make_on(running, DEALLOCATE, CONV_7, 1);
    ending.as<appc_deallocate>().forget_callback = forget;
    ending.as<appc_deallocate>().forget_value = 0x1234;
    follow(ending);
    node.trace.clear();
    issue(ending);
    node.answer(node.last(DEALLOCATE));
    ASSERT_EQ(story, "DEALLOCATE request\nDEALLOCATE response, result = OK\n.\n");
    node.loses_path(running.path);
    EXPECT_EQ(story, "DEALLOCATE request\nDEALLOCATE response, result = OK\n.\nIMPLIED_FORGET indication\n.\n");
}

}  // namespace tessaly::test
