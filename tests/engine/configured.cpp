// A node with LUs of its own, and one that has programs started.
#include "tests/engine/scripts.h"

namespace tessaly::node::playing {
namespace {

constexpr rc NOT_AVAILABLE{ALLOCATION_ERROR, APPC_SEC_TRANS_PGM_NOT_AVAIL_RETRY};
constexpr rc NO_SUCH_LU{PARAMETER_CHECK, APPC_SEC_BAD_LU_ALIAS};

class Configured : public EngineTest {
protected:
    void SetUp() override
    {
        configuration with;
        with.programs = {"ECHO"};
        w.node.configure(with);
    }

    // The attach for which the host is to start a program; 0 when it is not asked to.
    u32 asked_to_start()
    {
        const auto asked = w.take(0, frame_kind::start_program, w.frames.empty() ? 0 : w.frames.back().path);
        if (!asked)
            return 0;
        EXPECT_EQ(ebcdic_text(asked->content.data(), 64), "ECHO");
        return asked->path;
    }
    rc take_attach(program& tp, u32 attach_corr)
    {
        tp.open();
        auto verb = verb_of_tp<appc_receive_allocate>(RECEIVE_ALLOCATE);
        verb.conv_id = attach_corr;
        return tp.codes(verb);
    }
    void end_program(u32 attach_corr) { w.feed({.kind = frame_kind::program_ended, .path = attach_corr}); }
};

TEST_F(Configured, lus_are_those_that_are_set_up_and_the_first_is_the_default)
{
    configuration with;
    with.local_lus = {{"HERE", "NET1.HOST"}, {"THERE", "NET1.OTHER"}};
    with.partner_lus = {{"FRIEND", "NET1.OTHER"}};
    w.node.configure(with);
    // clang-format off
    const struct { const char *local, *partner; rc started, allocated; const char *full, *partner_full; } cases[] = {
        {"",       "THERE",  {},         {},         "NET1.HOST",  "NET1.OTHER"},
        {"THERE",  "",       {},         {},         "NET1.OTHER", "NET1.HOST"},
        {"HERE",   "FRIEND", {},         {},         "NET1.HOST",  "NET1.OTHER"},
        {"HERE",   "LOCAL",  {},         NO_SUCH_LU, "NET1.HOST",  ""},
        {"FRIEND", "",       NO_SUCH_LU, {},         "",           ""},
    };
    // clang-format on
    for (const auto& each : cases) {
        SCOPED_TRACE(std::string(each.local) + " to " + each.partner);
        program a{w, 1};
        a.open();
        auto starting = verb_of_tp<appc_tp_started>(TP_STARTED);
        alias(starting.lu_alias, each.local);
        const auto started = a.run(starting);
        EXPECT_EQ(started.codes(), each.started);
        if (started.codes() != rc{})
            continue;
        EXPECT_EQ(text_of(started.block.fq_lu_name), each.full);
        a.node_corr = started.header.src_corr;
        std::copy_n(started.block.tp_id, sizeof a.tp_id, a.tp_id);
        auto asking = allocate("NOBODY");
        alias(asking.plu_alias, each.partner);
        const auto allocated = a.run(asking);
        EXPECT_EQ(allocated.codes(), each.allocated);
        auto inquiry = conversation_verb<appc_get_attributes>(GET_ATTRIBUTES, allocated.block.conv_id, [](auto&) {});
        EXPECT_EQ(allocated.codes() == rc{} ? text_of(a.run(inquiry).block.fqplu_name) : "", each.partner_full);
    }
}

TEST_F(Configured, program_is_started_only_when_no_tp_waits_and_takes_just_its_attach)
{
    program waiting = announce(w, "ECHO");
    program a = start_tp(w);
    converse_with(a, "ECHO");
    EXPECT_EQ(asked_to_start(), 0u);
    accept(waiting);
    const u32 conv = converse_with(a, "ECHO");
    const u32 attach = asked_to_start();
    EXPECT_EQ(a.codes(send_data(conv), as_bytes("for it")), rc{});
    announce(w, "ECHO");  // gets nothing
    program started{w, 3}, late{w, 4};
    EXPECT_EQ(take_attach(started, attach), rc{});
    EXPECT_EQ(take_attach(late, attach), (rc{STATE_CHECK, SEC_ALLOCATE_FAILED}));
    respond(started, attach, ATTACH_TAKEN);
    end_program(attach);  // its process, which says nothing about the conversation
    EXPECT_EQ(a.codes(send_data(conv), as_bytes("still on")), rc{});
}

TEST_F(Configured, program_that_does_not_take_its_attach_ends_it)
{
    program a = start_tp(w);
    const u32 conv = converse_with(a, "ECHO");
    const u32 attach = asked_to_start();
    end_program(attach);
    EXPECT_EQ(a.codes(send_data(conv)), NOT_AVAILABLE);
    end_program(attach);  // once more, to no effect

    const u32 again = converse_with(a, "ECHO");
    const u32 taken = asked_to_start();
    program started{w, 3};
    EXPECT_EQ(take_attach(started, taken), rc{});
    started.close();  // before it has confirmed; no second program is started
    EXPECT_EQ(a.codes(send_data(again)), NOT_AVAILABLE);

    w.refuse_next = 1;  // no memory for asking the host
    EXPECT_EQ(a.run(allocate("ECHO")).codes(), rc{});
    EXPECT_EQ(asked_to_start(), 0u);
}

}  // namespace
}  // namespace tessaly::node::playing
