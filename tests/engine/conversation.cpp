// Two TPs converse from their start to their end: data in all sizes, turns and endings.
#include "tests/engine/playing.h"

#include <numeric>

namespace tessaly::node::playing {
namespace {

using Conversation = EngineTest;

std::string read_text(program& tp, u32 conv)
{
    return tp.run(receive(conv)).text();
}

bytes counted(std::size_t size)
{
    bytes data(size);
    std::iota(data.begin(), data.end(), u8{1});
    return data;
}

TEST_F(Conversation, goes_from_the_start_of_both_programs_to_their_end)
{
    program b = announce(w, "ECHO");
    program a{w, 1};
    a.open();
    appc_tp_started start{};
    start.opcode = TP_STARTED;
    alias(start.lu_alias, "CLIENT");
    const auto started = a.run(start);
    EXPECT_EQ(started.codes(), rc{});
    EXPECT_EQ(text_of(started.block.fq_lu_name), "TESSALY.CLIENT");
    a.node_corr = started.header.src_corr;
    std::copy_n(started.block.tp_id, 8, a.tp_id);

    appc_set_tp_properties properties{};
    properties.opcode = SET_TP_PROPERTIES;
    properties.set_user_id = 1;
    name(properties.user_id, "MAX");
    EXPECT_EQ(a.codes(properties), rc{});

    appc_allocate verb = allocate("ECHO");
    verb.security = APPC_SECURITY_SAME;
    const u32 conv = a.run(verb).block.conv_id;
    const auto taken = receive_allocate(b);
    ASSERT_TRUE(taken);
    EXPECT_EQ(taken->codes(), rc{});
    EXPECT_EQ(text_of(taken->block.tp_name), "ECHO");
    EXPECT_EQ(text_of(taken->block.user_id), "MAX");
    EXPECT_EQ(text_of(taken->block.mode_name), "INTER");
    EXPECT_EQ(text_of(taken->block.fqplu_name), "TESSALY.CLIENT");
    EXPECT_EQ(text_of(taken->block.fq_lu_name), "TESSALY.SERVER");
    EXPECT_EQ(std::string(taken->block.plu_alias, taken->block.plu_alias + 8), "CLIENT  ");
    EXPECT_EQ(std::string(taken->block.lu_alias, taken->block.lu_alias + 8), "SERVER  ");
    EXPECT_EQ(taken->block.sync_level, APPC_SYNC_CONFIRM);
    EXPECT_EQ(taken->block.conv_type, APPC_MAPPED);

    EXPECT_EQ(a.codes(send_data(conv), as_bytes("hello")), rc{});
    const u32 reply = a.issue(receive(conv));
    EXPECT_EQ(read_text(b, b.conv), "hello");
    EXPECT_EQ(b.run(receive(b.conv)).block.what_rcvd, APPC_WR_SEND);
    EXPECT_EQ(b.codes(send_data(b.conv), as_bytes("world")), rc{});
    const auto received = a.answer<appc_receive>(reply);
    ASSERT_TRUE(received);
    EXPECT_EQ(received->text(), "world");
    EXPECT_EQ(b.codes(deallocate(b.conv)), rc{});
    EXPECT_EQ(a.codes(receive(conv)), (rc{DEALLOC_NORMAL, 0}));
    EXPECT_EQ(a.codes(receive(conv)), (rc{PARAMETER_CHECK, APPC_SEC_BAD_CONV_ID}));
    EXPECT_EQ(a.codes(tp_ended()), rc{});
    EXPECT_EQ(b.codes(tp_ended()), rc{});
    EXPECT_EQ(a.codes(tp_ended()), (rc{PARAMETER_CHECK, SEC_BAD_TP_ID}));
}

TEST_F(Conversation, carries_records_of_every_size_to_a_queue_and_to_a_waiting_receiver)
{
    auto [a, b, at_a, at_b] = converse(w);
    for (const std::size_t size : {0u, 1u, 2u, 1023u, 4096u, 65535u}) {
        const bytes data = counted(size);
        EXPECT_EQ(a.codes(send_data(at_a), data), rc{});
        const auto queued = b.run(receive(at_b));
        EXPECT_EQ(queued.data, data);
        EXPECT_EQ(queued.block.dlen, size);
        EXPECT_EQ(queued.block.what_rcvd, APPC_WR_DATA_COMPLETE);

        const u32 waiting = b.issue(receive(at_b));
        EXPECT_EQ(a.codes(send_data(at_a), data), rc{});
        const auto direct = b.answer<appc_receive>(waiting);
        ASSERT_TRUE(direct) << size;
        EXPECT_EQ(direct->data, data);
    }
}

TEST_F(Conversation, hands_a_long_record_over_in_pieces_and_keeps_records_apart)
{
    auto [a, b, at_a, at_b] = converse(w);
    const u32 waiting = b.issue(receive(at_b, 4));
    a.run(send_data(at_a), as_bytes("abcdefghij"));
    a.run(send_data(at_a), as_bytes("XY"));
    const auto first = b.answer<appc_receive>(waiting);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->text(), "abcd");
    EXPECT_EQ(first->block.what_rcvd, APPC_WR_DATA_INCOMPLETE);
    const auto none = b.run(receive(at_b, 0));
    EXPECT_EQ(none.text(), "");
    EXPECT_EQ(none.block.what_rcvd, APPC_WR_DATA_INCOMPLETE);
    EXPECT_EQ(b.run(receive(at_b, 4)).text(), "efgh");
    const auto last = b.run(receive(at_b, 4));
    EXPECT_EQ(last.text(), "ij");
    EXPECT_EQ(last.block.what_rcvd, APPC_WR_DATA_COMPLETE);
    EXPECT_EQ(read_text(b, at_b), "XY");
}

TEST_F(Conversation, looks_without_waiting)
{
    auto [a, b, at_a, at_b] = converse(w);
    const auto look = receive(at_b, 100, 0, RECEIVE_IMMEDIATE);
    EXPECT_EQ(b.codes(look), (rc{UNSUCCESSFUL, 0}));
    a.run(send_data(at_a), as_bytes("now"));
    EXPECT_EQ(b.run(look).text(), "now");
    EXPECT_EQ(b.codes(look), (rc{UNSUCCESSFUL, 0}));
}

TEST_F(Conversation, tells_status_with_the_last_data_when_asked_to)
{
    auto [a, b, at_a, at_b] = converse(w);
    a.run(send_data(at_a), as_bytes("one"));
    a.run(send_data(at_a, APPC_SEND_P_TO_R_FLUSH), as_bytes("two"));
    EXPECT_EQ(b.run(receive(at_b, 100, 1)).block.what_rcvd, APPC_WR_DATA_COMPLETE);
    EXPECT_EQ(b.run(receive(at_b, 2, 1)).block.what_rcvd, APPC_WR_DATA_INCOMPLETE);
    EXPECT_EQ(b.run(receive(at_b, 2, 1)).block.what_rcvd, APPC_WR_DATA_COMPLETE | APPC_WR_SEND);
    EXPECT_EQ(state_of(b, at_b), APPC_STATE_SEND_PENDING);

    const u32 waiting = a.issue(receive(at_a, 100, 1));
    b.run(send_data(at_b, APPC_SEND_P_TO_R_FLUSH), as_bytes("back"));
    const auto both = a.answer<appc_receive>(waiting);
    ASSERT_TRUE(both);
    EXPECT_EQ(both->block.what_rcvd, APPC_WR_DATA_COMPLETE | APPC_WR_SEND);
    EXPECT_EQ(both->text(), "back");
}

TEST_F(Conversation, reaches_its_partner_by_full_name_and_no_other_network)
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

TEST_F(Conversation, several_of_one_program_do_not_mix)
{
    program b = announce(w, "FIRST", 2);
    program c = announce(w, "SECOND", 3);
    program a = start_tp(w);
    const u32 first = a.run(allocate("FIRST")).block.conv_id;
    const u32 second = a.run(allocate("SECOND")).block.conv_id;
    accept(b);
    accept(c);
    const u32 b_waits = b.issue(receive(b.conv));
    a.run(send_data(second), as_bytes("for c"));
    a.run(send_data(first), as_bytes("for b"));
    EXPECT_EQ(b.answer<appc_receive>(b_waits)->text(), "for b");
    EXPECT_EQ(read_text(c, c.conv), "for c");
    EXPECT_EQ(b.codes(plain(FLUSH, first)), (rc{PARAMETER_CHECK, APPC_SEC_BAD_CONV_ID})) << "another TP's conversation";
    EXPECT_EQ(a.codes(deallocate(first)), rc{});
    EXPECT_EQ(a.codes(send_data(second), as_bytes("still")), rc{});
    EXPECT_EQ(b.codes(receive(b.conv)), (rc{DEALLOC_NORMAL, 0}));
    EXPECT_EQ(read_text(c, c.conv), "still");
}

TEST_F(Conversation, makes_the_sender_wait_when_nobody_receives)
{
    auto [a, b, at_a, at_b] = converse(w);
    const bytes data = counted(60000);
    u32 sends = 0;
    u32 held = 0;
    while (held == 0 && sends < 1000) {
        const u32 number = a.issue(send_data(at_a), data);
        ++sends;
        if (!a.answer<appc_send_data>(number))
            held = number;
    }
    ASSERT_NE(held, 0u) << "no limit to what the node keeps";
    EXPECT_EQ(a.codes(send_data(at_a), data), (rc{STATE_CHECK, APPC_SEC_SEND_DATA_NOT_SEND_STATE}));
    u32 received = 0;
    std::optional<answered<appc_send_data>> let_go;
    while (!let_go && received < sends) {
        EXPECT_EQ(b.run(receive(at_b)).data, data);
        ++received;
        let_go = a.answer<appc_send_data>(held);
    }
    ASSERT_TRUE(let_go);
    EXPECT_EQ(let_go->codes(), rc{});
    EXPECT_EQ(a.codes(send_data(at_a), data), rc{});
}

TEST_F(Conversation, tells_the_sender_once_that_its_partner_wants_the_turn)
{
    auto [a, b, at_a, at_b] = converse(w);
    EXPECT_EQ(b.codes(plain(REQUEST_TO_SEND, at_b)), rc{});
    EXPECT_EQ(a.run(send_data(at_a), as_bytes("x")).block.rts_rcvd, 1);
    EXPECT_EQ(a.run(send_data(at_a), as_bytes("y")).block.rts_rcvd, 0);
}

}  // namespace
}  // namespace tessaly::node::playing
