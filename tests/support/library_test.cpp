#include "tests/support/library_test.h"

#include "v6/vav/alias_map.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace tessaly::test {

namespace {

library_test* this_test = nullptr;

void called(void* vcb, callback call)
{
    EXPECT_GE(the_node->lock_depth, 1u) << "a callback without the lock";
    const auto found = std::ranges::find_if(this_test->verbs, [vcb](verb& each) { return each.block() == vcb; });
    ASSERT_NE(found, this_test->verbs.end()) << "a callback for a block that was never issued";
    found->calls.push_back(std::move(call));
    this_test->completion_order.push_back(&*found);
    if (found->on_call)
        found->on_call();
}

}  // namespace

void completed(void* vcb, u8* tp_id, u32 conv_id, u32 corr)
{
    called(vcb, {callback::completion, as_bytes(tp_id, 8), conv_id, corr});
}

void post(void* vcb, u8* tp_id, u32 conv_id)
{
    called(vcb, {callback::post, as_bytes(tp_id, 8), conv_id});
}

void forget(void* vcb, u8* tp_id, u32 conv_id, u16 type, u32 value)
{
    called(vcb, {callback::forget, as_bytes(tp_id, 8), conv_id, value, type});
}

verb::verb(u16 opcode, u8 format, u32 block_bytes) : memory(std::make_unique<u8[]>(block_bytes)), size(block_bytes)
{
    header().opcode = opcode;
    header().format = format;
    header().secondary_rc = UNTOUCHED;
}

library_test::library_test()
{
    this_test = this;
    the_node = &node;
    std::memset(ptrc, 0, 9);
    trc_api = {};
    ptrc[1] = 0x08;  // in every test each request has its response
    std::strcpy(BoxName, "box");
    vav_appc_caps = vav_appc_caps_5_1_2;
    unsetenv("APPC_ATTACH_ID");
    directory = (std::filesystem::temp_directory_path() / "tessaly-test-XXXXXX").string();
    alias_map_directory = mkdtemp(directory.data());
}

void library_test::TearDown()
{
    for (verb& each : verbs)
        each.on_call = nullptr;  // what it refers to has left its scope
    node.refuse_nothing();
    restart_with({});
    node.check_at_end();
    EXPECT_EQ(node.traced_as_pending(), 0);
    for (const verb& each : verbs)
        EXPECT_TRUE(each.result == 0 || each.completions() == each.accepted) << "opcode " << load<u16>(each.memory.get(), 0);
}

verb& library_test::make(u16 opcode, u8 format, u32 block_bytes)
{
    const published_verb* row = published(opcode);
    if (block_bytes == 0)
        block_bytes = row == nullptr ? sizeof(block_header) : row->block_bytes[format == 0 ? 0 : 1];
    return verbs.emplace_back(opcode, format, block_bytes);
}

verb& library_test::make_on(const tp& of, u16 opcode, u32 conv_id, u8 format)
{
    verb& made = make(opcode, format);
    std::ranges::copy(of.id, made.header().tp_id);
    if (conv_id != 0)
        made.header().conv_id = conv_id;
    return made;
}

verb& library_test::patterned(const tp& of, u16 opcode, u8 format, u32 block_bytes)
{
    verb& made = make(opcode, format, block_bytes);
    for (u32 i = 4; i < made.size; ++i)  // each byte differs from those 4 and 8 further, and none looks like the node's
        made.block()[i] = static_cast<u8>((i * 7 + 3) & 0x7F);
    for (const u32 length_at : {26, 28, 150, 152, 186})
        if (length_at + 2 <= made.size)
            store<u16>(made.block(), length_at, 0);
    if (opcode == RECEIVE_AND_POST || opcode == TEST_RTS_AND_POST)
        store<u32>(made.block(), opcode == RECEIVE_AND_POST ? 0x28 : 0x1C, 0);
    std::ranges::copy(of.id, made.header().tp_id);
    return made;
}

verb& library_test::tp_started(const std::string& name, const std::string& lu_alias)
{
    verb& made = make(TP_STARTED);
    auto& block = made.as<appc_tp_started>();
    std::memset(block.lu_alias, ' ', sizeof block.lu_alias);
    std::ranges::copy(lu_alias, block.lu_alias);
    std::ranges::copy(ebcdic(name, 64), block.tp_name);
    return made;
}

verb& library_test::enter(bool synchronous, verb& what, const std::function<void()>& meanwhile)
{
    if (synchronous)
        node.while_asleep(meanwhile);
    enter(synchronous, what);
    if (!synchronous)
        meanwhile();
    return what;
}

tp library_test::start_tp(const char* name)
{
    verb& started = run(tp_started(name));
    EXPECT_EQ(started.codes(), rc{OK});
    return tp_of(started);
}

tp library_test::tp_of(verb& started) const
{
    const u8* id = started.block() + (started.header().opcode == TP_STARTED ? 20 : 76);
    const u32 handle = load<u32>(id, 4);
    const auto of_tp = [handle](auto& sent) { return sent.header().src_corr == handle; };
    const auto sent = std::find_if(node.sent.rbegin(), node.sent.rend(), of_tp);
    return {as_bytes(id, 8), handle, sent == node.sent.rend() ? 0 : sent->path};
}

void library_test::conversation_ready(u32 tp_handle, u32 status, const char* name)
{
    const bytes fields = words({92 | 0x82 << 16, status, tp_handle, ATTACH_ADDRESS, ATTACH_CORR, 0, 0});
    node.sends_datagram(joined({fields, ebcdic(name, 64)}));
}

void library_test::restart_with(const file_texts& files)
{
    stop_library();
    std::filesystem::remove_all(directory);
    for (const auto& [name, text] : files) {
        std::filesystem::create_directory(directory);
        std::ofstream(directory + "/" + name, std::ios::binary) << text;
    }
}

::testing::AssertionResult same_bytes(const bytes& actual, const bytes& expected)
{
    if (actual == expected)
        return ::testing::AssertionSuccess();
    const auto [is, should] = std::ranges::mismatch(actual, expected);
    return ::testing::AssertionFailure() << "first at byte " << is - actual.begin() << " of " << actual.size() << ", not "
                                         << expected.size() << ": " << ::testing::PrintToString(bytes(is, actual.end()))
                                         << " is not " << ::testing::PrintToString(bytes(should, expected.end()));
}

}  // namespace tessaly::test
