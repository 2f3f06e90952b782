// What the TP server refuses, and what each of its verbs tells the node, byte for byte.
#include "tests/tp_server/serving.h"

#include "common/runtime_guards.h"
#include "vtpsrv/vtpsmain_dispatch.h"
#include "vtpsrv/vtpsmain_validation.h"

namespace tessaly::test {

namespace {

constexpr rc BAD_HANDLE(PARAMETER_CHECK, SEC_BAD_SERVER_HANDLE);
constexpr u32 NOBODY = 0x999;

bytes slice(verb& of, u32 from, u32 count)
{
    return as_bytes(of.block() + from, count);
}

u32 word(verb& of, u32 at)
{
    return load<u32>(of.block(), at);
}

}  // namespace

class refused : public serving_test {};

// clang-format off
const struct { const char* why; u16 opcode; std::vector<std::pair<u32, bytes>> bytes_at; rc codes; } bad_fields[] = {
    {"no callback",           NAP_REGISTER_TP_SERVER, {{20, {0, 0, 0, 0}}},            {PARAMETER_CHECK, 0x04FF0000}},
    {"events flag 2",         NAP_REGISTER_TP_SERVER, {{16, {2}}},                     {PARAMETER_CHECK, 0x37100000}},
    {"both",                  NAP_REGISTER_TP_SERVER, {{16, {2}}, {20, {0, 0, 0, 0}}}, {PARAMETER_CHECK, 0x04FF0000}},
    {"TP type 0",             NAP_REGISTER_TP,        {{109, {0}}},                    {PARAMETER_CHECK, 0x05FF0000}},
    {"TP type 4",             NAP_REGISTER_TP,        {{109, {4}}},                    {PARAMETER_CHECK, 0x05FF0000}},
    {"TP type and LU alias",  NAP_REGISTER_TP,        {{109, {4}}, {84, {0}}},         {PARAMETER_CHECK, 0x05FF0000}},
    {"LU alias and partner",  NAP_REGISTER_TP,        {{84, {0}}, {92, {0}}},          {PARAMETER_CHECK, 0xB1020000}},
    {"partner",               NAP_REGISTER_TP,        {{92, {0}}},                     {PARAMETER_CHECK, 0xFD010000}},
    {"no TP server's opcode", 0xF10C,                 {},                              {INVALID_VERB, UNTOUCHED}},
    {"opcode below them",     0xF103,                 {},                              {INVALID_VERB, UNTOUCHED}},
};
// clang-format on

TEST_F(refused, for_their_fields_send_nothing_and_leave_nothing)
{
    const u32 server = register_server();
    const holdings before = node.held();
    for (const auto& each : bad_fields)
        for (const bool synchronous : {true, true, false}) {  // twice: the server is not busy after it
            verb& v = make(each.opcode, server);
            for (const auto& [at, values] : each.bytes_at)
                std::ranges::copy(values, v.block() + at);
            v.result = tps_async(v.block(), synchronous ? nullptr : completed, CORR);
            EXPECT_EQ(v.codes(), each.codes) << each.why;
            EXPECT_EQ(v.result, VAV_COMPLETE) << each.why;
            EXPECT_EQ(node.held(), before) << each.why;
        }
    EXPECT_TRUE(node.datagrams.empty() && completion_order.empty());
}

TEST_F(refused, without_a_server_unless_they_report_asynchronously)
{
    for (const u16 opcode : {NAP_UNREGISTER_TP_SERVER, NAP_REGISTER_TP, NAP_UNREGISTER_TP, NAP_QUERY_ATTACH, NAP_START_APPL_OK,
                             NAP_START_APPL_ERR, NAP_APPL_FAILED})
        for (const bool synchronous : {true, false}) {
            const bool reports = !synchronous && (opcode == NAP_START_APPL_ERR || opcode == NAP_APPL_FAILED);
            EXPECT_EQ(enter(synchronous, make(opcode, NOBODY)).codes(), reports ? rc(OK) : BAD_HANDLE) << opcode;
        }
    EXPECT_EQ(node.datagrams.size(), 2u);
    EXPECT_TRUE(completion_order.empty());
}

TEST_F(refused, for_want_of_a_control_block_with_12)
{
    for (u32 nth = 1; nth <= 3; ++nth) {
        node.refuse({}, nth);
        EXPECT_EQ(wait_for(make(NAP_REGISTER_TP_SERVER)).codes(), rc(UNEXPECTED_SYSTEM_ERROR, 12));
        EXPECT_FALSE(is_loaded());
        EXPECT_EQ(node.held(), holdings{});
        node.refuse_nothing();
    }
}

TEST_F(refused, for_want_of_a_record_with_the_errno_of_that_moment)
{
    const u32 server = register_server();
    const holdings before = node.held();
    const auto refuses_each = [&](u16 opcode, u32 calls) {
        for (u32 nth = 1; nth <= calls; ++nth) {
            node.refuse({}, nth);
            EXPECT_EQ(wait_for(make(opcode, server)).codes(), rc(UNEXPECTED_SYSTEM_ERROR, scripted_node::SHORTAGE)) << nth;
            EXPECT_EQ(node.held(), before);
            node.refuse_nothing();
        }
    };
    refuses_each(NAP_REGISTER_TP_SERVER, 5);  // a server with entry and wait object, a verb with its entry
    refuses_each(NAP_REGISTER_TP, 2);
    node.refuse(may_fail::vpm_init_path_user, 1, false, 0x0203);
    EXPECT_EQ(wait_for(make(NAP_REGISTER_TP_SERVER)).codes(), rc(UNEXPECTED_SYSTEM_ERROR, 0x0203));
    EXPECT_EQ(node.held(), before);
}

TEST_F(refused, when_their_datagram_cannot_be_sent)
{
    const u32 server = register_server();
    node.refuse(may_fail::vpm_send_datagram, 1, true, 0xFEDC);
    for (u16 opcode = NAP_REGISTER_TP; opcode <= NAP_APPL_FAILED; ++opcode)
        for (const bool synchronous : {true, false}) {
            verb& v = enter(synchronous, make(opcode, server));
            EXPECT_EQ(v.codes(), rc(UNEXPECTED_SYSTEM_ERROR, 0xFEDC));
            EXPECT_EQ(v.result, VAV_COMPLETE);
        }
}

// clang-format off
const struct { const char* alias; bool valid; } aliases[] = {
    {"        ", true}, {"APPL    ", true}, {"a~!LU001", true}, {"AP PL   ", false}, {"APPL\0\0\0\0", false},
    {"\0\0\0\0\0\0\0\0", false},
    {"LUA\x7F    ", false}, {"LUA\x80    ", false}, {"\xFF       ", false}, {" LUA    ", false}, {"APPLAPP\x1F", false},
};
const struct { const char* name; bool valid; bool asserts = false; } partners[] = {
    {"NETA.LUX", true}, {"NETA.LU*", true}, {"LU*", true}, {"NETA.*", true}, {"*", true}, {".*", true}, {"", true},
    {"ABCDEFGH.IJKLMNO*", true}, {"ABCDEFGHIJKLMNOP*", true}, {"NETA.LU*X", false}, {"NETA.LU* X", false}, {"LUX", false},
    {"*.NETA", false, true}, {"LU*.", false, true}, {"NE-TA.LU*", false}, {"NETA.L-U*", false}, {"L U*", false},
    {"NETA.LU**", false}, {"NETA.", false}, {"NETA.LU.*", false},
};
// clang-format on

TEST_F(refused, are_names_that_are_neither_aliases_nor_partners)
{
    for (const auto& each : aliases)
        EXPECT_EQ(tps_validate_lu_alias(reinterpret_cast<const u8*>(each.alias)), each.valid) << each.alias;
    const process_lock lock;
    for (const auto& each : partners) {
        if (each.asserts)
            node.expect_assertion("star_ptr > point_ptr");
        EXPECT_EQ(tps_validate_wild_fqplu(ebcdic(each.name, 17).data()), each.valid) << each.name;
    }
    EXPECT_EQ(node.broken.back().module, "vtpsmain");
    EXPECT_EQ(node.broken.back().line, 1619u);
    for (u32 type = 0; type < 256; ++type)
        EXPECT_EQ(tps_validate_tp_type(static_cast<u8>(type)), type >= 1 && type <= 3);
}

class telling_the_node : public serving_test {
protected:
    bytes told(verb& v)
    {
        issue(v, appc_async_int);
        const bytes datagram = node.datagrams.back();
        answers_request();
        return datagram;
    }
    bytes start_id(verb& v) { return slice(v, 16, 8); }
    const u32 server = register_server();
};

TEST_F(telling_the_node, what_it_can_start_takes_132_bytes)
{
    // clang-format off
    const struct { u16 opcode, replace; u8 tp_type, on_the_wire; u32 action; } cases[] = {
        {NAP_REGISTER_TP, 0, 3, 1, 1}, {NAP_REGISTER_TP, 2, 1, 2, 1}, {NAP_REGISTER_TP, 1, 2, 3, 2},
        {NAP_UNREGISTER_TP, 1, 9, 0, 3},
    };
    // clang-format on
    for (const auto& each : cases) {
        verb& v = make(each.opcode, server);
        v.as<appc_register_tp>().replace = each.replace;
        v.as<appc_register_tp>().tp_type = each.tp_type;
        const u32 named = each.action == 1 ? 0 : word(v, 16);
        const bytes head = words({132 | 19 << 16, each.action, 0, named, server, 1, word(v, 120), 0});
        const bytes definition = joined({words({word(v, 112)}), slice(v, 84, 8), slice(v, 92, 17), {0x40, each.on_the_wire, 0, 0},
                                         slice(v, 20, 64), {0, 0, 0}});
        EXPECT_TRUE(same_bytes(told(v), joined({head, each.action == 3 ? bytes(100) : definition}))) << each.action;
        EXPECT_EQ(v.codes(), rc(OK));
    }
}

TEST_F(telling_the_node, about_start_requests_takes_16_or_24_bytes)
{
    verb &query = make(NAP_QUERY_ATTACH, server), &ok = make(NAP_START_APPL_OK, server), &err = make(NAP_START_APPL_ERR, server),
         &failed = make(NAP_APPL_FAILED, server);
    EXPECT_TRUE(same_bytes(told(query), joined({words({24 | 22 << 16, 0, 1, 0}), start_id(query)})));
    EXPECT_TRUE(same_bytes(told(ok), joined({words({24 | 22 << 16, 0, 1, 0}), start_id(ok)})));
    EXPECT_TRUE(same_bytes(node.datagrams.back(), joined({words({24 | 139 << 16, 0, 0, 0}), start_id(ok)})));
    EXPECT_TRUE(same_bytes(told(err), joined({words({24 | 139 << 16, 0, 0, word(err, 24)}), start_id(err)})));
    EXPECT_TRUE(same_bytes(told(failed), joined({words({16 | 1 << 16, word(failed, 24)}), start_id(failed)})));
    for (verb* each : {&query, &ok})
        EXPECT_EQ(each->codes(), rc(OK));
    for (verb* each : {&err, &failed})
        EXPECT_EQ(each->result, VAV_COMPLETE);
}

}  // namespace tessaly::test
