#include "tests/support/library_test.h"

#include "v6/vav/alias_map.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <ostream>

namespace tessaly::test {

namespace {

library_test* running = nullptr;
std::map<void*, verb*> verb_by_block;

}  // namespace

std::ostream& operator<<(std::ostream& out, const outcome& codes)
{
    return out << std::hex << "rc(0x" << codes.primary << ", 0x" << codes.secondary << ")" << std::dec;
}

verb::verb(u16 opcode, u8 format, u32 size) : block_(std::make_unique<u8[]>(size)), size_(size)
{
    header().opcode = opcode;
    header().format = format;
    header().secondary_rc = UNTOUCHED;
}

library_test::library_test()
{
    running = this;
    the_node = &node;
    std::memset(ptrc, 0, 9);
    std::strcpy(BoxName, "box");
    vav_appc_caps = vav_appc_caps_5_1_2;
    unsetenv("APPC_ATTACH_ID");
    std::string pattern = (std::filesystem::temp_directory_path() / "tessaly-test-XXXXXX").string();
    directory_ = mkdtemp(pattern.data());
    alias_map_directory = directory_.c_str();
}

library_test::~library_test()
{
    std::filesystem::remove_all(directory_);
    verb_by_block.clear();
    the_node = nullptr;
    running = nullptr;
}

void library_test::TearDown()
{
    for (verb& each : verbs_)
        each.on_call = nullptr;  // what it refers to has left its scope
    node.refuse_nothing();
    stop_library();
    node.check_at_end();
}

void library_test::stop_library()
{
    node.reports(NODE_EVENT_TERMINATED);
}

verb& library_test::make(u16 opcode, u8 format, u32 size)
{
    if (size == 0) {
        const published_verb* row = published(opcode);
        size = row == nullptr ? sizeof(block_header) : row->block_bytes[format == 0 ? 0 : 1];
    }
    verb& made = verbs_.emplace_back(opcode, format, size);
    verb_by_block[made.block()] = &made;
    return made;
}

verb& library_test::make_on(const tp& of, u16 opcode, u32 conv_id, u8 format)
{
    verb& made = make(opcode, format);
    std::copy(of.id.begin(), of.id.end(), made.header().tp_id);
    if (conv_id != 0)
        made.header().conv_id = conv_id;
    return made;
}

verb& library_test::enter(entry through, verb& what)
{
    void* const block = what.block();
    switch (through) {
    case entry::appc: APPC(block); break;
    case entry::appc_c: APPC_C(block); break;
    case entry::appc_p: APPC_P(block); break;
    case entry::appc_c1: appc_c1(block); break;
    case entry::appc_async: what.result = APPC_Async(block, completed, CORR); break;
    case entry::appc_async1: what.result = appc_async1(block, completed, CORR); break;
    case entry::appc_async_int: what.result = appc_async_int(block, completed, CORR); break;
    }
    return what;
}

verb& library_test::tp_started(const char* name, const char* lu_alias)
{
    verb& made = make(TP_STARTED);
    auto& block = made.as<appc_tp_started>();
    std::memset(block.lu_alias, ' ', sizeof block.lu_alias);
    std::memcpy(block.lu_alias, lu_alias, std::strlen(lu_alias));
    const bytes ebcdic_name = ebcdic(name, sizeof block.tp_name);
    std::copy(ebcdic_name.begin(), ebcdic_name.end(), block.tp_name);
    return made;
}

tp library_test::start_tp(const char* name)
{
    verb& started = run(tp_started(name));
    EXPECT_EQ(started.codes(), rc(OK));
    return tp_of(started);
}

tp library_test::tp_of(verb& started) const
{
    const u8* id = started.header().opcode == TP_STARTED ? started.as<appc_tp_started>().tp_id
                                                         : started.as<appc_receive_allocate>().tp_id;
    const u32 handle = load<u32>(id, 4);
    u32 path = 0;
    for (const sent_verb& sent : node.sent)
        if (sent.header().src_corr == handle)
            path = sent.path;
    return {as_bytes(id, 8), handle, path};
}

void library_test::conversation_ready(u32 tp_handle, u32 status, const char* name)
{
    appl_ready_datagram ready{
        {sizeof ready, DATAGRAM_APPL_READY}, status, tp_handle, ATTACH_ADDRESS, ATTACH_CORR, {}, {}};
    const bytes tp_name = ebcdic(name, sizeof ready.tp_name);
    std::copy(tp_name.begin(), tp_name.end(), ready.tp_name);
    node.sends_datagram(as_bytes(&ready, sizeof ready));
}

void library_test::write_file(const char* name, const std::string& text) const
{
    std::ofstream(std::filesystem::path(directory_) / name, std::ios::binary) << text;
}

void library_test::remove_file(const char* name) const
{
    std::filesystem::remove(std::filesystem::path(directory_) / name);
}

void library_test::called(void* vcb, const u8* tp_id, callback call)
{
    const auto found = verb_by_block.find(vcb);
    if (found == verb_by_block.end()) {
        ADD_FAILURE() << "a callback for a block that was never issued";
        return;
    }
    EXPECT_GE(running->node.lock_depth, 1u) << "a callback without the lock";
    call.tp_id = as_bytes(tp_id, 8);
    found->second->calls.push_back(std::move(call));
    if (found->second->on_call)
        found->second->on_call();
}

void library_test::completed(void* vcb, u8* tp_id, u32 conv_id, u32 corr)
{
    called(vcb, tp_id, {callback::completion, {}, conv_id, corr, 0});
}

void library_test::posted(void* vcb, u8* tp_id, u32 conv_id)
{
    called(vcb, tp_id, {callback::post, {}, conv_id, 0, 0});
}

void library_test::forgotten(void* vcb, u8* tp_id, u32 conv_id, u16 type, u32 value)
{
    called(vcb, tp_id, {callback::forget, {}, conv_id, value, type});
}

::testing::AssertionResult same_bytes(const bytes& actual, const bytes& expected)
{
    if (actual == expected)
        return ::testing::AssertionSuccess();
    if (actual.size() != expected.size())
        return ::testing::AssertionFailure() << actual.size() << " bytes instead of " << expected.size();
    u32 at = 0;
    while (actual[at] == expected[at])
        ++at;
    return ::testing::AssertionFailure() << "byte " << at << std::hex << " is 0x" << u32{actual[at]} << " instead of 0x"
                                         << u32{expected[at]};
}

bytes as_bytes(const void* start, u32 count)
{
    const u8* first = static_cast<const u8*>(start);
    return {first, first + count};
}

}  // namespace tessaly::test
