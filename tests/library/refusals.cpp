// Verbs that are refused before anything is sent.
#include "tests/support/library_test.h"

namespace tessaly::test {

// clang-format off
constexpr struct { const char* why; u16 opcode; u8 format; rc codes; } refusals[] = {
    {"opcode 0",                                      0x0000,              0,    {INVALID_VERB, UNTOUCHED}},
    {"no verb has this opcode",                       0x0015,              0,    {INVALID_VERB, UNTOUCHED}},
    {"the first opcode past the main range",          0x0103,              0,    {INVALID_VERB, UNTOUCHED}},
    {"the last opcode before the second range",       0xF0FF,              0,    {INVALID_VERB, UNTOUCHED}},
    {"a TP server verb through APPC",                 0xF104,              0,    {INVALID_VERB, UNTOUCHED}},
    {"the highest opcode",                            0xFFFF,              0,    {INVALID_VERB, UNTOUCHED}},
    {"RECEIVE_ALLOCATE_EX exists in format 1 only",   RECEIVE_ALLOCATE_EX, 0,    {INVALID_VERB, UNTOUCHED}},
    {"... and not in format 2",                       RECEIVE_ALLOCATE_EX, 2,    {INVALID_VERB, UNTOUCHED}},
    {"CONFIRMED exists in format 0 only",             CONFIRMED,           1,    {PARAMETER_CHECK, SEC_BAD_FORMAT}},
    {"SEND_DATA has no format 2",                     SEND_DATA,           2,    {PARAMETER_CHECK, SEC_BAD_FORMAT}},
    {"REGISTER_CPIC_TP exists in format 0 only",      REGISTER_CPIC_TP,    1,    {PARAMETER_CHECK, SEC_BAD_FORMAT}},
    {"TP_STARTED exists in format 0 only",            TP_STARTED,          1,    {PARAMETER_CHECK, SEC_BAD_FORMAT}},
    {"no such TP",                                    CONFIRM,             0,    {PARAMETER_CHECK, SEC_BAD_TP_ID}},
    {"no such TP to end",                             TP_ENDED,            0,    {PARAMETER_CHECK, SEC_BAD_TP_ID}},
};
// clang-format on

using refusing = library_test;

TEST_F(refusing, is_reported_in_the_block_and_sends_nothing)
{
    tp nobody = start_tp();
    nobody.id[4] ^= 0x55;
    const holdings before = node.held();
    const size_t sent = node.sent.size();
    for (const auto& row : refusals) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(run(make_on(nobody, row.opcode, CONV_7, row.format)).codes(), row.codes);
        verb& v = issue(make_on(nobody, row.opcode, CONV_7, row.format));
        EXPECT_EQ(v.result, VAV_COMPLETE);
        EXPECT_EQ(v.codes(), row.codes);
    }
    EXPECT_EQ(node.sent.size(), sent);
    EXPECT_EQ(node.held(), before);
}

}  // namespace tessaly::test
