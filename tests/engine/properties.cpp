// What the node carries and tells: names, users, units of work, PIP data, sessions; and SEND_CONVERSATION.
#include "tests/engine/playing.h"

#include <cstring>
#include <map>

namespace tessaly::node::playing {
namespace {

using Properties = EngineTest;

// A unit of work as it travels: no gap behind the name.
appc_luw_id packed(std::string_view lu_name, char instance)
{
    appc_luw_id luw{};
    luw.fq_lu_name_len = static_cast<u8>(lu_name.size());
    put_ebcdic(luw.fq_lu_name, sizeof luw.fq_lu_name, lu_name);
    std::memset(luw.fq_lu_name + lu_name.size(), instance, 8);
    return luw;
}

std::string text_of(const appc_luw_id& luw)
{
    return ebcdic_text(luw.fq_lu_name, std::min<std::size_t>(luw.fq_lu_name_len, 17));
}

bool same(const appc_luw_id& one, const appc_luw_id& other)
{
    return std::memcmp(&one, &other, sizeof one) == 0;
}

appc_get_tp_properties properties_of(program& tp, u8 format)
{
    auto verb = verb_of_tp<appc_get_tp_properties>(GET_TP_PROPERTIES);
    verb.format = format;
    return tp.run(verb).block;
}

appc_set_tp_properties user_is(std::string_view user)
{
    auto verb = verb_of_tp<appc_set_tp_properties>(SET_TP_PROPERTIES);
    verb.set_user_id = 1;
    name(verb.user_id, user);
    return verb;
}

TEST_F(Properties, of_a_tp_are_kept_and_given_back)
{
    program a = start_tp(w, 1, "HERE");
    const appc_get_tp_properties fresh = properties_of(a, 1);
    EXPECT_EQ(playing::text_of(fresh.tp_name), "CALLER");
    EXPECT_EQ(playing::text_of(fresh.fq_lu_name), "TESSALY.HERE");
    EXPECT_EQ(std::string(fresh.lu_alias, fresh.lu_alias + 8), "HERE    ");
    EXPECT_EQ(text_of(fresh.luw_id), "TESSALY.HERE") << "the node gives each TP a unit of work";
    program other = start_tp(w, 1, "HERE");
    EXPECT_FALSE(same(fresh.luw_id, properties_of(other, 0).luw_id));

    auto set = user_is("MAX");
    set.set_prot_id = 1;
    set.prot_id = packed("NET.ONE", 'p');
    set.set_unprot_id = 2;  // only 1 says that there is one
    set.unprot_id = packed("NET.TWO", 'u');
    EXPECT_EQ(a.codes(set), rc{});
    EXPECT_TRUE(same(properties_of(a, 0).luw_id, set.prot_id));
    EXPECT_TRUE(same(properties_of(a, 1).unprot_luw_id, fresh.unprot_luw_id));
    set.set_unprot_id = 1;
    EXPECT_EQ(a.codes(set), rc{});
    EXPECT_TRUE(same(properties_of(a, 1).unprot_luw_id, set.unprot_id));
    EXPECT_EQ(playing::text_of(properties_of(a, 0).user_id), "MAX");
    EXPECT_EQ(a.codes(tp_ended()), rc{});
    EXPECT_EQ(a.codes(tp_ended()), (rc{PARAMETER_CHECK, SEC_BAD_TP_ID}));
}

std::string names_in(const appc_receive_allocate& block)
{
    std::string all;
    for (const std::string& each : {playing::text_of(block.tp_name), playing::text_of(block.mode_name),
                                    playing::text_of(block.fqplu_name), playing::text_of(block.fq_lu_name)})
        all += each + ' ';
    return all.append(block.plu_alias, block.plu_alias + 8).append(block.lu_alias, block.lu_alias + 8);
}

TEST_F(Properties, of_an_attach_reach_the_accepting_side_without_the_password)
{
    const std::map<u8, std::string> users{{APPC_SECURITY_NONE, ""}, {APPC_SECURITY_SAME, "MAX"}, {APPC_SECURITY_PGM, "EVA"}};
    for (const auto& [security, user_told] : users) {
        program b = announce(w, "ECHO");
        program a = start_tp(w);
        EXPECT_EQ(a.codes(user_is("MAX")), rc{});
        appc_allocate verb = allocate("ECHO");
        verb.security = security;
        name(verb.user_id, "EVA");
        name(verb.pwd, "SECRET");
        const auto allocated = a.run(verb, as_bytes("some PIP data"));
        const auto taken = receive_allocate(b);
        ASSERT_TRUE(taken);
        EXPECT_EQ(names_in(taken->block), "ECHO INTER TESSALY.LOCAL TESSALY.SERVER LOCAL   SERVER  ");
        EXPECT_TRUE(taken->block.sync_level == APPC_SYNC_CONFIRM && taken->block.conv_type == APPC_MAPPED);
        EXPECT_EQ(playing::text_of(taken->block.user_id), user_told);
        EXPECT_EQ(playing::text_of(properties_of(b, 0).user_id), user_told);
        EXPECT_EQ(taken->block.pip_incoming, 1);
        EXPECT_EQ(taken->block.pip_dlen, 13);
        EXPECT_EQ(taken->block.conv_group_id, allocated.block.conv_group_id);
        EXPECT_TRUE(same(properties_of(b, 1).luw_id, properties_of(a, 1).luw_id)) << "one unit of work";
        const auto* raw = reinterpret_cast<const u8*>(&taken->block);
        EXPECT_EQ(std::search(raw, raw + sizeof taken->block, verb.pwd, verb.pwd + 6), raw + sizeof taken->block);
    }
}

TEST_F(Properties, of_a_conversation_are_the_same_on_both_sides)
{
    auto [a, b, at_a, at_b] = converse(w);
    const auto ask = [](program& tp, u32 conv, u8 format) {
        return tp.run(conversation_verb<appc_get_attributes>(GET_ATTRIBUTES, conv, [=](auto& v) { v.format = format; })).block;
    };
    const appc_get_attributes one = ask(a, at_a, 1);
    const appc_get_attributes other = ask(b, at_b, 1);
    EXPECT_TRUE(one.conv_type == APPC_MAPPED && one.sync_level == APPC_SYNC_CONFIRM);
    const std::string names[] = {playing::text_of(one.mode_name), playing::text_of(one.net_name), playing::text_of(one.lu_name),
                                 playing::text_of(one.plu_un_name), playing::text_of(one.fqplu_name)};
    const std::string expected[] = {"INTER", "TESSALY", "LOCAL", "SERVER", "TESSALY.SERVER"};
    EXPECT_TRUE(std::equal(std::begin(names), std::end(names), expected)) << testing::PrintToString(names);
    EXPECT_EQ(playing::text_of(other.fqplu_name), "TESSALY.LOCAL");
    EXPECT_EQ(text_of(one.luw_id), "TESSALY.LOCAL");
    EXPECT_NE(one.conv_group_id, 0u);
    EXPECT_EQ(one.conv_group_id, other.conv_group_id);
    EXPECT_EQ(std::memcmp(&one.conv_corr_len, &other.conv_corr_len, 9), 0);
    EXPECT_EQ(std::memcmp(&one.luw_id, &other.luw_id, sizeof one.luw_id + sizeof one.sess_id), 0);
    EXPECT_EQ(ask(a, at_a, 0).conv_group_id, one.conv_group_id);
    auto type = conversation_verb<appc_get_type>(GET_TYPE, at_a, [](auto&) {});
    EXPECT_EQ(a.run(type).block.conv_type, APPC_MAPPED);
    type.opext = 0;
    EXPECT_EQ(a.run(type).block.conv_type, APPC_MAPPED) << "whichever way it is asked";
}

TEST_F(Properties, send_conversation_goes_the_whole_way)
{
    for (const u8 type : {u8{APPC_MAPPED}, u8{APPC_BASIC}}) {
        program a = start_tp(w);
        const std::string_view data{type == APPC_MAPPED ? "PIPrecord" : "PIP\0\6reco", 9};
        const auto sent = a.run(send_conversation("ECHO", 3, 6, type), as_bytes(data));
        EXPECT_EQ(sent.codes(), rc{});
        EXPECT_NE(sent.block.conv_group_id, 0u);
        program b = announce(w, "ECHO");
        const auto taken = receive_allocate(b);
        ASSERT_TRUE(taken);
        EXPECT_EQ(taken->block.pip_dlen, 3);
        EXPECT_EQ(taken->block.conv_group_id, sent.block.conv_group_id);
        appc_receive verb = receive(b.conv);
        verb.opext = type;
        verb.fill = APPC_FILL_LL;
        EXPECT_EQ(b.run(verb).text(), data.substr(3));
        EXPECT_EQ(b.codes(verb), (rc{DEALLOC_NORMAL, 0}));
    }
    program a = start_tp(w);
    EXPECT_EQ(a.codes(send_conversation("ECHO", 0, 3, APPC_BASIC), as_bytes({"\0\4x", 3})),
              (rc{PARAMETER_CHECK, APPC_SEC_BAD_LL}));
    EXPECT_EQ(a.codes(send_conversation("ECHO", 2, 4), as_bytes("data")), (rc{PARAMETER_CHECK, APPC_SEC_INVALID_DATA_SEGMENT}));
    a.send([&] { const auto v = send_conversation("ECHO", 2, 4); return a.compose(&v, as_bytes("longer than said")); }());
    EXPECT_TRUE(w.take(a.client, frame_kind::path_failed, a.path));
}

}  // namespace
}  // namespace tessaly::node::playing
