// TP servers: what they define, what they are asked to start, and what becomes of the conversation meanwhile.
#include "tests/engine/serving.h"

#include <algorithm>
#include <functional>

namespace tessaly::node::playing {
namespace {

constexpr rc NOT_SECURE{ALLOCATION_ERROR, APPC_SEC_SECURITY_NOT_VALID};
constexpr u64 START_LIMIT = 60'000, ATTACH_LIMIT = 30'000;

TEST_F(TpServer, defines_what_nobody_else_has_and_changes_what_is_its_own)
{
    open(S);
    open(S2);
    open(4, 1, {});
    EXPECT_EQ(update(S, {}), 0u);
    const u32 first = defined;
    take(S, 0);
    // clang-format off
    const struct { const char* why; client_id client; definition each; u32 status; } cases[] = {
        {"the same again",         S,  {},                                                              12},
        {"of another server",      S,  {.server = 7},                                                   12},
        {"of another client",      S2, {},                                                              12},
        {"for another LU",         S2, {.lu = "HERE"},                                                  0},
        {"for another partner",    S2, {.partner = "N.A*"},                                             0},
        {"not admitted",           4,  {.tp = "X"},                                                     1},
        {"no TP server",           5,  {.tp = "X"},                                                     1},
        {"no TP name",             S,  {.tp = ""},                                                      22},
        {"no type",                S,  {.tp = "X", .type = 0},                                          22},
        {"no type either",         S,  {.tp = "X", .type = 4},                                          22},
        {"no action",              S,  {.tp = "X", .action = 4, .id = first},                           22},
        {"replaces nothing",       S,  {.action = TPS_TP_REPLACE, .id = first + 1},                     11},
        {"replaces another's",     S2, {.action = TPS_TP_REPLACE, .id = first},                         11},
        {"deletes another's",      S2, {.action = TPS_TP_DELETE, .id = first},                          11},
        {"of its other server",    S,  {.server = 7, .action = TPS_TP_DELETE, .id = first},             11},
        {"as another has it",      S,  {.lu = "HERE", .action = TPS_TP_REPLACE, .id = first},           12},
        {"stays as it is",         S,  {.action = TPS_TP_REPLACE, .id = first},                         0},
        {"deletes",                S,  {.action = TPS_TP_DELETE, .id = first},                          0},
        {"deletes again",          S,  {.action = TPS_TP_DELETE, .id = first},                          11},
        {"now it is free",         S2, {},                                                              0},
    };
    // clang-format on
    for (const auto& each : cases) {
        const u32 before = changes[S];
        rights.try_emplace(each.client, ADMITTED);
        EXPECT_EQ(update(each.client, each.each), each.status) << each.why;
        take(S, 0);
        EXPECT_EQ(changes[S] - before, each.status == 0 ? 1u : 0u) << each.why << ": every server is told of a change, once";
    }
    EXPECT_FALSE(take(4, 0)) << "who is not admitted is told nothing";
    const u32 before = changes[S];
    w.client_gone(S2);
    take(S, 0);
    EXPECT_EQ(changes[S] - before, 1u);
    EXPECT_EQ(w.node.counts().definitions, 0u);

    u32 status = 0;
    for (u32 i = 0; status == 0 && i < 5000; ++i)
        status = update(S, {.tp = "T" + std::to_string(i)});
    EXPECT_EQ(status, 28u);
    EXPECT_EQ(w.node.counts().definitions, 1000u);
    close(S);
    EXPECT_EQ(w.node.counts().definitions, 0u);
}

TEST_F(TpServer, is_asked_when_its_definition_fits_best)
{
    // An ALLOCATE of ECHO at SERVER, from TESSALY.LOCAL. The better one has server 2.
    // clang-format off
    const struct { definition better, worse; } pairs[] = {
        {{.lu = "SERVER"},                      {.partner = "TESSALY.LOCAL"}},
        {{.partner = "TESSALY.LOCAL"},          {.partner = "TESSALY.LOC*"}},
        {{.partner = "TESSALY.LOC*"},           {.partner = "TESSALY.L*"}},
        {{.partner = "TESSALY.*"},              {.partner = "LOCAL*"}},
        {{.partner = "LOC*"},                   {.partner = "L*"}},
        {{.partner = "*"},                      {}},
        {{},                                    {.lu = "OTHER"}},
        {{},                                    {.tp = "ECH"}},
        {{},                                    {.partner = "TESSALY.LOCALX"}},
        {{},                                    {.partner = "TESS*"}},  // without a period it is the LU's part
        {{},                                    {.partner = "TESSALY.LOCALXX*"}},
    };
    // clang-format on
    open(S);
    for (const auto& each : pairs)
        for (const bool better_first : {true, false}) {
            definition better = each.better, worse = each.worse;
            better.server = 2;
            worse.server = 1;
            u32 ids[2];
            EXPECT_EQ(update(S, better_first ? better : worse), 0u);
            ids[0] = defined;
            EXPECT_EQ(update(S, better_first ? worse : better), 0u);
            ids[1] = defined;
            const u32 conv = converse_with(a, "ECHO");
            const auto request = asked(S);
            EXPECT_EQ(request.server_handle, 2u) << better.partner << " before " << worse.partner;
            EXPECT_EQ(request.start_value, 7u);
            EXPECT_EQ(request.start_id.node, NODE_ADDRESS);
            a.codes(plain(CANCEL_CONV, conv));
            for (u32 i = 0; i < 2; ++i)
                EXPECT_EQ(update(S, {.server = (i == 0) == better_first ? 2u : 1u, .action = TPS_TP_DELETE, .id = ids[i]}), 0u);
        }
}

// clang-format off
struct ending {
    const char* why;
    std::function<void(class TpServerStart&)> what;
    rc codes;          // of the allocating side's next verb
    bool taken_after;  // whether the program may still take the attach
};
// clang-format on

// An attach that the server of S has been asked to start for.
class TpServerStart : public TpServer {
public:
    start_id_words start;
    void ok(client_id client = S) { report(client, start, 0); }
    void error(u32 code, client_id client = S) { report(client, start, code); }
    void failed(u32 code, client_id client = S) { fail(client, start, code); }
    void time(u64 by) { w.time(now += by); }
    void gone(client_id client) { w.client_gone(client); }
    void server_closed() { close(S); }
    void returned(u32 server)
    {
        tell(S, start_appl_req_datagram{{24, TPS_MSG_START_APPL_REQ}, server, 0, 0, start}, frame_kind::datagram_returned);
    }
    u64 now = 0;
};

TEST_F(TpServerStart, ends_as_the_server_tells_or_with_the_time_limit_or_the_server)
{
    rights[5] = ADMITTED;
    // clang-format off
    const ending endings[] = {
        {"nothing yet",            [](auto&) {},                                       {}, true},
        {"it runs",                [](auto& t) { t.ok(); },                            {}, true},
        {"not, for now",           [](auto& t) { t.error(1); },                        RETRY, false},
        {"not at all",             [](auto& t) { t.error(2); },                        NO_RETRY, false},
        {"the user may not",       [](auto& t) { t.error(3); },                        NOT_SECURE, false},
        {"no known code",          [](auto& t) { t.error(0x80000000); },               NO_RETRY, false},
        {"it runs, then ends",     [](auto& t) { t.ok(); t.failed(1); },               RETRY, false},
        {"it runs, then refused",  [](auto& t) { t.ok(); t.error(3); },                NOT_SECURE, false},
        {"told by the program",    [](auto& t) { t.ok(); t.failed(2, 5); },            NO_RETRY, false},
        {"told by a stranger",     [](auto& t) { t.failed(2, 6); t.error(2, 6); },     {}, true},
        {"another node's",         [](auto& t) { t.start.node++; t.error(2); t.start.node--; }, {}, true},
        {"no answer in time",      [](auto& t) { t.time(START_LIMIT); },               RETRY, false},
        {"almost in time",         [](auto& t) { t.time(START_LIMIT - 1); t.ok(); t.time(ATTACH_LIMIT - 1); }, {}, true},
        {"not taken in time",      [](auto& t) { t.ok(); t.time(ATTACH_LIMIT); },      RETRY, false},
        {"told twice",             [](auto& t) { t.ok(); t.time(ATTACH_LIMIT - 1); t.ok(); t.time(1); }, RETRY, false},
        {"the server's client",    [](auto& t) { t.gone(S); },                         RETRY, false},
        {"the server",             [](auto& t) { t.server_closed(); },                 RETRY, false},
        {"found nobody",           [](auto& t) { t.returned(0x1002); },                RETRY, false},
        {"found nobody else",      [](auto& t) { t.returned(0x1003); },                {}, true},
        {"it runs on without",     [](auto& t) { t.ok(); t.gone(S); },                 {}, true},
    };
    // clang-format on
    for (const ending& each : endings) {
        SCOPED_TRACE(each.why);
        serve(S);
        const u32 conv = converse_with(a, "ECHO");
        start = asked(S).start_id;
        EXPECT_NE(start.attach, 0u);
        each.what(*this);
        EXPECT_EQ(a.codes(send_data(conv), as_bytes("x")), each.codes);
        EXPECT_EQ(take_attach(start), each.taken_after ? rc{} : (rc{STATE_CHECK, SEC_ALLOCATE_FAILED}));
        for (const u32 late : {0u, 1u, 2u}) {
            report(S, start, late);
            fail(S, start, late);
        }
        if (each.taken_after) {
            EXPECT_EQ(a.codes(send_data(conv), as_bytes("still on")), rc{});
        }
        for (const client_id client : {S, client_id{9}})
            gone(client);
        EXPECT_EQ(w.node.deadline_ms(), std::nullopt) << "nothing waits for time";
    }
}

TEST_F(TpServerStart, of_a_server_that_goes_is_asked_of_the_next_and_then_of_the_host)
{
    configuration with;
    with.programs = {"ECHO"};
    w.node.configure(with);
    const std::function<void(TpServerStart&)> ways[] = {
        [](auto& t) { t.gone(S); }, [](auto& t) { t.server_closed(); }, [](auto& t) { t.returned(0x1002); }};
    for (const auto& go : ways) {
        serve(S2);
        serve(S);
        const u32 conv = converse_with(a, "ECHO");
        start = asked(S).start_id;
        go(*this);
        const auto next = asked(S2);
        EXPECT_EQ(next.server_handle, 0x1003u);
        EXPECT_NE(next.start_id.attach, start.attach);
        report(S, start, 2);  // to no effect any more
        gone(S2);
        const auto host = std::ranges::find(w.frames, frame_kind::start_program, &got::kind);
        ASSERT_NE(host, w.frames.end());
        start = {host->path, NODE_ADDRESS};
        EXPECT_TRUE(w.take(0, frame_kind::start_program, start.attach));
        report(S, start, 2);  // is not a server's to tell
        EXPECT_EQ(take_attach(start), rc{});
        EXPECT_EQ(a.codes(send_data(conv), as_bytes("x")), rc{});
        gone(S);
    }
}

TEST_F(TpServerStart, is_forgotten_with_the_allocating_side)
{
    for (const int way : {0, 1, 2, 3}) {
        serve(S, QUEUED);
        program caller = start_tp(w, 7);
        const u32 conv = converse_with(caller, "ECHO");
        converse_with(caller, "ECHO");  // waits behind it
        start = asked(S).start_id;
        if (way >= 2)
            ok();
        if (way % 2 == 0)
            gone(7);
        else
            EXPECT_EQ(caller.codes(plain(CANCEL_CONV, conv)), rc{});
        if (way >= 2) {
            EXPECT_EQ(query_status(S, start), QUERY_DLOAD_DONE) << "the program that runs shall learn of it";
            error(2);
        }
        EXPECT_EQ(asked(S).start_id.attach != 0, way % 2 != 0) << "the next in the queue";
        EXPECT_EQ(query_status(S, start), QUERY_DLOAD_ATTACH_GONE);
        error(2);
        gone(7);
        EXPECT_EQ(w.node.counts().attaches, 0u);
        gone(S);
    }
}

TEST_F(TpServer, of_a_queued_tp_is_asked_for_one_attach_at_a_time_and_of_a_manual_one_never)
{
    serve(S, QUEUED);
    u32 convs[4];
    for (u32& conv : convs)
        conv = converse_with(a, "ECHO");
    const auto first = asked(S).start_id;
    EXPECT_EQ(asked(S).start_id.attach, 0u);
    report(S, first, 0);
    EXPECT_EQ(asked(S).start_id.attach, 0u) << "it runs, but has not taken the attach";
    EXPECT_EQ(take_attach(first), rc{});
    const auto second = asked(S).start_id;
    EXPECT_EQ(asked(S).start_id.attach, 0u);
    report(S, second, 2);
    EXPECT_EQ(a.codes(send_data(convs[1]), as_bytes("x")), NO_RETRY);
    const auto third = asked(S).start_id;
    EXPECT_NE(third.attach, 0u);
    program running = announce(w, "ECHO", 8);  // takes what waits, not what is kept for a program
    accept(running);
    w.time(START_LIMIT);
    EXPECT_EQ(a.codes(send_data(convs[2]), as_bytes("x")), RETRY);
    EXPECT_EQ(a.codes(send_data(convs[3]), as_bytes("x")), rc{});

    u32 waiting = converse_with(a, "ECHO");
    converse_with(a, "ECHO");
    EXPECT_NE(asked(S).start_id.attach, 0u);
    EXPECT_EQ(update(S, {.type = EACH, .server = 0x1002, .action = TPS_TP_REPLACE, .id = defined}), 0u);
    EXPECT_NE(asked(S).start_id.attach, 0u) << "it is queued no more";
    close(S);
    EXPECT_EQ(a.codes(send_data(waiting), as_bytes("x")), RETRY);

    waiting = converse_with(a, "ECHO");  // before there is a server
    serve(S, MANUAL);
    EXPECT_EQ(asked(S).start_id.attach, 0u);
    EXPECT_EQ(update(S, {.type = EACH, .server = 0x1002, .action = TPS_TP_REPLACE, .id = defined}), 0u);
    EXPECT_EQ(take_attach(asked(S).start_id), rc{});
    EXPECT_EQ(a.codes(send_data(waiting), as_bytes("x")), rc{});
}

TEST_F(TpServer, is_asked_for_hundreds_at_once_and_each_takes_its_own)
{
    for (const u8 type : {EACH, QUEUED}) {
        serve(S, type);
        std::vector<u32> convs;
        for (u32 i = 0; i < 500; ++i)
            convs.push_back(converse_with(a, "ECHO"));
        u32 asked_for = 0;
        for (auto request = asked(S); request.start_id.attach != 0; request = asked(S)) {
            report(S, request.start_id, asked_for++ % 2);
            EXPECT_EQ(take_attach(request.start_id) == rc{}, asked_for % 2 != 0);
        }
        EXPECT_EQ(asked_for, 500u);
        for (u32 i = 0; i < 500; ++i)
            EXPECT_EQ(a.codes(send_data(convs[i]), as_bytes("x")), i % 2 == 0 ? rc{} : RETRY) << i;
        w.client_gone(9);
        w.client_gone(S);
    }
}

TEST_F(TpServer, of_several_in_a_process_is_known_to_be_gone_when_it_is_not_found_or_replaced)
{
    open(S, 1);
    open(S, 2);
    EXPECT_EQ(update(S, {.server = 1}), 0u);
    EXPECT_EQ(update(S, {.tp = "OTHER", .server = 2}), 0u);
    EXPECT_EQ(update(S, {.server = 3}), 12u);
    close(S, 1);  // the node cannot tell which
    EXPECT_EQ(update(S, {.tp = "MORE", .server = 2}), 0u);
    EXPECT_EQ(update(S, {.tp = "OTHER", .server = 3}), 12u) << "server 2 has just shown that it is there";
    EXPECT_EQ(update(S2, {}), 1u);
    EXPECT_EQ(update(S, {.server = 3}), 0u);
    converse_with(a, "ECHO");
    EXPECT_EQ(asked(S).server_handle, 3u);
    EXPECT_EQ(w.node.counts().definitions, 3u);
    EXPECT_EQ(w.node.report().tp_definitions.size(), 3u);
    EXPECT_EQ(w.node.report().starts.size(), 1u);
    close(S, 7);
    close(S, 2);
    EXPECT_EQ(w.node.counts().definitions, 0u);
}

TEST_F(TpServerStart, that_cannot_be_told_to_the_server_leaves_the_attach_to_others)
{
    serve(S);
    w.refuse_next = 1;
    const u32 number = a.issue(allocate("ECHO"));
    EXPECT_EQ(outcome_of(a, number), rc{});
    EXPECT_EQ(asked(S).start_id.attach, 0u);
    program waiting = announce(w, "ECHO", 8);
    accept(waiting);
}

}  // namespace
}  // namespace tessaly::node::playing
