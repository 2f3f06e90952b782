// Verbs that are refused before anything is sent.
#include "tests/support/library_test.h"

namespace tessaly::test {

struct refusal {
    const char* why;
    u16 opcode;
    u8 format;
    outcome codes;
};

void PrintTo(const refusal& row, std::ostream* out)
{
    *out << row.why;
}

// clang-format off
constexpr refusal refusals[] = {
    {"opcode 0", 0x0000, 0, {INVALID_VERB, UNTOUCHED}},
    {"no verb has this opcode", 0x0015, 0, {INVALID_VERB, UNTOUCHED}},
    {"nor this one", 0x0101, 0, {INVALID_VERB, UNTOUCHED}},
    {"the first opcode past the main range", 0x0103, 0, {INVALID_VERB, UNTOUCHED}},
    {"the last opcode before the second range", 0xF0FF, 0, {INVALID_VERB, UNTOUCHED}},
    {"a TP server verb through APPC", 0xF104, 0, {INVALID_VERB, UNTOUCHED}},
    {"the highest opcode", 0xFFFF, 0, {INVALID_VERB, UNTOUCHED}},
    {"an unknown opcode in format 1", 0x0015, 1, {INVALID_VERB, UNTOUCHED}},
    {"RECEIVE_ALLOCATE_EX exists in format 1 only", RECEIVE_ALLOCATE_EX, 0, {INVALID_VERB, UNTOUCHED}},
    {"... and not in format 2", RECEIVE_ALLOCATE_EX, 2, {INVALID_VERB, UNTOUCHED}},
    {"CONFIRMED exists in format 0 only", CONFIRMED, 1, {PARAMETER_CHECK, SEC_BAD_FORMAT}},
    {"SEND_DATA has no format 2", SEND_DATA, 2, {PARAMETER_CHECK, SEC_BAD_FORMAT}},
    {"the highest format", CONFIRM, 0xFF, {PARAMETER_CHECK, SEC_BAD_FORMAT}},
    {"REGISTER_CPIC_TP exists in format 0 only", REGISTER_CPIC_TP, 1, {PARAMETER_CHECK, SEC_BAD_FORMAT}},
    {"TP_STARTED exists in format 0 only", TP_STARTED, 1, {PARAMETER_CHECK, SEC_BAD_FORMAT}},
    {"no such TP", CONFIRM, 0, {PARAMETER_CHECK, SEC_BAD_TP_ID}},
    {"no such TP to end", TP_ENDED, 0, {PARAMETER_CHECK, SEC_BAD_TP_ID}},
};
// clang-format on

class refused : public library_test, public ::testing::WithParamInterface<refusal> {};

TEST_P(refused, verbs_are_reported_in_the_block_and_send_nothing)
{
    tp running = start_tp();
    const holdings before = node.held();
    const size_t sent_before = node.sent.size();
    const refusal& row = GetParam();
    running.id[4] ^= 0x55;  // a TP that does not exist
    for (const entry through : {entry::appc, entry::appc_async}) {
        verb& v = enter(through, make_on(running, row.opcode, CONV_7, row.format));
        EXPECT_EQ(v.codes(), row.codes);
        EXPECT_EQ(v.result, through == entry::appc ? 0 : VAV_COMPLETE);
        EXPECT_TRUE(v.calls.empty());
    }
    EXPECT_EQ(node.sent.size(), sent_before);
    EXPECT_EQ(node.held(), before);
}

INSTANTIATE_TEST_SUITE_P(table, refused, ::testing::ValuesIn(refusals));

using refusing = library_test;

TEST_F(refusing, needs_no_running_library)
{
    EXPECT_EQ(run(make(SEND_DATA)).codes(), rc(PARAMETER_CHECK, SEC_BAD_TP_ID));
    EXPECT_EQ(run(make(CANCEL_CONV)).codes(), rc(OK, UNTOUCHED));
    verb& other_form = make(CANCEL_CONV);
    other_form.header().conv_id = CONV_7;
    EXPECT_EQ(run(other_form).codes(), rc(OK, UNTOUCHED));
    EXPECT_EQ(node.held(), holdings{});
}

TEST_F(refusing, post_verbs_need_a_routine_of_their_own_when_called_synchronously)
{
    const tp running = start_tp();
    for (const u16 opcode : {RECEIVE_AND_POST, TEST_RTS_AND_POST}) {
        for (const entry through : {entry::appc, entry::appc_c1}) {
            verb& v = enter(through, make_on(running, opcode, CONV_7));
            EXPECT_EQ(v.codes(), rc(PARAMETER_CHECK, SEC_NO_POST_CALLBACK));
        }
        EXPECT_EQ(issue(make_on(running, opcode, CONV_7)).result, VAV_IN_PROGRESS);
    }
}

TEST_F(refusing, covers_a_tp_that_is_ending)
{
    const tp running = start_tp();
    node.stays_silent(TP_ENDED);
    verb& ended = issue(make_on(running, TP_ENDED));
    EXPECT_EQ(ended.result, VAV_IN_PROGRESS);
    EXPECT_EQ(run(make_on(running, CONFIRM, CONV_7)).codes(), rc(PARAMETER_CHECK, SEC_BAD_TP_ID));
    node.answer(node.last(TP_ENDED));
    EXPECT_EQ(ended.codes(), rc(OK));
}

}  // namespace tessaly::test
