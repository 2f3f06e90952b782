// Conversations that a partner starts: announcing, attaching, cancelling, and CPI-C registration.
#include "tests/support/library_test.h"

#include <cstdlib>
#include <cstring>

namespace tessaly::test {

namespace {

bytes words(std::initializer_list<u32> values)
{
    return as_bytes(values.begin(), static_cast<u32>(values.size() * 4));
}

bytes joined(std::initializer_list<bytes> parts)
{
    bytes all;
    for (const bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

bytes attach_response(u32 reason, u32 attach = ATTACH_CORR, u32 address = ATTACH_ADDRESS)
{
    return words({16 | 17 << 16, reason, attach, address});
}

const bytes blank_words = words({0x20202020, 0x20202020});

}  // namespace

class incoming : public library_test {
protected:
    verb& receive_allocate(u16 opcode = RECEIVE_ALLOCATE, u8 format = 1, const char* name = "SERVERTP")
    {
        verb& v = make(opcode, format);
        const bytes ebcdic_name = ebcdic(name, 64);
        std::copy(ebcdic_name.begin(), ebcdic_name.end(), v.as<appc_receive_allocate>().tp_name);
        return v;
    }

    verb& cancel()
    {
        verb& v = make(CANCEL_CONV);
        v.header().conv_id = 1;
        return v;
    }
};

TEST_F(incoming, announcements_name_the_tp_and_the_waiter)
{
    verb& named = issue(receive_allocate());
    EXPECT_EQ(named.result, VAV_IN_PROGRESS);
    const u32 handle = announced();
    EXPECT_EQ(node.datagrams.back(),
              joined({words({100 | 2 << 16, 0, handle, 0, 0, 0, 8}), ebcdic("SERVERTP", 64), blank_words}));

    verb& full = receive_allocate();
    std::memset(full.as<appc_receive_allocate>().tp_name, 0xC1, 64);
    issue(full);
    EXPECT_EQ(node.datagrams.back(),
              joined({words({100 | 2 << 16, 0, announced(), 0, 0, 0, 64}), bytes(64, 0xC1), blank_words}));

    verb& ex = receive_allocate(RECEIVE_ALLOCATE_EX, 1, "");
    ex.as<appc_receive_allocate>().tp_name[0] = 0;
    std::memcpy(ex.as<appc_receive_allocate>().lu_alias, "LUSERVER", 8);
    issue(ex);
    EXPECT_EQ(node.datagrams.back(),
              joined({words({100 | 2 << 16, 0, announced(), 0, 0, 0, 0}), bytes(64, 0x40), as_bytes("LUSERVER", 8)}));

    verb& cpic = receive_allocate(RECEIVE_ALLOCATE_CPIC, 0);
    cpic.as<appc_receive_allocate_cpic>().tp_name_count = 3;
    issue(cpic);
    EXPECT_EQ(node.datagrams.back(),
              joined({words({100 | 2 << 16, 0, announced(), 0, 0, 3, 0}), bytes(64, 0), blank_words}));
    EXPECT_NE(announced(), handle);
    EXPECT_TRUE(node.sent.empty()) << "no verb travels yet";
}

TEST_F(incoming, a_ready_node_is_asked_on_its_own_path_and_its_answer_brings_the_conversation)
{
    for (const u16 opcode : {RECEIVE_ALLOCATE, RECEIVE_ALLOCATE_EX, RECEIVE_ALLOCATE_CPIC}) {
        verb& v = issue(receive_allocate(opcode));
        const u32 handle = announced();
        node.stays_silent(RECEIVE_ALLOCATE);
        conversation_ready(handle);
        EXPECT_EQ(node.paths.rbegin()->second.node, ATTACH_ADDRESS);
        const bytes block = node.last(RECEIVE_ALLOCATE).block();
        bytes expected(192, 0);
        expected[0] = 0x16;
        expected[3] = 1;
        store<u32>(expected.data(), 8, UNTOUCHED);
        const bytes asked = ebcdic("ASKEDFOR", 64);
        std::copy(asked.begin(), asked.end(), expected.begin() + 12);
        store<u32>(expected.data(), 84, ATTACH_CORR);
        expected[164] = 1;
        EXPECT_TRUE(same_bytes(block, expected)) << opcode;
        EXPECT_EQ(node.last(RECEIVE_ALLOCATE).header().dest_corr, 0u);
        EXPECT_TRUE(v.calls.empty());

        node.answer(node.last(RECEIVE_ALLOCATE), filled<appc_receive_allocate>([](appc_receive_allocate& answer) {
                        std::memcpy(answer.lu_alias, "LUREAL  ", 8);
                        std::memset(answer.fq_lu_name, 0xC1, 17);
                    }));
        node.deliver();
        ASSERT_EQ(v.calls.size(), 1u);
        EXPECT_EQ(v.calls[0].conv_id, CONV_7);
        EXPECT_EQ(v.codes(), rc(OK));
        EXPECT_EQ(v.header().opcode, opcode);
        EXPECT_EQ(v.calls[0].tp_id, tp_of(v).id);
        EXPECT_EQ(tp_of(v).handle, handle);
        EXPECT_EQ(node.datagrams.back(), attach_response(ATTACH_TAKEN));
        const log_record& log = node.logs.back();
        EXPECT_EQ(log.id, 0x2001000Au);
        EXPECT_EQ(log.point, 214);
        EXPECT_EQ(log.strings, (std::vector<bytes>{tp_of(v).id, asked, as_bytes("LUREAL  ", 8), bytes(17, 0xC1)}));

        node.answers(CONFIRM);
        EXPECT_EQ(run(make_on(tp_of(v), CONFIRM, CONV_7)).codes(), rc(OK)) << "the TP serves verbs";
        EXPECT_EQ(node.last(CONFIRM).header().dest_corr, scripted_node::corr_of(handle));
    }
}

TEST_F(incoming, a_format_0_block_travels_as_format_1)
{
    verb& v = issue(receive_allocate(RECEIVE_ALLOCATE, 0));
    std::memset(v.block() + 124, 0xAB, 68);
    conversation_ready(announced());
    bytes expected(192 - 124, 0);
    expected[164 - 124] = 1;
    const bytes block = node.last(RECEIVE_ALLOCATE).block();
    EXPECT_EQ(bytes(block.begin() + 124, block.end()), expected);
    EXPECT_EQ(block[3], 1);
}

TEST_F(incoming, a_refused_conversation_ends_the_tp)
{
    node.answers(RECEIVE_ALLOCATE, {.primary = STATE_CHECK, .secondary = 0x77});
    verb& v = issue(receive_allocate(RECEIVE_ALLOCATE_EX));
    conversation_ready(announced());
    EXPECT_EQ(v.codes(), rc(STATE_CHECK, 0x77));
    EXPECT_EQ(v.header().opcode, RECEIVE_ALLOCATE_EX);
    EXPECT_EQ(v.calls.size(), 1u);
    EXPECT_EQ(node.datagrams.back(), attach_response(ATTACH_TAKEN));
    ASSERT_NE(node.logged(215), nullptr);
    EXPECT_EQ(node.logged(215)->id, 0x20010005u);
    EXPECT_EQ(node.held().entries, 0u);
    EXPECT_EQ(node.held().paths, 0u);
}

struct status_case {
    const char* why;
    u32 status;
    bool cancelled;
    bool no_path;
    outcome codes;
    bool refuses_attach;
};

TEST_F(incoming, every_end_of_the_wait_has_its_codes)
{
    // clang-format off
    const status_case cases[] = {
        {"failed", VSM_ST_FAILED, false, false, rc(STATE_CHECK, SEC_ALLOCATE_FAILED), false},
        {"failed after a cancel", VSM_ST_FAILED, true, false, rc(CANCELLED), false},
        {"withdrawn", VSM_ST_WITHDRAWN, false, false, rc(CANCELLED, UNTOUCHED), false},
        {"withdrawn after a cancel", VSM_ST_WITHDRAWN, true, false, rc(CANCELLED, UNTOUCHED), false},
        {"ready after a cancel", VSM_ST_READY, true, false, rc(CANCELLED), true},
        {"ready, but no path", VSM_ST_READY, false, true, rc(UNEXPECTED_SYSTEM_ERROR, SEC_NO_MEMORY), true},
    };
    // clang-format on
    for (const bool synchronous : {false, true}) {
        for (const status_case& each : cases) {
            SCOPED_TRACE(each.why);
            verb& waiting = receive_allocate(RECEIVE_ALLOCATE_CPIC);
            verb& cancelling = cancel();
            size_t answers = 0;
            u32 handle = 0;
            const auto go_on = [&] {
                handle = announced();
                const auto say = [&] {
                    answers = node.datagrams.size();
                    conversation_ready(handle, each.status);
                };
                if (each.no_path)
                    node.refuse(may_fail::vpm_create_path);
                if (!each.cancelled) {
                    say();
                } else if (synchronous) {
                    node.while_asleep(say);
                    run(cancelling);
                } else {
                    issue(cancelling);
                    EXPECT_EQ(node.datagrams.back(), words({8 | 16 << 16, handle}));
                    say();
                }
            };
            if (synchronous) {
                node.while_asleep(go_on);
                run(waiting);
            } else {
                issue(waiting);
                go_on();
                EXPECT_EQ(waiting.calls.size(), 1u);
                EXPECT_EQ(cancelling.calls.size(), each.cancelled ? 1u : 0u);
            }
            node.refuse_nothing();
            EXPECT_EQ(waiting.codes(), each.codes);
            EXPECT_EQ(waiting.header().opcode, RECEIVE_ALLOCATE_CPIC);
            EXPECT_EQ(cancelling.codes(), rc(OK, UNTOUCHED));
            EXPECT_EQ(node.datagrams.size(), answers + (each.refuses_attach ? 1 : 0));
            if (each.refuses_attach) {
                EXPECT_EQ(node.datagrams.back(), attach_response(ATTACH_REFUSED));
            }
            EXPECT_EQ(node.held().entries, 0u);
            EXPECT_EQ(node.held().paths, 0u);
            EXPECT_EQ(node.held().wait_objects, 0u);
        }
    }
}

TEST_F(incoming, a_second_cancel_of_the_same_wait_completes_at_once_and_sends_nothing)
{
    verb& waiting = issue(receive_allocate());
    const u32 handle = announced();
    verb& first = issue(cancel());
    EXPECT_EQ(first.result, VAV_IN_PROGRESS);
    const size_t datagrams = node.datagrams.size();
    verb& second = run(cancel());
    EXPECT_EQ(second.codes(), rc(OK, UNTOUCHED));
    EXPECT_EQ(node.datagrams.size(), datagrams);
    conversation_ready(handle, VSM_ST_FAILED);
    EXPECT_EQ(first.calls.size(), 1u);
    EXPECT_EQ(waiting.calls.size(), 1u);
}

TEST_F(incoming, a_cancel_that_cannot_be_made_or_sent_leaves_the_wait)
{
    verb& waiting = issue(receive_allocate());
    const u32 handle = announced();
    node.refuse(may_fail::nba_create_handle);
    EXPECT_EQ(run(cancel()).codes(), rc(UNEXPECTED_SYSTEM_ERROR, SEC_NO_MEMORY));
    ASSERT_NE(node.logged(209), nullptr);
    node.refuse(may_fail::vpm_send_datagram, 1, false, 0x0456);
    EXPECT_EQ(run(cancel()).codes(), rc(UNEXPECTED_SYSTEM_ERROR, 0x0456));
    node.refuse_nothing();
    EXPECT_TRUE(waiting.calls.empty());
    node.answers(RECEIVE_ALLOCATE);
    conversation_ready(handle);
    EXPECT_EQ(waiting.codes(), rc(OK));
}

TEST_F(incoming, an_announcement_that_is_not_sent_fails_the_verb)
{
    node.refuse(may_fail::vpm_send_datagram, 1, false, 0x0321);
    verb& v = issue(receive_allocate());
    EXPECT_EQ(v.result, VAV_COMPLETE);
    EXPECT_EQ(v.codes(), rc(UNEXPECTED_SYSTEM_ERROR, 0x0321));
    EXPECT_EQ(node.held().entries, 0u);
    const log_record* log = node.logged(208);
    ASSERT_NE(log, nullptr);
    EXPECT_EQ(log->numbers, (std::vector<u32>{UNEXPECTED_SYSTEM_ERROR, 0x0321}));
    EXPECT_EQ(log->strings, std::vector<bytes>{ebcdic("SERVERTP")});
}

struct attach_case {
    const char* environment;
    u8 format;
    bool attaches;
};

TEST_F(incoming, an_attach_identifier_is_used_once)
{
    const attach_case cases[] = {
        {"0000000100000002", 1, true},   {"0000000100000002", 0, false}, {"000000010000000", 1, false}, {"", 1, false},
        {"00000001000000020", 1, false},
    };
    for (const attach_case& each : cases) {
        SCOPED_TRACE(::testing::Message() << each.environment << " format " << u32{each.format});
        setenv("APPC_ATTACH_ID", each.environment, 1);
        const size_t datagrams = node.datagrams.size();
        verb& v = issue(receive_allocate(RECEIVE_ALLOCATE, each.format));
        EXPECT_EQ(node.datagrams.size() == datagrams, each.attaches);
        if (each.attaches) {
            EXPECT_EQ(node.paths.rbegin()->second.node, 0x02000000u);
            EXPECT_EQ(load<u32>(node.last(RECEIVE_ALLOCATE).block().data(), 84), 0x01000000u);
            EXPECT_EQ(as_bytes(v.block() + 166, 8), (bytes{0, 0, 0, 1, 0, 0, 0, 2}));
            EXPECT_STREQ(getenv("APPC_ATTACH_ID"), "");
            node.answer(node.last(RECEIVE_ALLOCATE));
            EXPECT_EQ(node.datagrams.back(), attach_response(ATTACH_TAKEN, 0x01000000, 0x02000000));
        }
    }
}

TEST_F(incoming, an_attach_path_that_cannot_be_made_fails_the_verb_and_keeps_the_identifier)
{
    setenv("APPC_ATTACH_ID", "0000000100000002", 1);
    node.refuse(may_fail::vpm_create_path);
    EXPECT_EQ(issue(receive_allocate()).codes(), rc(UNEXPECTED_SYSTEM_ERROR, SEC_NO_MEMORY));
    EXPECT_EQ(node.held().entries, 0u);
    EXPECT_STREQ(getenv("APPC_ATTACH_ID"), "0000000100000002");
}

TEST_F(incoming, a_waiting_tp_takes_no_verbs_from_whoever_guesses_its_identifier)
{
    issue(receive_allocate());
    tp guessed{bytes(8, 0), announced(), 0};
    store(guessed.id.data(), 4, guessed.handle);
    EXPECT_EQ(run(make_on(guessed, CONFIRM, CONV_7)).codes(), rc(PARAMETER_CHECK, SEC_BAD_TP_ID));
    conversation_ready(guessed.handle);
    EXPECT_EQ(issue(make_on(guessed, CONFIRM, CONV_7)).codes(), rc(PARAMETER_CHECK, SEC_BAD_TP_ID));
    EXPECT_EQ(issue(make_on(guessed, TP_ENDED)).codes(), rc(PARAMETER_CHECK, SEC_BAD_TP_ID));
    EXPECT_EQ(node.sent.size(), 1u) << "the RECEIVE_ALLOCATE";
}

TEST_F(incoming, a_wait_on_an_attach_path_is_cancelled_at_once)
{
    for (const bool synchronous : {false, true}) {
        verb& v = receive_allocate(RECEIVE_ALLOCATE_EX);
        const bytes id = {0, 0, 0, 1, 0, 0, 0, 2};
        std::copy(id.begin(), id.end(), v.as<appc_receive_allocate>().attach_id);
        verb& cancelling = cancel();
        if (synchronous) {
            node.while_asleep([&] { run(cancelling); });
            run(v);
        } else {
            issue(v);
            run(cancelling);
            EXPECT_EQ(v.calls.size(), 1u);
        }
        EXPECT_EQ(v.codes(), rc(CANCELLED));
        EXPECT_EQ(v.header().opcode, RECEIVE_ALLOCATE_EX);
        EXPECT_EQ(cancelling.codes(), rc(OK, UNTOUCHED));
        EXPECT_EQ(node.datagrams.back(), attach_response(ATTACH_REFUSED, 0x01000000, 0x02000000));
        EXPECT_EQ(node.held().entries, 0u);
        EXPECT_EQ(node.held().paths, 0u);
    }
}

TEST_F(incoming, a_path_lost_while_waiting_on_it_refuses_the_attach)
{
    verb& v = issue(receive_allocate());
    conversation_ready(announced());
    node.loses_path(node.last(RECEIVE_ALLOCATE).path);
    EXPECT_EQ(v.codes(), rc(COMMS_SUBSYSTEM_ABENDED));
    EXPECT_EQ(node.datagrams.back(), attach_response(ATTACH_REFUSED));
    ASSERT_NE(node.logged(221), nullptr);
    EXPECT_EQ(node.held().entries, 0u);
}

TEST_F(incoming, status_for_no_waiter_is_logged_and_ignored)
{
    verb& waiting = issue(receive_allocate());
    const u32 handle = announced();
    conversation_ready(handle + 1000);
    ASSERT_EQ(node.logs.back().point, 218);
    conversation_ready(handle);
    node.logs.clear();
    for (const u32 status : {VSM_ST_READY, VSM_ST_FAILED, VSM_ST_WITHDRAWN})
        conversation_ready(handle, status);
    EXPECT_EQ(node.logs.size(), 3u) << "the wait already has its path";
    for (const log_record& log : node.logs)
        EXPECT_EQ(log.point, 219);
    EXPECT_TRUE(waiting.calls.empty());

    const tp running = start_tp();
    issue(make_on(running, CONFIRM, CONV_7));
    conversation_ready(running.handle);
    EXPECT_EQ(node.logs.back().point, 219) << "another verb is first";

    bytes truncated = words({91 | 0x0082 << 16, VSM_ST_FAILED, handle});
    truncated.resize(91);
    node.logs.clear();
    node.sends_datagram(truncated);
    node.sends_datagram(words({8 | 0x0099 << 16, 0}));
    EXPECT_TRUE(node.logs.empty());
}

TEST_F(incoming, cpic_names_are_registered_and_withdrawn_by_datagram)
{
    const auto named = [&](u16 opcode, bytes name) {
        verb& v = make(opcode);
        std::copy(name.begin(), name.end(), v.as<appc_cpic_tp>().tp_name);
        EXPECT_EQ(run(v).codes(), rc(OK, UNTOUCHED));
        return node.datagrams.back();
    };
    const bytes tail = joined({bytes(128, 0x20), words({0})});
    const bytes name = ebcdic("TPNAM", 64);
    EXPECT_EQ(named(REGISTER_CPIC_TP, name), joined({words({204 | 7 << 16, 5}), name, tail}));
    EXPECT_EQ(named(UNREGISTER_CPIC_TP, name), joined({words({204 | 10 << 16, 64}), name, tail}));
    EXPECT_EQ(named(UNREGISTER_CPIC_TP, bytes(64, 0)), joined({words({204 | 10 << 16, 64}), bytes(64, 0x40), tail}));
    node.refuse(may_fail::vpm_send_datagram, 1, true, 0x0789);
    EXPECT_EQ(run(make(REGISTER_CPIC_TP)).codes(), rc(UNEXPECTED_SYSTEM_ERROR, 0x0789));
    EXPECT_EQ(run(make(UNREGISTER_CPIC_TP)).codes(), rc(UNEXPECTED_SYSTEM_ERROR, 0x0789));
}

}  // namespace tessaly::test
