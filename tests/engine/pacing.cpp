// How long a sender is held back whose partner has much unread. A record of 8 bytes takes 12 in the queue.
#include "tests/engine/scripts.h"

#include <functional>

namespace tessaly::node::playing {
namespace {

using Pacing = ScriptTest;

constexpr u32 UNREAD_BYTES = 20;

constexpr const char* mapped[] = {
    // until half is read
    "a send 12345678 | a send abcdefgh => waits | a due => 20 | b get => 12345678 | a then => waits | b get.1 => a~"
    " | a then => waits | b get.1 => b~ | a then => ok | a due => never"
    " | a send x | a send xy => waits | b get => cdefgh | b get => x | a then => ok",
    // until its time has come; then it is not held back before its partner has read down to half
    "a send 12345678 | a later.7 | a send abcdefgh => waits | a later.19 | a then => waits | a due => 1 | a later.1"
    " | a then => ok | a due => never | a send 12345678 | a send abcdefgh | b get => 12345678 | b get => abcdefgh"
    " | b get => 12345678 | a send abcdefgh | b get => abcdefgh | a send 1 | b get => abcdefgh | a send 12345678"
    " | a send 1 => waits | a due => 20 | b get => 1 | b get => 12345678 | a then => ok",
    // each in its turn
    "a send 12345678 | a send abcdefgh => waits | b ask | a later.5 | b get => 12345678 | b get => abcdefgh"
    " | a then => ok rts | a send 12345678 | a send 12345678 => waits | a due => 20",
    // it gives the turn, too
    "a send 12345678 | a send.3 abcdefgh => waits | a later.20 | a then => ok | b get => 12345678 | b get-all => abcdefgh<send>"
    " | b send 12345678 | b send 12345678 => waits",
    // what is purged is not unread
    "a send 12345678 | a send abcdefgh => waits | a later.20 | a then => ok | b error | b turn | a get => e00 | a get => <send>"
    " | a send 12345678 | a send abcdefgh => waits",
    // the partner's error, the partner's end, and its own
    "a send 12345678 | a send abcdefgh => waits | b error | a then => e00 | a due => never",
    "a send 12345678 | a send abcdefgh => waits | b end.3 | a then => 500 | a due => never",
    "a send 12345678 | a send abcdefgh => waits | a end.3 | a then => 2100 | a due => never | b get => 12345678"
    " | b get => abcdefgh | b get => 500",
};

constexpr const char* basic[] = {
    // who waits for the end of a record, or a full buffer, gets it at once
    "b get => waits | a send 19123456789123456789 | a send 123456789 | a due => never",
    "a send _91234567 | a send _91234567_91 => waits | b fill.30 => waits | a then => ok | a due => never | a send 234567"
    " | a send _4ab | b then => _91234567_91234567_91234567_4a= | a send _91234567 | a send _91234567 => waits",
};

TEST_F(Pacing, holds_a_sender_until_half_is_read_or_a_moment_has_passed)
{
    w.node.configure({.unread_bytes = UNREAD_BYTES});
    play(mapped);
    play(basic, APPC_BASIC);
    EXPECT_EQ(w.node.deadline_ms(), std::nullopt);
    EXPECT_EQ(w.node.counts(), record_counts{});
}

TEST_F(Pacing, lets_nothing_behind_when_what_a_held_sender_belongs_to_goes)
{
    w.node.configure({.unread_bytes = UNREAD_BYTES});
    const std::function<void(pair&)> ends[] = {
        [&](pair& of) { w.client_gone(of.a.client); },
        [&](pair& of) { w.client_gone(of.b.client); },
        [](pair& of) { of.a.close(); },
        [](pair& of) { EXPECT_EQ(of.a.codes(tp_ended()), rc{}); },
        [](pair& of) { EXPECT_EQ(of.a.codes(plain(CANCEL_CONV, of.at_a)), rc{}); },
        [](pair& of) { EXPECT_EQ(of.b.codes(plain(CANCEL_CONV, of.at_b)), rc{}); },
        [&](pair& of) { w.refuse_next = 1; EXPECT_EQ(outcome_of(of.b, of.b.issue(receive(of.at_b))), WAITS); },
    };
    for (const auto& end : ends) {
        pair of = converse(w);
        of.a.issue(send_data(of.at_a), as_bytes("more than may be unread"));
        EXPECT_EQ(w.node.deadline_ms(), w.told_ms + 20);
        end(of);
        EXPECT_EQ(w.node.deadline_ms(), std::nullopt);
        w.time(w.told_ms + 20);
        w.client_gone(of.a.client);
        w.client_gone(of.b.client);
        EXPECT_EQ(w.node.counts(), record_counts{});
        w.frames.clear();
    }
}

TEST_F(Pacing, holds_a_sender_at_the_most_for_good)
{
    const bytes record(60'000);
    for (const u32 unread_bytes : {UNREAD_BYTES, MOST_UNREAD_BYTES}) {
        w.node.configure({.unread_bytes = unread_bytes});
        auto [a, b, at_a, at_b] = converse(w);
        const auto send = [&] { return a.issue(send_data(at_a), record); };
        if (unread_bytes == UNREAD_BYTES) {
            const u32 first = send();
            w.time(w.told_ms + 20);
            EXPECT_EQ(outcome_of(a, first), rc{});
        }
        u32 sent = 0, read = 0, last = 0;
        do
            last = send();
        while (++sent < 300 && outcome_of(a, last) == rc{});
        EXPECT_EQ(w.node.deadline_ms(), std::nullopt);
        EXPECT_EQ(sent + (unread_bytes == UNREAD_BYTES), 280u) << "16 MiB and some";
        w.time(w.told_ms + 1'000'000);
        EXPECT_EQ(outcome_of(a, last), WAITS);
        for (rc outcome = WAITS; outcome == WAITS && read < 300; outcome = outcome_of(a, last), ++read)
            EXPECT_EQ(b.codes(receive(at_b)), rc{});
        EXPECT_EQ(280 - read, 139u) << "8 MiB less some";
        w.client_gone(a.client);
        w.client_gone(b.client);
        w.frames.clear();
    }
}

}  // namespace
}  // namespace tessaly::node::playing
