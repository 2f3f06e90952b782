// How the playing clients write messages and read answers.
#include "tests/engine/playing.h"

#include "common/ebcdic.h"
#include "verbs/layout_64.h"

#include <algorithm>
#include <cstring>

namespace tessaly::node::playing {

namespace {

constexpr u32 HEADER = sizeof(verb_message_header);

block_format travelling(u16 opcode, u8 format)
{
    if (opcode == TP_STARTED)
        return {112, 112, 0, 0};
    if (opcode == RECEIVE_ALLOCATE)
        return {192, 192, 0, 0};
    const verb_row* const row = find_verb(opcode);
    return row == nullptr ? block_format{24, 24, 0, 0} : row->format[format];
}

verb_message_header header_in(const bytes& message)
{
    verb_message_header header;
    std::memcpy(&header, message.data(), sizeof header);
    return header;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const rc& codes)
{
    return out << std::hex << codes.primary << '/' << codes.secondary << std::dec;
}

void put_ebcdic(u8* field, std::size_t width, std::string_view text)
{
    std::memset(field, EBCDIC_BLANK, width);
    std::transform(text.begin(), text.end(), field, [](char c) { return AE_table[static_cast<u8>(c)]; });
}

void put_ascii(u8* field, std::size_t width, std::string_view text)
{
    std::memset(field, ' ', width);
    std::memcpy(field, text.data(), text.size());
}

std::string ebcdic_text(const u8* field, std::size_t width)
{
    std::string text;
    for (std::size_t i = 0; i < width && field[i] != EBCDIC_BLANK; ++i)
        text += static_cast<char>(std::find(AE_table.begin(), AE_table.end(), field[i]) - AE_table.begin());
    return text;
}

u8* world::add(client_id client, frame_kind kind, u32 path, u32 size)
{
    if (refuse_next != 0) {
        --refuse_next;
        return nullptr;
    }
    frames.push_back({kind, client, path, bytes(size, 0xEE)});
    return frames.back().content.data();
}

template <typename Wanted>
static std::optional<got> take_first(std::vector<got>& frames, Wanted wanted)
{
    const auto found = std::find_if(frames.begin(), frames.end(), wanted);
    if (found == frames.end())
        return std::nullopt;
    got taken = std::move(*found);
    frames.erase(found);
    return taken;
}

std::optional<got> world::take(client_id client, frame_kind kind, u32 path)
{
    return take_first(frames, [=](const got& each) { return each.client == client && each.kind == kind && each.path == path; });
}

std::optional<got> world::take_answer(client_id client, u32 path, u32 pend_handle)
{
    auto taken = take_first(frames, [=](const got& each) {
        return each.kind == frame_kind::message && header_in(each.content).pend_handle == pend_handle;
    });
    EXPECT_TRUE(!taken || (taken->client == client && taken->path == path)) << "the answer went another way";
    return taken;
}

std::optional<appl_ready_datagram> world::take_ready(client_id client, u32 tp_handle)
{
    const std::optional<got> taken = take(client, frame_kind::datagram, 0);
    if (!taken)
        return std::nullopt;
    appl_ready_datagram ready{};
    std::memcpy(&ready, taken->content.data(), std::min(taken->content.size(), sizeof ready));
    EXPECT_TRUE(taken->content.size() == sizeof ready && ready.header.length == sizeof ready);
    EXPECT_EQ(ready.header.type, DATAGRAM_APPL_READY);
    EXPECT_EQ(ready.tp_handle, tp_handle);
    return ready;
}

void EngineTest::TearDown()
{
    for (const got& left : w.frames)
        ADD_FAILURE() << "client " << left.client << " got a frame of kind " << static_cast<int>(left.kind)
                      << " on path " << left.path << " that the scenario does not know";
}

verb_bytes program::compose(const void* block, std::span<const u8> data)
{
    u8 copy[256] = {};
    const u16 opcode = header_of(block).opcode;
    const block_format layout = travelling(opcode, header_of(block).format);
    std::memcpy(copy, block, layout.length);
    if (opcode == TP_STARTED || opcode == RECEIVE_ALLOCATE)
        header_of(copy).format = 1;
    else
        std::memcpy(header_of(copy).tp_id, tp_id, sizeof tp_id);
    const u16 length_at = find_verb(opcode) != nullptr ? find_verb(opcode)->sent[0].length_at : u16{0};
    if (length_at != 0 && opcode != SEND_CONVERSATION && load<u16>(copy, length_at) == 0)
        store(copy, length_at, static_cast<u16>(data.size()));
    widen_block(copy, layout);

    verb_bytes message{{}, bytes(copy, copy + layout.node_length), bytes(data.begin(), data.end())};
    message.header.dest_corr = node_corr;
    message.header.src_corr = handle;
    message.header.buf_len = HEADER + layout.node_length;
    message.header.msg_len = message.header.buf_len + static_cast<u32>(data.size());
    message.header.kind = VERB_MESSAGE_KIND;
    message.header.code = VERB_MESSAGE_CODE;
    message.header.pend_handle = w->next_number++;
    return message;
}

void program::send(const verb_bytes& message)
{
    bytes block(HEADER);
    std::memcpy(block.data(), &message.header, HEADER);
    block.insert(block.end(), message.block.begin(), message.block.end());
    w->feed({.kind = frame_kind::message, .client = client, .path = path, .block = block, .data = message.data});
}

bool program::take_apart(u32 pend_handle, void* block, std::size_t size, verb_message_header& header, bytes& data)
{
    std::optional<got> taken = w->take_answer(client, path, pend_handle);
    if (!taken)
        return false;
    header = header_in(taken->content);
    const block_format layout =
        travelling(header_of(taken->content.data() + HEADER).opcode, header_of(taken->content.data() + HEADER).format);
    EXPECT_EQ(header.dest_corr, handle);
    EXPECT_EQ(header.buf_len, HEADER + layout.node_length);
    EXPECT_EQ(header.msg_len, taken->content.size());
    data.assign(taken->content.begin() + header.buf_len, taken->content.end());
    narrow_block(taken->content.data() + HEADER, layout);
    std::memcpy(block, taken->content.data() + HEADER, std::min<std::size_t>(size, layout.length));
    return true;
}

program start_tp(world& w, client_id client, std::string_view lu)
{
    program tp{w, client};
    tp.open();
    auto verb = verb_of_tp<appc_tp_started>(TP_STARTED);
    alias(verb.lu_alias, lu);
    name(verb.tp_name, "CALLER");
    const auto started = tp.run(verb);
    EXPECT_EQ(started.codes(), rc{});
    EXPECT_EQ(text_of(started.block.fq_lu_name), "TESSALY." + std::string(lu.empty() ? "LOCAL" : lu));
    tp.node_corr = started.header.src_corr;
    std::memcpy(tp.tp_id, started.block.tp_id, sizeof tp.tp_id);
    return tp;
}

announce_datagram announcement(u32 tp_handle, std::string_view tp_name, std::string_view lu, bool cpic)
{
    announce_datagram datagram{};
    datagram.header = {sizeof datagram, DATAGRAM_ANNOUNCE};
    datagram.src_corr = tp_handle;
    if (!cpic) {
        name(datagram.tp_name.name, tp_name);
        datagram.tp_name.length = static_cast<u32>(tp_name.size());
    }
    alias(datagram.lu_alias, lu);
    return datagram;
}

cpic_datagram cpic_name(u16 type, std::string_view tp_name)
{
    cpic_datagram datagram{};
    datagram.header = {sizeof datagram, type};
    name(datagram.tp_name.name, tp_name);
    datagram.tp_name.length = type == DATAGRAM_REGISTER_CPIC ? static_cast<u32>(tp_name.size()) : 64;
    return datagram;
}

program announce(world& w, std::string_view tp_name, client_id client, std::string_view lu, bool cpic)
{
    program tp{w, client};
    w.datagram(client, announcement(tp.handle, tp_name, lu, cpic));
    return tp;
}

std::optional<answered<appc_receive_allocate>> receive_allocate(program& waiting)
{
    const auto ready = waiting.w->take_ready(waiting.client, waiting.handle);
    if (!ready)
        return std::nullopt;
    EXPECT_EQ(ready->app_rdy_status, VSM_ST_READY);
    EXPECT_EQ(ready->attach_addr, NODE_ADDRESS);
    waiting.open();
    auto verb = verb_of_tp<appc_receive_allocate>(RECEIVE_ALLOCATE);
    std::memcpy(verb.tp_name, ready->tp_name, sizeof verb.tp_name);
    verb.conv_id = ready->attach_corr;
    auto taken = waiting.run(verb);
    waiting.node_corr = taken.header.src_corr;
    std::memcpy(waiting.tp_id, taken.block.tp_id, sizeof waiting.tp_id);
    waiting.conv = taken.block.conv_id;
    respond(waiting, ready->attach_corr, ATTACH_TAKEN);
    return taken;
}

void accept(program& waiting)
{
    const auto taken = receive_allocate(waiting);
    ASSERT_TRUE(taken) << "the node found no conversation";
    EXPECT_EQ(taken->codes(), rc{});
}

appc_allocate allocate(std::string_view tp_name, u8 sync_level, u8 conv_type)
{
    return conversation_verb<appc_allocate>(ALLOCATE, 0, [=](auto& verb) {
        verb.opext = verb.conv_type = conv_type;
        verb.sync_level = sync_level;
        alias(verb.plu_alias, "SERVER");
        name(verb.mode_name, "INTER");
        name(verb.tp_name, tp_name);
    });
}

appc_send_conversation send_conversation(std::string_view tp_name, u16 pip_dlen, std::size_t dlen, u8 conv_type)
{
    auto verb = verb_of_tp<appc_send_conversation>(SEND_CONVERSATION);
    verb.opext = verb.conv_type = conv_type;
    alias(verb.plu_alias, "SERVER");
    name(verb.tp_name, tp_name);
    verb.pip_dlen = pip_dlen;
    verb.dlen = static_cast<u16>(dlen);
    return verb;
}

rc outcome_of(program& tp, u32 pend_handle)
{
    const auto answer = tp.answer<appc_header>(pend_handle);
    return answer ? answer->codes() : WAITS;
}

u32 converse_with(program& a, std::string_view tp_name)
{
    const auto allocated = a.run(allocate(tp_name));
    EXPECT_EQ(allocated.codes(), rc{});
    return allocated.block.conv_id;
}

pair converse(world& w, u8 sync_level, u8 conv_type)
{
    program b = announce(w, "ECHO");
    program a = start_tp(w);
    const auto allocated = a.run(allocate("ECHO", sync_level, conv_type));
    EXPECT_EQ(allocated.codes(), rc{});
    accept(b);
    return {a, b, allocated.block.conv_id, b.conv};
}

}  // namespace tessaly::node::playing
