// TP_STARTED: the LU alias map, decorated names, the way from node to node.
#include "tests/support/library_test.h"

#include <cstring>

namespace tessaly::test {

class tp_start : public library_test {
protected:
    // What travels for a TP_STARTED of this alias; empty when it is refused.
    std::string alias_sent(const char* alias)
    {
        const u32 before = node.count(TP_STARTED);
        verb& v = run(tp_started("ECHO", alias));
        if (node.count(TP_STARTED) == before) {
            EXPECT_EQ(v.codes(), rc(PARAMETER_CHECK, SEC_LU_ALIAS_BARRED));
            return {};
        }
        EXPECT_EQ(v.codes(), rc(OK));
        const bytes block = node.last(TP_STARTED).block();
        return {block.begin() + 12, block.begin() + 20};
    }

    bytes name_sent(const bytes& name)
    {
        verb& v = tp_started();
        std::copy(name.begin(), name.end(), v.as<appc_tp_started>().tp_name);
        run(v);
        const bytes block = node.last(TP_STARTED).block();
        return {block.begin() + 28, block.begin() + 92};
    }
};

struct alias_case {
    const char* why;
    std::string map;
    const char* alias;
    const char* sent;  // "" when barred
};

TEST_F(tp_start, follows_the_lu_alias_map)
{
    std::string long_map = "+\n";
    for (int line = 1; line <= 256; ++line)
        long_map += "NOMATCH  NOMATCH\n";
    // clang-format off
    const alias_case cases[] = {
        {"no map", "", "LUA", "LUA     "},
        {"an exact entry", "LUA      LUB\n", "LUA", "LUB     "},
        {"an exact entry that bars", "LUA      -\n", "LUA", ""},
        {"only the whole alias matches exactly", "LUA      LUB\n", "LUA1", "LUA1    "},
        {"a wildcard keeps the rest", "APPL*    PROD*\n", "APPL01", "PROD01  "},
        {"a shorter replacement is padded", "APPL*    P*\n", "APPL01", "P01     "},
        {"a longer one cuts the rest", "A*       LONGER*\n", "ABCDEFGH", "LONGERBC"},
        {"a replacement without wildcard", "APPL*    FIXED\n", "APPL01", "FIXED   "},
        {"a wildcard that bars", "TEST*    -\n", "TEST7", ""},
        {"the wildcard matches an empty rest", "LUA*     LUB*\n", "LUA", "LUB     "},
        {"a lone star matches all", "*        DEFAULT\n", "ANY", "DEFAULT "},
        {"a lone star that bars the rest", "LUA      LUA\n*        -\n", "LUA", "LUA     "},
        {"... for another alias", "LUA      LUA\n*        -\n", "LUB", ""},
        {"the first match decides", "LU*      ONE\nLUA      TWO\n", "LUA", "ONE     "},
        {"a dash with more behind it does not bar", "LUA      -X\n", "LUA", "-X      "},
        {"a first line of + is no entry", "+\n", "+", "+       "},
        {"a later one is", "LUX      LUY\n+        LUP\n", "+", "LUP     "},
        {"an empty line maps the blank alias", "LUX      LUY\n\n*        SEEN\n", "", "        "},
        {"a short line maps to blanks", "LUA\n*        SEEN\n", "LUA", "        "},
        {"a carriage return belongs to the line", "LUA\r\n*        SEEN\n", "LUA", "SEEN    "},
        {"the last line needs no newline", "LUA      LUB", "LUA", "LUB     "},
        {"what follows column 17 is ignored", "LUA      LUB     comment\n", "LUA", "LUB     "},
        {"the separator may be anything", "LUA     =LUB\n", "LUA", "LUB     "},
        {"the 256th entry is read", long_map.substr(0, long_map.size() - 17) + "LUA      LUB\n", "LUA", "LUB     "},
        {"the 257th is not", long_map + "LUA      LUB\n", "LUA", "LUA     "},
    };
    // clang-format on
    for (const alias_case& each : cases) {
        stop_library();
        write_file("lualiasmap.txt", each.map);
        EXPECT_EQ(alias_sent(each.alias), each.sent) << each.why;
    }
}

TEST_F(tp_start, logs_a_barred_alias_and_keeps_nothing)
{
    write_file("lualiasmap.txt", "*        -\n");
    issue(make(REGISTER_CPIC_TP));
    const holdings before = node.held();
    run(tp_started("ECHO"));
    const log_record* log = node.logged(207);
    ASSERT_NE(log, nullptr);
    EXPECT_EQ(log->kind, 'p');
    EXPECT_EQ(log->id, 0x20010004u);
    EXPECT_EQ(log->descriptor, "x lx es");
    EXPECT_EQ(log->numbers, (std::vector<u32>{PARAMETER_CHECK, SEC_LU_ALIAS_BARRED}));
    EXPECT_EQ(log->strings, std::vector<bytes>{ebcdic("ECHO", 64)});
    EXPECT_EQ(node.held().entries, before.entries);
    EXPECT_EQ(node.held().handles, before.handles);
}

struct name_case {
    const char* why;
    bool ipv4_file, host_file;
    const char* host;
    std::string name;
    const char* sent;
    const char* left_behind;  // ASCII that stays behind the blank
};

TEST_F(tp_start, decorates_the_name_as_the_option_files_say)
{
    const std::string n47(47, 'N'), n48(48, 'N'), n60(60, 'N'), n55(55, 'N'), n56(56, 'N');
    const name_case cases[] = {
        {"no option", false, false, "box", "MYTP", "MYTP", ""},
        {"the address", true, false, "box", "MYTP", "MYTP_10.1.2.3", ""},
        {"the address wins", true, true, "box", "MYTP", "MYTP_10.1.2.3", ""},
        {"the host name, its hyphen included", false, true, "my-host", "MYTP", "MYTP%my-host", ""},
        {"a name that EBCDIC cannot hold is cut", false, true, "my_host", "MYTP", "MYTP%my", "host"},
        {"room for the address", true, false, "box", n47, "", ""},
        {"no room for it", true, false, "box", n48, "", ""},
        {"room for the host", false, true, "my-host", n55, "", ""},
        {"no room for it", false, true, "my-host", n56, "", ""},
        {"a long name", true, true, "box", n60, "", ""},
    };
    node.address = 0x0302010A;
    for (const name_case& each : cases) {
        std::string sent = each.sent;
        if (sent.empty())
            sent = each.name + (each.name == n47 ? "_10.1.2.3" : each.name == n55 ? "%my-host" : "");
        bytes expected = ebcdic(sent.c_str(), 64);
        const u32 behind = static_cast<u32>(sent.size()) + 1;
        for (u32 i = 0; i <= std::strlen(each.left_behind) && *each.left_behind != '\0'; ++i)
            expected[behind + i] = static_cast<u8>(each.left_behind[i]);

        stop_library();
        std::strcpy(BoxName, each.host);
        remove_file("tpnameipv4");
        remove_file("tpnamehost");
        if (each.ipv4_file)
            write_file("tpnameipv4", "");
        if (each.host_file)
            write_file("tpnamehost", "");
        EXPECT_TRUE(same_bytes(name_sent(ebcdic(each.name.c_str(), 64)), expected)) << each.why << ": " << each.name;
    }
}

TEST_F(tp_start, a_zero_byte_ends_the_name_too_and_an_unknown_host_leaves_it)
{
    bytes name = ebcdic("MYTP", 64);
    name[4] = 0;
    write_file("tpnameipv4", "");
    EXPECT_EQ(name_sent(name), name) << "the host has no address";
    stop_library();
    node.address = 0x0302010A;
    EXPECT_EQ(name_sent(name), ebcdic("MYTP_10.1.2.3", 64));
}

TEST_F(tp_start, reports_the_new_tp)
{
    node.answers_once(TP_STARTED, filled<appc_tp_started>([](appc_tp_started& block) {
                          std::memcpy(block.lu_alias, "LUREAL  ", 8);
                          std::memset(block.fq_lu_name, 0xC1, 17);
                      }));
    const tp running = start_tp("ECHO");
    const log_record* log = node.logged(213);
    ASSERT_NE(log, nullptr);
    EXPECT_EQ(log->kind, 'a');
    EXPECT_EQ(log->id, 0x20010008u);
    EXPECT_EQ(log->descriptor, "ba es ca es");
    EXPECT_EQ(log->strings,
              (std::vector<bytes>{running.id, ebcdic("ECHO", 64), as_bytes("LUREAL  ", 8), bytes(17, 0xC1)}));
    EXPECT_EQ(as_bytes(running.id.data(), 4), bytes(4, 0));
    ptrc[8] = 0x02;
    node.logs.clear();
    start_tp();
    EXPECT_TRUE(node.logs.empty()) << "audits are off";
}

TEST_F(tp_start, a_refusing_node_sends_it_to_the_next_one)
{
    node.nodes = {1, 2, 3};
    node.answers_once(TP_STARTED, {.primary = STATE_CHECK, .secondary = 0x11});
    node.answers_once(TP_STARTED, {.primary = STATE_CHECK, .secondary = 0x22});
    const tp running = start_tp();
    EXPECT_EQ(node.paths.at(running.path).node, 3u);
    EXPECT_EQ(node.count(TP_STARTED), 3u);
    EXPECT_EQ(node.held().paths, 1u) << "the paths to the others are closed";
    EXPECT_EQ(node.last(TP_STARTED).header().dest_corr, 0u) << "no node's name for the TP is carried to another node";
}

TEST_F(tp_start, the_last_nodes_refusal_is_the_verbs_result)
{
    node.nodes = {1, 2};
    node.answers(TP_STARTED, {.primary = STATE_CHECK, .secondary = 0x33});
    verb& v = run(tp_started());
    EXPECT_EQ(v.codes(), rc(STATE_CHECK, 0x33));
    ASSERT_NE(node.logged(207), nullptr);
    EXPECT_EQ(node.held().entries, 0u);
    EXPECT_EQ(node.held().paths, 0u);
    verb& asynchronous = issue(tp_started());
    node.deliver();
    EXPECT_EQ(asynchronous.codes(), rc(STATE_CHECK, 0x33));
    EXPECT_EQ(asynchronous.calls.size(), 1u);
    EXPECT_EQ(node.held().entries, 0u);
}

TEST_F(tp_start, a_lost_path_sends_it_to_the_next_node_until_there_is_none)
{
    node.nodes = {1, 2};
    node.stays_silent(TP_STARTED);
    verb& v = tp_started();
    node.while_asleep([&] { node.loses_path(node.sent.back().path); });
    node.while_asleep([&] {
        EXPECT_EQ(node.paths.at(node.sent.back().path).node, 2u);
        node.loses_path(node.sent.back().path);
    });
    run(v);
    EXPECT_EQ(v.codes(), rc(PARAMETER_CHECK, SEC_NODE_NOT_FOUND));
    EXPECT_EQ(node.count(TP_STARTED), 2u);
    EXPECT_EQ(node.held().entries, 0u);
}

TEST_F(tp_start, a_path_lost_before_the_sleeper_wakes_does_not_start_it_again)
{
    node.stays_silent(TP_STARTED);
    node.while_asleep([&] {
        node.answer(node.sent.back());
        node.loses_path(node.sent.back().path);
    });
    EXPECT_EQ(run(tp_started()).codes(), rc(OK));
    EXPECT_EQ(node.count(TP_STARTED), 1u);
}

TEST_F(tp_start, a_path_lost_during_SET_TP_PROPERTIES_starts_it_again)
{
    node.nodes = {1, 2};
    node.stays_silent(SET_TP_PROPERTIES);
    verb& v = issue(tp_started());
    node.deliver();
    node.answers(SET_TP_PROPERTIES);
    node.loses_path(node.last(SET_TP_PROPERTIES).path);
    EXPECT_EQ(v.codes(), rc(OK));
    EXPECT_EQ(v.calls.size(), 1u);
    EXPECT_EQ(node.count(TP_STARTED), 2u);
    EXPECT_EQ(node.last(TP_STARTED).header().dest_corr, 0u) << "the new node has not named the TP yet";
    EXPECT_EQ(node.count(SET_TP_PROPERTIES), 2u);
    node.answers(CONFIRM);
    EXPECT_EQ(run(make_on(tp_of(v), CONFIRM, CONV_7)).codes(), rc(OK)) << "the TP is as good as any";
}

TEST_F(tp_start, takes_no_verbs_before_it_has_completed)
{
    node.stays_silent(TP_STARTED);
    node.stays_silent(SET_TP_PROPERTIES);
    verb& v = issue(tp_started());
    tp early{bytes(8, 0), node.last(TP_STARTED).header().src_corr, 0};
    store(early.id.data(), 4, early.handle);
    for (const u16 answered : {TP_STARTED, SET_TP_PROPERTIES}) {
        for (const u16 opcode : {CONFIRM, TP_ENDED})
            EXPECT_EQ(issue(make_on(early, opcode)).codes(), rc(PARAMETER_CHECK, SEC_BAD_TP_ID)) << answered;
        node.answer(node.last(answered));
    }
    EXPECT_EQ(v.codes(), rc(OK));
    EXPECT_EQ(v.calls.size(), 1u);
}

TEST_F(tp_start, can_be_cancelled_before_its_answer_and_before_that_to_SET_TP_PROPERTIES)
{
    for (u32 way = 0; way < 4; ++way) {
        const bool synchronous = way % 2 != 0;
        node.answers(TP_STARTED);
        node.stays_silent(way < 2 ? TP_STARTED : SET_TP_PROPERTIES);
        verb& v = tp_started();
        verb& cancel = make(CANCEL_CONV);
        if (synchronous) {
            node.while_asleep([&] { run(cancel); });
            run(v);
        } else {
            issue(v);
            node.deliver();
            run(cancel);
            EXPECT_EQ(v.calls.size(), 1u);
        }
        EXPECT_EQ(cancel.codes(), rc(OK, UNTOUCHED));
        EXPECT_EQ(v.codes(), rc(CANCELLED)) << way;
        EXPECT_EQ(node.held().entries, 0u);
        EXPECT_EQ(node.held().paths, 0u);
    }
}

}  // namespace tessaly::test
