// Two TPs converse from their start to their end: data in all sizes, turns and endings.
#include "tests/engine/scripts.h"

#include <numeric>

namespace tessaly::node::playing {
namespace {

using Conversation = EngineTest;

bytes counted(std::size_t size)
{
    bytes data(size);
    std::iota(data.begin(), data.end(), u8{1});
    return data;
}

TEST_F(Conversation, carries_records_of_every_size_to_a_queue_and_to_a_waiting_receiver)
{
    auto [a, b, at_a, at_b] = converse(w);
    for (const std::size_t size : {0u, 1u, 2u, 1023u, 4096u, 65535u}) {
        const bytes data = counted(size);
        const std::string all(data.begin(), data.end());
        EXPECT_EQ(a.codes(send_data(at_a), data), rc{});
        expect_told(b, receive(at_b), {all});
        const u32 waiting = b.issue(receive(at_b));
        EXPECT_EQ(a.codes(send_data(at_a), data), rc{});
        EXPECT_EQ(told(b, waiting), all);
    }
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
    EXPECT_EQ(told(b, b_waits), "for b");
    expect_told(c, receive(c.conv), {"for c"});
    EXPECT_EQ(b.codes(plain(FLUSH, first)), (rc{PARAMETER_CHECK, APPC_SEC_BAD_CONV_ID})) << "another TP's conversation";
    EXPECT_EQ(a.codes(deallocate(first)), rc{});
    EXPECT_EQ(a.codes(send_data(second), as_bytes("still")), rc{});
    EXPECT_EQ(b.codes(receive(b.conv)), (rc{DEALLOC_NORMAL, 0}));
    expect_told(c, receive(c.conv), {"still"});
}

TEST_F(Conversation, makes_the_sender_wait_when_nobody_receives)
{
    const std::string small_records = [] {
        std::string all;
        while (all.size() < 60'000)
            all += std::string{'\0', '\3', 'x'};
        return all;
    }();
    for (const u8 type : {u8{APPC_MAPPED}, u8{APPC_BASIC}}) {
        auto [a, b, at_a, at_b] = converse(w, APPC_SYNC_NONE, type);
        auto send = send_data(at_a);
        auto receive_all = receive(at_b, 60'000);
        send.opext = receive_all.opext = type;
        u32 sends = 0;
        u32 held = 0;
        rc last;
        while (last == rc{} && sends++ < 1000)
            last = outcome_of(a, held = a.issue(send, as_bytes(small_records)));
        ASSERT_EQ(last, WAITS) << "no limit to what the node keeps";
        EXPECT_EQ(a.codes(send, as_bytes("xxx")), (rc{STATE_CHECK, APPC_SEC_SEND_DATA_NOT_SEND_STATE}));
        while (last == WAITS && sends-- > 0) {
            EXPECT_TRUE(b.run(receive_all).text() == small_records);
            last = outcome_of(a, held);
        }
        EXPECT_EQ(last, rc{});
    }
}

}  // namespace
}  // namespace tessaly::node::playing
