// Conversations that a partner starts: announcing, attaching, cancelling, and CPI-C registration.
#include "tests/support/library_test.h"

#include <cstdlib>

namespace tessaly::test {

namespace {

bytes attach_response(u32 reason, u32 attach = ATTACH_CORR, u32 address = ATTACH_ADDRESS)
{
    return words({16 | 17 << 16, reason, attach, address});
}

constexpr char attach_in_environment[] = "0000000100000002";
const bytes attach_id = {0, 0, 0, 1, 0, 0, 0, 2};
constexpr u32 ATTACH_ID_CORR = 0x01000000, ATTACH_ID_ADDRESS = 0x02000000;

}  // namespace

struct incoming : library_test {
    verb& receive_allocate(u16 opcode = RECEIVE_ALLOCATE, u8 format = 1, const bytes& name = ebcdic("SERVERTP", 64))
    {
        verb& v = make(opcode, format);
        std::ranges::copy(name, v.as<appc_receive_allocate>().tp_name);
        return v;
    }

    verb& cancel()
    {
        verb& v = make(CANCEL_CONV);
        v.header().conv_id = 1;
        return v;
    }

    void announces(verb& v, u32 cpic_names, u32 name_length, const bytes& name, const bytes& lu_alias = bytes(8, ' '))
    {
        EXPECT_EQ(issue(v).codes(), PENDING);
        const bytes fields = words({100 | 2 << 16, 0, announced(), 0, 0, cpic_names, name_length});
        EXPECT_EQ(node.datagrams.back(), joined({fields, name, lu_alias}));
    }
};

TEST_F(incoming, announcements_name_the_tp_and_the_waiter)
{
    announces(receive_allocate(), 0, 8, ebcdic("SERVERTP", 64));
    announces(receive_allocate(RECEIVE_ALLOCATE, 1, bytes(64, 0xC1)), 0, 64, bytes(64, 0xC1));
    verb& ex = receive_allocate(RECEIVE_ALLOCATE_EX, 1, bytes(64));
    std::memcpy(ex.as<appc_receive_allocate>().lu_alias, "LUSERVER", 8);
    announces(ex, 0, 0, bytes(64, 0x40), as_bytes("LUSERVER", 8));
    verb& cpic = receive_allocate(RECEIVE_ALLOCATE_CPIC, 0);
    cpic.as<appc_receive_allocate_cpic>().tp_name_count = 3;
    announces(cpic, 3, 0, bytes(64));
    EXPECT_TRUE(node.sent.empty()) << "no verb travels yet";
}

TEST_F(incoming, a_ready_node_is_asked_on_its_own_path_and_its_answer_brings_the_conversation)
{
    const bytes asked_for = ebcdic("ASKEDFOR", 64);
    const bytes lu_alias = as_bytes("LUREAL  ", 8);
    node.answers(CONFIRM);
    const std::pair<u16, u8> verbs_and_formats[] = {
        {RECEIVE_ALLOCATE, 0}, {RECEIVE_ALLOCATE, 1}, {RECEIVE_ALLOCATE_EX, 1}, {RECEIVE_ALLOCATE_CPIC, 1}};
    for (const auto& [opcode, format] : verbs_and_formats) {
        SCOPED_TRACE(::testing::Message() << "opcode 0x" << std::hex << opcode << " format " << u32{format});
        verb& v = issue(receive_allocate(opcode, format));
        std::memset(v.block() + 124, 0xAB, 68);
        const u32 handle = announced();
        const tp guessed{words({0, handle}), 0, 0};
        EXPECT_EQ(issue_on(guessed, CONFIRM).codes(), rc(PARAMETER_CHECK, SEC_BAD_TP_ID)) << "nobody knows the TP yet";
        conversation_ready(handle);
        EXPECT_EQ(issue_on(guessed, TP_ENDED).codes(), rc(PARAMETER_CHECK, SEC_BAD_TP_ID));
        EXPECT_EQ(node.paths.rbegin()->second.node, ATTACH_ADDRESS);
        const sent_verb& sent = node.sent.back();
        bytes expected = joined({words({0x01000016, 0, UNTOUCHED}), asked_for, bytes(116)});
        store<u32>(expected.data(), 84, ATTACH_CORR);
        std::fill(expected.begin() + 124, expected.begin() + (format == 0 ? 124 : 164), u8{0xAB});
        expected[164] = 1;
        EXPECT_TRUE(same_bytes(sent.block(), expected));
        EXPECT_EQ(sent.header().dest_corr, 0u);
        EXPECT_EQ(v.codes(), PENDING);

        node.answer(sent, {.fill = [&](u8* block) {
                        std::ranges::copy(lu_alias, block + 0x64);
                        std::memset(block + 0xAE, 0xC1, 17);
                    }});
        EXPECT_EQ(v.codes(), rc(OK));
        EXPECT_EQ(v.header().opcode, opcode);
        EXPECT_EQ(tp_of(v).handle, handle);
        EXPECT_EQ(v.calls, (std::vector<callback>{{callback::completion, tp_of(v).id, CONV_7, CORR}}));
        EXPECT_EQ(node.datagrams.back(), attach_response(ATTACH_TAKEN));
        const std::vector<bytes> logged = {tp_of(v).id, asked_for, lu_alias, bytes(17, 0xC1)};
        EXPECT_EQ(node.logs.back(), (log_record{'a', 0x2001000A, 214, "ba es ca es", {}, logged}));
        EXPECT_EQ(codes_of(tp_of(v), CONFIRM, CONV_7), rc(OK)) << "the TP serves verbs";
        EXPECT_EQ(node.last(CONFIRM).header().dest_corr, node.corr_of(handle));
    }
}

TEST_F(incoming, every_end_of_the_wait_has_its_codes)
{
    const auto says = [this](u32 status) { return [=, this](u32 tp_handle) { conversation_ready(tp_handle, status); }; };
    const auto has_no_path = [this](u32 tp_handle) {
        node.refuse(may_fail::vpm_create_path);
        conversation_ready(tp_handle);
    };
    const auto refuses = [this](u32 tp_handle) {
        node.answers_once(RECEIVE_ALLOCATE, {.primary = STATE_CHECK, .secondary = 0x77});
        conversation_ready(tp_handle);
        node.deliver();
    };
    const auto loses_path = [this](u32 tp_handle) {
        conversation_ready(tp_handle);
        node.loses_path(node.last(RECEIVE_ALLOCATE).path);
    };
    const bytes taken = attach_response(ATTACH_TAKEN), refused = attach_response(ATTACH_REFUSED);
    // clang-format off
    const struct { const char* why; bool cancelled; std::function<void(u32)> end; rc codes; bytes answer; u16 log; } cases[] = {
        {"failed",                   false, says(VSM_ST_FAILED),    rc(STATE_CHECK, SEC_ALLOCATE_FAILED),       {},      0},
        {"failed after a cancel",    true,  says(VSM_ST_FAILED),    rc(CANCELLED),                              {},      0},
        {"withdrawn",                false, says(VSM_ST_WITHDRAWN), rc(CANCELLED, UNTOUCHED),                   {},      0},
        {"withdrawn after a cancel", true,  says(VSM_ST_WITHDRAWN), rc(CANCELLED, UNTOUCHED),                   {},      0},
        {"ready after a cancel",     true,  says(VSM_ST_READY),     rc(CANCELLED),                              refused, 0},
        {"ready, but no path",       false, has_no_path,            rc(UNEXPECTED_SYSTEM_ERROR, SEC_NO_MEMORY), refused, 0},
        {"ready, but refused",       false, refuses,                rc(STATE_CHECK, 0x77),                      taken,   215},
        {"ready, but path lost",     false, loses_path,             rc(COMMS_SUBSYSTEM_ABENDED),                refused, 221},
    };
    // clang-format on
    for (const bool synchronous : {false, true}) {
        for (const auto& each : cases) {
            SCOPED_TRACE(each.why);
            verb& waiting = receive_allocate(RECEIVE_ALLOCATE_CPIC);
            verb& cancelling = cancel();
            bytes response;
            node.logs.clear();
            const auto ends = [&, this] {
                const u32 handle = load<u32>(node.datagrams.back().data(), each.cancelled ? 4 : 8);
                EXPECT_TRUE(!each.cancelled || node.datagrams.back() == words({8 | 16 << 16, handle}));
                response = each.answer.empty() ? node.datagrams.back() : each.answer;
                each.end(handle);
            };
            enter(synchronous, waiting, [&] { each.cancelled ? void(enter(synchronous, cancelling, ends)) : ends(); });
            EXPECT_EQ(waiting.codes(), each.codes);
            EXPECT_EQ(waiting.header().opcode, RECEIVE_ALLOCATE_CPIC);
            EXPECT_EQ(cancelling.codes(), rc(OK, UNTOUCHED));
            EXPECT_EQ(node.datagrams.back(), response);
            EXPECT_EQ(node.held_by_tps(), 0u);
            const std::vector<u32> codes = {each.codes.primary, each.codes.secondary};
            const log_record log{'p', 0x20010005, each.log, "x lx es", codes, {ebcdic("ASKEDFOR", 64)}};
            EXPECT_TRUE(each.log == 0 || node.logged(each.log) == log);
        }
    }
}

TEST_F(incoming, what_cannot_be_sent_is_refused_and_a_second_cancel_sends_nothing)
{
    const std::vector<u32> codes = {UNEXPECTED_SYSTEM_ERROR, 0x0321};
    node.refuse(may_fail::vpm_send_datagram, 1, false, 0x0321);
    EXPECT_EQ(issue(receive_allocate()).codes(), rc(UNEXPECTED_SYSTEM_ERROR, 0x0321));
    EXPECT_EQ(node.held_by_tps(), 0u);
    EXPECT_EQ(node.logs.back(), (log_record{'p', 0x20010005, 208, "x lx es", codes, {ebcdic("SERVERTP")}}));

    verb& waiting = issue(receive_allocate());
    const u32 handle = announced();
    node.refuse(may_fail::nba_create_handle);
    EXPECT_EQ(run(cancel()).codes(), rc(UNEXPECTED_SYSTEM_ERROR, SEC_NO_MEMORY));
    EXPECT_EQ(node.logs.back(), (log_record{'e', 0x20010002, 209}));
    node.refuse(may_fail::vpm_send_datagram, 1, false, 0x0456);
    EXPECT_EQ(run(cancel()).codes(), rc(UNEXPECTED_SYSTEM_ERROR, 0x0456));
    EXPECT_EQ(waiting.codes(), PENDING);

    verb& sent = issue(cancel());
    const size_t datagrams = node.datagrams.size();
    EXPECT_EQ(run(cancel()).codes(), rc(OK, UNTOUCHED));
    EXPECT_EQ(node.datagrams.size(), datagrams);
    EXPECT_EQ(sent.codes(), PENDING);
    conversation_ready(handle, VSM_ST_FAILED);
    EXPECT_EQ(sent.codes(), rc(OK, UNTOUCHED));
    EXPECT_EQ(waiting.codes(), rc(CANCELLED));
}

TEST_F(incoming, an_attach_identifier_is_used_once_and_kept_while_it_could_not_be)
{
    setenv("APPC_ATTACH_ID", attach_in_environment, 1);
    node.refuse(may_fail::vpm_create_path);
    EXPECT_EQ(issue(receive_allocate()).codes(), rc(UNEXPECTED_SYSTEM_ERROR, SEC_NO_MEMORY));
    EXPECT_EQ(node.held_by_tps(), 0u);
    EXPECT_STREQ(getenv("APPC_ATTACH_ID"), attach_in_environment);

    EXPECT_EQ(as_bytes(issue(receive_allocate()).block() + 166, 8), attach_id);
    EXPECT_TRUE(node.datagrams.empty()) << "it is not announced";
    EXPECT_EQ(node.paths.rbegin()->second.node, ATTACH_ID_ADDRESS);
    EXPECT_EQ(load<u32>(node.last(RECEIVE_ALLOCATE).block().data(), 84), ATTACH_ID_CORR);
    EXPECT_STREQ(getenv("APPC_ATTACH_ID"), "");
    node.answer(node.last(RECEIVE_ALLOCATE));
    EXPECT_EQ(node.datagrams.back(), attach_response(ATTACH_TAKEN, ATTACH_ID_CORR, ATTACH_ID_ADDRESS));

    for (const char* none : {"", "000000010000000", "00000001000000020", attach_in_environment}) {
        setenv("APPC_ATTACH_ID", none, 1);
        const size_t datagrams = node.datagrams.size();
        verb& v = issue(receive_allocate(RECEIVE_ALLOCATE, none == attach_in_environment ? 0 : 1));
        EXPECT_EQ(as_bytes(v.block() + 166, 8), bytes(8));
        EXPECT_EQ(node.datagrams.size(), datagrams + 1) << none;
    }
}

TEST_F(incoming, a_wait_on_an_attach_path_is_cancelled_at_once)
{
    for (const bool synchronous : {false, true}) {
        verb& v = receive_allocate(RECEIVE_ALLOCATE_EX);
        std::ranges::copy(attach_id, v.as<appc_receive_allocate>().attach_id);
        verb& cancelling = cancel();
        const rc gone(PARAMETER_CHECK, SEC_BAD_TP_ID);
        v.on_call = [&] { EXPECT_EQ(issue_on({v.calls[0].tp_id, 0, 0}, CONFIRM).codes(), gone); };
        enter(synchronous, v, [&] { run(cancelling); });
        EXPECT_EQ(v.codes(), rc(CANCELLED));
        EXPECT_EQ(v.header().opcode, RECEIVE_ALLOCATE_EX);
        EXPECT_EQ(cancelling.codes(), rc(OK, UNTOUCHED));
        EXPECT_EQ(node.datagrams.back(), attach_response(ATTACH_REFUSED, ATTACH_ID_CORR, ATTACH_ID_ADDRESS));
        EXPECT_EQ(node.held_by_tps(), 0u);
    }
}

TEST_F(incoming, status_for_no_waiter_is_logged_and_ignored)
{
    const auto is_logged = [this](u32 handle, u32 status, u16 point) {
        node.logs.clear();
        conversation_ready(handle, status);
        EXPECT_EQ(node.logs, (std::vector<log_record>{{'e', 0x20010000, point}}));
    };
    verb& waiting = issue(receive_allocate());
    const u32 handle = announced();
    is_logged(handle + 1000, VSM_ST_READY, 218);
    conversation_ready(handle);
    for (const u32 status : {VSM_ST_READY, VSM_ST_FAILED, VSM_ST_WITHDRAWN})
        is_logged(handle, status, 219);  // the wait already has its path
    EXPECT_EQ(waiting.codes(), PENDING);

    const tp running = start_tp();
    issue_on(running, CONFIRM, CONV_7);
    is_logged(running.handle, VSM_ST_READY, 219);  // another verb is first

    issue(receive_allocate());
    bytes truncated = joined({words({91 | 0x0082 << 16, VSM_ST_FAILED, announced()}), bytes(79)});
    bytes of_another_type = joined({words({92 | 0x0099 << 16, VSM_ST_FAILED, announced()}), bytes(80)});
    node.logs.clear();
    node.sends_datagram(truncated);
    node.sends_datagram(of_another_type);
    EXPECT_EQ(verbs.back().codes(), PENDING);
    EXPECT_TRUE(node.logs.empty());
}

TEST_F(incoming, cpic_names_are_registered_and_withdrawn_by_datagram)
{
    const auto datagram_for = [&](u16 opcode, const bytes& name) {
        EXPECT_EQ(run(receive_allocate(opcode, 0, name)).codes(), rc(OK, UNTOUCHED));
        return node.datagrams.back();
    };
    const bytes name = ebcdic("TPNAM", 64);
    const bytes tail = joined({bytes(128, 0x20), words({0})});
    EXPECT_EQ(datagram_for(REGISTER_CPIC_TP, name), joined({words({204 | 7 << 16, 5}), name, tail}));
    EXPECT_EQ(datagram_for(UNREGISTER_CPIC_TP, name), joined({words({204 | 10 << 16, 64}), name, tail}));
    EXPECT_EQ(datagram_for(UNREGISTER_CPIC_TP, bytes(64)), joined({words({204 | 10 << 16, 64}), bytes(64, 0x40), tail}));
    for (const u16 opcode : {REGISTER_CPIC_TP, UNREGISTER_CPIC_TP}) {
        node.refuse(may_fail::vpm_send_datagram, 1, false, 0x0789);
        EXPECT_EQ(run(make(opcode)).codes(), rc(UNEXPECTED_SYSTEM_ERROR, 0x0789));
    }
}

}  // namespace tessaly::test
