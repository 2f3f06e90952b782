// TP_STARTED: the LU alias map, decorated names, the way from node to node.
#include "tests/support/library_test.h"

namespace tessaly::test {

struct tp_start : library_test {
    // How the field of a TP_STARTED travels; empty when the verb is refused.
    bytes sent_of(verb& v, u32 at, u32 count)
    {
        const size_t before = node.count(TP_STARTED);
        run(v);
        const bool sent = node.count(TP_STARTED) != before;
        EXPECT_EQ(v.codes(), sent ? rc(OK) : rc(PARAMETER_CHECK, SEC_LU_ALIAS_BARRED));
        const bytes block = sent ? node.last(TP_STARTED).block() : bytes(at + count);
        return sent ? bytes(block.begin() + at, block.begin() + at + count) : bytes{};
    }
};

TEST_F(tp_start, follows_the_lu_alias_map)
{
    std::string long_map = "+\n";
    for (int line = 1; line <= 255; ++line)
        long_map += "NOMATCH  NOMATCH\n";
    // clang-format off
    const struct { const char* why; std::string map; const char* alias; std::string sent; } cases[] = {  // sent "": barred
        {"no entry",                                 "",                                        "LUA",      "LUA     "},
        {"an exact entry",                           "LUA      LUB\n",                          "LUA",      "LUB     "},
        {"an exact entry that bars",                 "LUA      -\n",                            "LUA",      ""},
        {"only the whole alias matches exactly",     "LUA      LUB\n",                          "LUA1",     "LUA1    "},
        {"a wildcard keeps the rest",                "APPL*    PROD*\n",                        "APPL01",   "PROD01  "},
        {"a shorter replacement is padded",          "APPL*    P*\n",                           "APPL01",   "P01     "},
        {"a longer one cuts the rest",               "A*       LONGER*\n",                      "ABCDEFGH", "LONGERBC"},
        {"a wildcard that bars",                     "TEST*    -\n",                            "TEST7",    ""},
        {"a lone star matches all",                  "*        DEFAULT\n",                      "ANY",      "DEFAULT "},
        {"a lone star that bars the rest",           "LUA      LUA\n*        -\n",              "LUA",      "LUA     "},
        {"... for another alias",                    "LUA      LUA\n*        -\n",              "LUB",      ""},
        {"the first match decides",                  "LU*      ONE\nLUA      TWO\n",            "LUA",      "ONE     "},
        {"a dash with more behind it does not bar",  "LUA      -X\n",                           "LUA",      "-X      "},
        {"a first line of + is no entry",            "+\n",                                     "+",        "+       "},
        {"a later one is, and maps to blanks",       "LUX      LUY\n+\n*        SEEN\n",        "+",        "        "},
        {"an empty line maps the blank alias",       "LUX      LUY\n\n*        SEEN\n",         "",         "        "},
        {"a carriage return belongs to the line",    "LUA\r\n*        SEEN\n",                  "LUA",      "SEEN    "},
        {"the last line needs no newline",           "LUA      LUB",                            "LUA",      "LUB     "},
        {"any separator, and whatever follows",      "LUA     =LUB     comment\n",             "LUA",      "LUB     "},
        {"an alias may hold a star itself",          "LU*      ONE*\n",                         "LU*",      "ONE*    "},
        {"the 256th entry is read",                  long_map + "LUA      LUB\n",               "LUA",      "LUB     "},
        {"the 257th is not",                         long_map + "NOMATCH\nLUA      LUB\n",      "LUA",      "LUA     "},
    };
    // clang-format on
    for (const auto& each : cases) {
        restart_with({{"lualiasmap.txt", each.map}});
        const bytes sent = sent_of(tp_started("ECHO", each.alias), 12, 8);
        EXPECT_EQ(std::string(sent.begin(), sent.end()), each.sent) << each.why;
        const log_record barred{'p', 0x20010004, 207, "x lx es", {PARAMETER_CHECK, SEC_LU_ALIAS_BARRED}, {ebcdic("ECHO", 64)}};
        EXPECT_TRUE(each.sent != "" || (node.logs.back() == barred && node.held_by_tps() == 0)) << each.why;
    }
}

TEST_F(tp_start, decorates_the_name_as_the_option_files_say)
{
    const std::pair<std::string, std::string> ipv4{"tpnameipv4", ""}, host{"tpnamehost", ""};
    const std::string n47(47, 'N'), n48(48, 'N'), n55(55, 'N'), n56(56, 'N'), n60(60, 'N');
    // clang-format off
    // left: ASCII that stays behind the blank
    const struct { const char* why; file_texts files; const char* host; std::string name, sent, left; } cases[] = {
        {"no option",                            {},           "box",     "MYTP", "MYTP",            ""},
        {"the address",                          {ipv4},       "box",     "MYTP", "MYTP_10.1.2.3",   ""},
        {"the address wins",                     {ipv4, host}, "box",     "MYTP", "MYTP_10.1.2.3",   ""},
        {"the host name, its hyphen included",   {host},       "my-host", "MYTP", "MYTP%my-host",    ""},
        {"a name that EBCDIC cannot hold is cut", {host},      "my_host", "MYTP", "MYTP%my",         std::string("host", 5)},
        {"room for the address",                 {ipv4},       "box",     n47,    n47 + "_10.1.2.3", ""},
        {"no room for it",                       {ipv4},       "box",     n48,    n48,               ""},
        {"nor for the host in its place",        {ipv4, host}, "box",     n48,    n48,               ""},
        {"room for the host",                    {host},       "my-host", n55,    n55 + "%my-host",  ""},
        {"no room for it",                       {host},       "my-host", n56,    n56,               ""},
        {"a zero byte ends the name too",        {ipv4},       "box",     std::string("MYTP", 5), "MYTP_10.1.2.3", ""},
        {"a long name",                          {ipv4, host}, "box",     n60,    n60,               ""},
    };
    // clang-format on
    node.address = 0x0302010A;
    for (const auto& each : cases) {
        restart_with(each.files);
        std::strcpy(BoxName, each.host);
        bytes expected = ebcdic(each.sent, 64);
        std::ranges::copy(each.left, expected.begin() + (each.left.empty() ? 0 : each.sent.size() + 1));
        EXPECT_TRUE(same_bytes(sent_of(tp_started(each.name), 28, 64), expected)) << each.why << ": " << each.name;
    }
    node.address.reset();
    restart_with({ipv4});
    EXPECT_EQ(sent_of(tp_started("MYTP"), 28, 64), ebcdic("MYTP", 64)) << "an unknown host leaves it";
}

TEST_F(tp_start, reports_the_new_tp)
{
    const bytes lu_alias = {'L', 'U', 'R', 'E', 'A', 'L', ' ', ' '};
    node.answers_once(TP_STARTED, {.fill = [&](u8* block) {
                          std::ranges::copy(lu_alias, block + 12);
                          std::memset(block + 0x5F, 0xC1, 17);
                      }});
    const tp running = start_tp("ECHO");
    const std::vector<bytes> logged = {running.id, ebcdic("ECHO", 64), lu_alias, bytes(17, 0xC1)};
    EXPECT_EQ(node.logs.back(), (log_record{'a', 0x20010008, 213, "ba es ca es", {}, logged}));
    ptrc[8] = 0x02;
    node.logs.clear();
    start_tp();
    EXPECT_TRUE(node.logs.empty()) << "audits are off";
}

TEST_F(tp_start, a_refusing_node_sends_it_to_the_next_one_and_the_last_ones_refusal_is_its_result)
{
    node.nodes = {1, 2, 3};
    node.answers_once(TP_STARTED, {.primary = STATE_CHECK, .secondary = 0x11});
    node.answers_once(TP_STARTED, {.primary = STATE_CHECK, .secondary = 0x22});
    EXPECT_EQ(node.paths.at(start_tp().path).node, 3u);
    EXPECT_EQ(node.count(TP_STARTED), 3u);
    EXPECT_EQ(node.held().paths, 1u) << "the paths to the others are closed";
    stop_library();
    node.answers(TP_STARTED, {.primary = STATE_CHECK, .secondary = 0x33});
    for (const bool synchronous : {false, true}) {
        verb& v = enter(synchronous, tp_started());
        node.deliver();
        EXPECT_EQ(v.codes(), rc(STATE_CHECK, 0x33));
        EXPECT_EQ(node.logs.back().point, 207);
        EXPECT_EQ(node.held_by_tps(), 0u);
    }
}

TEST_F(tp_start, a_lost_path_sends_it_to_the_next_node_until_there_is_none_or_it_has_been_answered)
{
    node.nodes = {1, 2};
    node.stays_silent(TP_STARTED);
    for (const bool answered : {false, true}) {
        for (const u32 asked : {1u, 2u})
            node.while_asleep([=, this] {
                const sent_verb sent = node.sent.back();
                EXPECT_EQ(node.paths.at(sent.path).node, asked);
                if (answered && asked == 2)
                    node.answer(sent);
                node.loses_path(sent.path);
            });
        EXPECT_EQ(run(tp_started()).codes(), answered ? rc(OK) : rc(PARAMETER_CHECK, SEC_NODE_NOT_FOUND));
        EXPECT_EQ(node.count(TP_STARTED), answered ? 4u : 2u);
        EXPECT_EQ(node.held().entries, answered ? 1u : 0u);
    }
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
    EXPECT_EQ(node.count(TP_STARTED), 2u);
    EXPECT_EQ(node.last(TP_STARTED).header().dest_corr, 0u) << "the new node has not named the TP yet";
    EXPECT_EQ(node.count(SET_TP_PROPERTIES), 2u);
    node.answers(CONFIRM);
    EXPECT_EQ(codes_of(tp_of(v), CONFIRM, CONV_7), rc(OK)) << "the TP is as good as any";
}

TEST_F(tp_start, can_be_cancelled_before_its_answer_and_before_that_to_SET_TP_PROPERTIES)
{
    for (const u16 silent : {SET_TP_PROPERTIES, TP_STARTED}) {
        for (const bool synchronous : {false, true}) {
            node.stays_silent(silent);
            verb& v = tp_started();
            verb& cancel = make(CANCEL_CONV);
            enter(synchronous, v, [&] {
                node.deliver();
                run(cancel);
            });
            EXPECT_EQ(cancel.codes(), rc(OK, UNTOUCHED));
            EXPECT_EQ(v.codes(), rc(CANCELLED)) << silent;
            EXPECT_EQ(node.held_by_tps(), 0u);
        }
    }
}

}  // namespace tessaly::test
