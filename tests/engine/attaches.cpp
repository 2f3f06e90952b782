// How an ALLOCATE finds the TP that takes it: waiting ones, later ones, those that refuse, and none.
#include "tests/engine/playing.h"

namespace tessaly::node::playing {
namespace {

using Attach = EngineTest;

constexpr rc NOT_AVAILABLE{ALLOCATION_ERROR, APPC_SEC_TRANS_PGM_NOT_AVAIL_RETRY};
constexpr rc NOT_GIVEN{STATE_CHECK, SEC_ALLOCATE_FAILED};

appc_receive_allocate taking(u32 attach_corr)
{
    auto verb = verb_of_tp<appc_receive_allocate>(RECEIVE_ALLOCATE);
    verb.conv_id = attach_corr;
    return verb;
}

u32 offered_to(program& tp)
{
    const auto ready = tp.w->take_ready(tp.client, tp.handle);
    return ready && ready->app_rdy_status == VSM_ST_READY ? ready->attach_corr : 0;
}

// An attach that is offered to b; c waits for the next.
class Offer : public EngineTest {
protected:
    program b = announce(w, "ECHO", 2);
    program c = announce(w, "ECHO", 3);
    program a = start_tp(w);
    u32 conv = converse_with(a, "ECHO");
    u32 to_b = offered_to(b);
};

// clang-format off
const struct {
    const char *why, *tp_name, *lu;
    bool cpic, matches;  // an ALLOCATE of ECHO at SERVER
} announcements[] = {
    {"the name itself",                "ECHO", "",       false, true},
    {"no name is any",                 "",     "",       false, true},
    {"another name",                   "ECH",  "",       false, false},
    {"the LU itself",                  "ECHO", "SERVER", false, true},
    {"another LU",                     "ECHO", "OTHER",  false, false},
    {"any name, another LU",           "",     "OTHER",  false, false},
    {"CPI-C without registered names", "",     "",       true,  true},
};
// clang-format on

TEST_F(Attach, goes_to_a_tp_that_waits_for_its_name_and_lu)
{
    for (const auto& each : announcements)
        for (const bool announced_first : {true, false}) {
            SCOPED_TRACE(std::string(each.why) + (announced_first ? ", announced first" : ", allocated first"));
            std::optional<program> b;
            if (announced_first)
                b = announce(w, each.tp_name, 2, each.lu, each.cpic);
            program a = start_tp(w);
            converse_with(a, "ECHO");
            if (!announced_first)
                b = announce(w, each.tp_name, 2, each.lu, each.cpic);
            EXPECT_EQ(receive_allocate(*b).has_value(), each.matches);
            w.client_gone(1);
            w.client_gone(2);
            w.time(w.node.deadline_ms().value_or(0));
        }
}

TEST_F(Attach, is_taken_by_cpic_for_registered_names_of_the_same_client_only)
{
    program a = start_tp(w);
    w.datagram(2, cpic_name(DATAGRAM_REGISTER_CPIC, "OTHER"));
    w.datagram(3, cpic_name(DATAGRAM_REGISTER_CPIC, "ECHO"));
    program b = announce(w, "", 2, "", true);
    converse_with(a, "ECHO");
    EXPECT_TRUE(w.frames.empty());
    w.datagram(2, cpic_name(DATAGRAM_REGISTER_CPIC, "ECHO"));
    accept(b);
    program c = announce(w, "", 3, "", true);
    converse_with(a, "ANY");
    EXPECT_TRUE(w.frames.empty());
    w.datagram(3, cpic_name(DATAGRAM_UNREGISTER_CPIC, "ECHO"));
    accept(c);
}

TEST_F(Offer, goes_to_the_next_when_it_is_refused_and_back_when_there_is_none)
{
    EXPECT_EQ(a.codes(send_data(conv), as_bytes("for whom")), rc{});
    respond(b, to_b, ATTACH_REFUSED);
    const u32 to_c = offered_to(c);
    EXPECT_TRUE(to_c != 0 && to_c != to_b);
    respond(b, to_b, ATTACH_REFUSED);  // once more, too late
    respond(b, to_c, ATTACH_REFUSED);  // not b's to refuse
    EXPECT_EQ(a.codes(send_data(conv), as_bytes("still on")), rc{});
    respond(c, to_c, ATTACH_REFUSED);
    EXPECT_EQ(a.codes(send_data(conv), as_bytes("gone")), NOT_AVAILABLE);
    EXPECT_EQ(a.codes(send_data(conv), as_bytes("gone")), (rc{PARAMETER_CHECK, APPC_SEC_BAD_CONV_ID}));
}

TEST_F(Offer, to_a_client_that_goes_is_made_to_the_next)
{
    w.client_gone(2);
    accept(c);
}

TEST_F(Offer, named_late_or_by_the_wrong_tp_is_not_given)
{
    program thief{w, 3};
    thief.open();
    EXPECT_EQ(thief.codes(taking(to_b)), NOT_GIVEN);
    w.time(*w.node.deadline_ms());
    b.open();
    EXPECT_EQ(b.codes(taking(to_b)), NOT_GIVEN);
    EXPECT_EQ(a.codes(confirm(conv)), NOT_AVAILABLE);
    converse_with(a, "ECHO");
    accept(c);  // in the order in which they came, c is next
}

TEST_F(Attach, ends_with_its_time_limit_whatever_the_allocator_does_meanwhile)
{
    w.time(1000);
    program a = start_tp(w);
    EXPECT_NE(converse(w).at_b, 0u);
    EXPECT_EQ(w.node.deadline_ms(), std::nullopt) << "what is taken has no limit";
    const u32 silent = converse_with(a, "NOBODY");
    w.time(1500);
    const u32 asked = a.issue(confirm(converse_with(a, "NOBODY")));
    const u64 limit = w.node.deadline_ms().value_or(0);
    w.time(limit - 1);
    EXPECT_EQ(a.codes(send_data(silent), as_bytes("still")), rc{});
    w.time(limit);
    EXPECT_EQ(a.codes(send_data(silent)), NOT_AVAILABLE);
    EXPECT_EQ(w.node.deadline_ms(), limit + 500);
    w.time(limit + 500);
    EXPECT_EQ(outcome_of(a, asked), NOT_AVAILABLE);
    EXPECT_EQ(w.node.deadline_ms(), std::nullopt);
}

TEST_F(Attach, announcements_are_withdrawn_unless_matched)
{
    program b = announce(w, "ECHO", 2);
    w.datagram(2, cancellation(b.handle));
    const auto ready = w.take_ready(b.client, b.handle);
    EXPECT_TRUE(ready && ready->app_rdy_status == VSM_ST_FAILED);
    w.datagram(2, cancellation(b.handle));  // unknown by now
    program c = announce(w, "ECHO", 2);
    program a = start_tp(w);
    converse_with(a, "ECHO");
    w.datagram(2, cancellation(c.handle));
    accept(c);
}

TEST_F(Attach, more_than_the_node_keeps_are_refused_at_once)
{
    program a = start_tp(w);
    u32 kept = 0;
    rc last;
    while (last == rc{} && kept < 5000) {
        last = a.codes(allocate("NOBODY"));
        kept += last == rc{};
    }
    EXPECT_EQ(last, NOT_AVAILABLE);
    EXPECT_GE(kept, 1000u);
    program b = announce(w, "NOBODY");
    accept(b);
    converse_with(a, "NOBODY");  // one place is free again
}

TEST_F(Attach, is_waited_for_by_a_limited_number_of_a_clients_tps)
{
    for (u32 i = 0; i < 1000; ++i)
        announce(w, "ECHO", 2);
    program one_too_many = announce(w, "ECHO", 2);
    const auto told = w.take_ready(2, one_too_many.handle);
    EXPECT_TRUE(told && told->app_rdy_status == VSM_ST_FAILED);
}

TEST_F(Attach, reaches_an_lu_by_its_full_name_and_no_other_network)
{
    program b = announce(w, "ECHO", 2, "SERVER");
    program a = start_tp(w);
    appc_allocate verb = allocate("ECHO");
    std::fill(std::begin(verb.plu_alias), std::end(verb.plu_alias), u8{0});
    EXPECT_EQ(a.codes(verb), (rc{PARAMETER_CHECK, APPC_SEC_BAD_LU_ALIAS}));
    name(verb.fqplu_name, "ELSEWHER.SERVER");
    EXPECT_EQ(a.codes(verb), (rc{ALLOCATION_ERROR, APPC_SEC_ALLOCATION_FAILURE_NO_RETRY}));
    name(verb.fqplu_name, "TESSALY.SERVER");
    EXPECT_EQ(a.codes(verb), rc{});
    accept(b);
}

}  // namespace
}  // namespace tessaly::node::playing
