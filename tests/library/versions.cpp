// The versioned entry points: what they make of a block's format, and what they tell the node about the process.
#include "tests/support/library_test.h"

namespace tessaly::test {

using versions = library_test;

TEST_F(versions, choose_the_format)
{
    // clang-format off
    const struct { u16 opcode; u8 version_1[2], version_2[2]; } cases[] = {  // formats for a caller's 0 and 1
        {ALLOCATE,              {1, 1}, {1, 1}}, {DEALLOCATE,          {1, 1}, {1, 1}}, {GET_ATTRIBUTES,    {1, 1}, {1, 1}},
        {RECEIVE_ALLOCATE,      {1, 1}, {1, 1}}, {GET_TP_PROPERTIES,   {1, 1}, {1, 1}}, {TEST_RTS_AND_POST, {1, 1}, {1, 1}},
        {RECEIVE_ALLOCATE_CPIC, {1, 1}, {1, 1}}, {RECEIVE_ALLOCATE_EX, {1, 1}, {1, 1}}, {CONFIRM,           {0, 0}, {0, 1}},
        {GET_TYPE,              {0, 0}, {0, 1}}, {SEND_DATA,           {0, 0}, {0, 1}}, {FLUSH,             {0, 0}, {0, 0}},
        {TP_STARTED,            {0, 0}, {0, 0}}, {REGISTER_CPIC_TP,    {0, 0}, {0, 0}}, {0x0015,            {0, 0}, {0, 0}},
    };
    // clang-format on
    for (const auto& row : cases) {
        for (u8 format = 0; format < 2; ++format) {
            SCOPED_TRACE(::testing::Message() << "opcode 0x" << std::hex << row.opcode << " format " << u32{format});
            for (const u32 version : {1u, 2u}) {
                verb& v = make(row.opcode, format, 256);
                appc_c_async_version(version, v.block(), completed, CORR);
                EXPECT_EQ(v.header().format, (version == 1 ? row.version_1 : row.version_2)[format]);
            }
        }
    }
}

TEST_F(versions, and_formats_beyond_the_known_are_reported_and_change_nothing)
{
    verb& v = make(CONFIRM, 1);
    for (const u32 version : {0u, 3u}) {
        node.expect_assertion("FALSE");
        appc_c_version(version, v.block());
        EXPECT_EQ(v.codes(), rc(PARAMETER_CHECK, SEC_BAD_TP_ID)) << "the verb is issued all the same";
        EXPECT_EQ(v.header().format, 1);
    }
    EXPECT_EQ(vav_appc_caps, vav_appc_caps_5_1_2);

    verb& beyond = make(CONFIRM, 2);
    node.expect_assertion("((VAV_HDR(vcb)->format) == 0) || ((VAV_HDR(vcb)->format) == 1)");
    appc_c_version(2, beyond.block());
    EXPECT_EQ(beyond.codes(), rc(PARAMETER_CHECK, SEC_BAD_FORMAT));
}

TEST_F(versions, raise_what_new_paths_tell_the_node)
{
    const bytes level_5 = {6, 0, 1, 0, 0x15, 0};
    const bytes level_6 = {8, 0, 1, 0, 0x15, 0, 0x01, 0xF0};
    const bytes level_7 = {8, 0, 1, 0, 0x15, 0, 0x02, 0xF0};
    const u32 first = start_tp().path;
    appc_c_version(1, tp_started().block());
    EXPECT_EQ(node.paths.rbegin()->second.caps, level_6);
    appc_c_version(2, tp_started().block());
    EXPECT_EQ(node.paths.rbegin()->second.caps, level_7);
    EXPECT_EQ(node.paths.at(start_tp().path).caps, level_7) << "the last version wins for entries without one";
    EXPECT_EQ(node.paths.at(first).caps, level_5);
}

}  // namespace tessaly::test
