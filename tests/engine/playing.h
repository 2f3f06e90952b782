// Clients that play against the engine: they open paths, send verbs made from the structs of tessaly/appc.h and keep what they
// get. All scenarios of this folder use them. TearDown finds answers nobody asked for, and frames nobody looked at.
#pragma once

#include "localnode/engine/engine.h"
#include "verbs/block.h"
#include "verbs/catalogue.h"
#include "wire/datagrams.h"
#include "wire/verb_message.h"

#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace tessaly::node::playing {

struct rc {
    u16 primary = OK;
    u32 secondary = 0;
    bool operator==(const rc&) const = default;
};
std::ostream& operator<<(std::ostream& out, const rc& codes);

using bytes = std::vector<u8>;

struct got {
    frame_kind kind;
    client_id client;
    u32 path;
    bytes content;
};

// A verb as it is sent, and an answer taken apart.
struct verb_bytes {
    verb_message_header header;
    bytes block;  // in node layout
    bytes data;
};

template <typename Verb>
struct answered {
    Verb block{};
    verb_message_header header{};
    bytes data;

    rc codes() const { return {block.primary_rc, block.secondary_rc}; }
    std::string text() const { return {data.begin(), data.end()}; }
};

// EBCDIC, padded with blanks; an alias stays ASCII.
void put_ebcdic(u8* field, std::size_t width, std::string_view text);
void put_ascii(u8* field, std::size_t width, std::string_view text);
std::string ebcdic_text(const u8* field, std::size_t width);  // without the blanks behind it

template <std::size_t N>
void name(u8 (&field)[N], std::string_view text)
{
    put_ebcdic(field, N, text);
}
template <std::size_t N>
void alias(u8 (&field)[N], std::string_view text)
{
    put_ascii(field, N, text);
}
template <std::size_t N>
std::string text_of(const u8 (&field)[N])
{
    return ebcdic_text(field, N);
}

// The engine and everything it has sent that no scenario has looked at yet.
class world : public frame_sink {
public:
    u8* add(client_id client, frame_kind kind, u32 path, u32 size) override;

    void feed(const frame& input) { node.accept(input, *this); }
    void time(u64 now_ms) { feed({.kind = frame_kind::time_passed, .now_ms = told_ms = now_ms}); }
    void client_gone(client_id client) { feed({.kind = frame_kind::client_gone, .client = client}); }

    template <typename Datagram>
    void datagram(client_id client, const Datagram& content)
    {
        feed({.kind = frame_kind::datagram,
              .client = client,
              .block = {reinterpret_cast<const u8*>(&content), sizeof content}});
    }

    std::optional<got> take(client_id client, frame_kind kind, u32 path);
    std::optional<got> take_answer(client_id client, u32 path, u32 pend_handle);
    std::optional<appl_ready_datagram> take_ready(client_id client, u32 tp_handle);

    engine node;
    std::vector<got> frames;
    unsigned refuse_next = 0;  // frames for which there is no memory
    u64 told_ms = 0;
    u32 next_number = 100;     // for paths, handles and pending verbs: all different
};

// How many frames each scenario leaves is part of what it says, so none may be left over.
class EngineTest : public testing::Test {
protected:
    void TearDown() override;
    world w;
};

// One TP of a client, on its path.
class program {
public:
    program(world& in, client_id of) : w(&in), client(of), path(in.next_number++), handle(in.next_number++) {}

    void open() { w->feed({.kind = frame_kind::path_opened, .client = client, .path = path}); }
    void close() { w->feed({.kind = frame_kind::path_closed, .client = client, .path = path}); }

    // Sends a verb and leaves its answer, if any, to be taken by the number returned.
    template <typename Verb>
    u32 issue(Verb verb, std::span<const u8> data = {})
    {
        const verb_bytes message = compose(&verb, data);
        send(message);
        return message.header.pend_handle;
    }

    template <typename Verb>
    std::optional<answered<Verb>> answer(u32 pend_handle)
    {
        answered<Verb> result;
        if (!take_apart(pend_handle, &result.block, sizeof result.block, result.header, result.data))
            return std::nullopt;
        return result;
    }

    // Sends a verb that is answered at once.
    template <typename Verb>
    answered<Verb> run(const Verb& verb, std::span<const u8> data = {})
    {
        auto result = answer<Verb>(issue(verb, data));
        EXPECT_TRUE(result) << "no answer to verb " << verb.opcode;
        return result ? *result : answered<Verb>{};
    }
    template <typename Verb>
    rc codes(const Verb& verb, std::span<const u8> data = {})
    {
        return run(verb, data).codes();
    }

    verb_bytes compose(const void* block, std::span<const u8> data);
    void send(const verb_bytes& message);
    bool take_apart(u32 pend_handle, void* block, std::size_t size, verb_message_header& header, bytes& data);

    world* w;
    client_id client;
    u32 path;
    u32 handle;
    u32 node_corr = 0;
    u8 tp_id[8] = {};
    u32 conv = 0;  // the conversation that RECEIVE_ALLOCATE brought
};

program start_tp(world& w, client_id client = 1, std::string_view lu = "");

// Datagrams.
announce_datagram announcement(u32 tp_handle, std::string_view tp_name, std::string_view lu = "", bool cpic = false);
cpic_datagram cpic_name(u16 type, std::string_view tp_name);
inline cancel_announce_datagram cancellation(u32 tp_handle)
{
    return {{sizeof(cancel_announce_datagram), DATAGRAM_CANCEL_ANNOUNCE}, tp_handle};
}
inline attach_response_datagram response(u32 attach_corr, u32 reason)
{
    return {{sizeof(attach_response_datagram), DATAGRAM_ATTACH_RESPONSE}, reason, attach_corr, NODE_ADDRESS};
}

// A TP that waits for a conversation; accept sends its RECEIVE_ALLOCATE once the node has found it one.
program announce(world& w, std::string_view tp_name, client_id client = 2, std::string_view lu = "", bool cpic = false);
std::optional<answered<appc_receive_allocate>> receive_allocate(program& waiting);
void accept(program& waiting);
inline void respond(program& to, u32 attach_corr, u32 reason) { to.w->datagram(to.client, response(attach_corr, reason)); }

// What became of a verb that was issued; WAITS when it has no answer yet.
inline constexpr rc WAITS{0xEEEE, 0};
rc outcome_of(program& tp, u32 pend_handle);

template <typename Verb>
Verb verb_of_tp(u16 opcode)
{
    Verb verb{};
    verb.opcode = opcode;
    return verb;
}

// Blocks of verbs on a mapped conversation.
template <typename Verb, typename Fill>
Verb conversation_verb(u16 opcode, u32 conv, Fill fill)
{
    Verb verb{};
    verb.opcode = opcode;
    verb.opext = APPC_MAPPED_CONVERSATION;
    verb.conv_id = conv;
    fill(verb);
    return verb;
}
// clang-format off
appc_allocate allocate(std::string_view tp_name, u8 sync_level = APPC_SYNC_CONFIRM, u8 conv_type = APPC_MAPPED);
appc_send_conversation send_conversation(std::string_view tp_name, u16 pip_dlen, std::size_t dlen, u8 conv_type = APPC_MAPPED);
inline appc_send_data send_data(u32 conv, u8 type = APPC_SEND_NONE)
{ return conversation_verb<appc_send_data>(SEND_DATA, conv, [=](auto& v) { v.type = type; }); }
inline appc_receive receive(u32 conv, u16 max_len = 0xFFFF, u8 rtn_status = 0, u16 opcode = RECEIVE_AND_WAIT)
{ return conversation_verb<appc_receive>(opcode, conv, [=](auto& v) { v.max_len = max_len; v.rtn_status = rtn_status; }); }
inline appc_prepare_to_receive prepare_to_receive(u32 conv, u8 type = APPC_P_TO_R_FLUSH, u8 locks = APPC_LOCKS_SHORT)
{
    return conversation_verb<appc_prepare_to_receive>(PREPARE_TO_RECEIVE, conv,
                                                      [=](auto& v) { v.ptr_type = type; v.locks = locks; });
}
inline appc_deallocate deallocate(u32 conv, u8 type = APPC_DEALLOC_FLUSH)
{ return conversation_verb<appc_deallocate>(DEALLOCATE, conv, [=](auto& v) { v.dealloc_type = type; }); }
inline appc_send_error send_error(u32 conv, u8 direction = APPC_ERROR_RECEIVE_DIRECTION, u8 type = APPC_PROG_ERROR)
{ return conversation_verb<appc_send_error>(SEND_ERROR, conv, [=](auto& v) { v.err_dir = direction; v.err_type = type; }); }
inline appc_confirm confirm(u32 conv) { return conversation_verb<appc_confirm>(CONFIRM, conv, [](auto&) {}); }
inline appc_header plain(u16 opcode, u32 conv)  // CONFIRMED, FLUSH, REQUEST_TO_SEND, CANCEL_CONV
{ return conversation_verb<appc_header>(opcode, conv, [](auto&) {}); }
inline appc_test_rts_and_post test_rts(u32 conv, u16 opcode = TEST_RTS)
{ return conversation_verb<appc_test_rts_and_post>(opcode, conv, [](auto&) {}); }
inline appc_send_expedited_data send_expedited(u32 conv)
{ return conversation_verb<appc_send_expedited_data>(SEND_EXPEDITED_DATA, conv, [](auto&) {}); }
inline appc_receive_expedited_data receive_expedited(u32 conv, u16 max_len = 100, u8 rtn_ctl = APPC_IMMEDIATE)
{
    return conversation_verb<appc_receive_expedited_data>(RECEIVE_EXPEDITED_DATA, conv,
                                                          [=](auto& v) { v.max_len = max_len; v.rtn_ctl = rtn_ctl; });
}
inline appc_tp_ended tp_ended() { return verb_of_tp<appc_tp_ended>(TP_ENDED); }
// clang-format on

inline std::span<const u8> as_bytes(std::string_view text)
{
    return {reinterpret_cast<const u8*>(text.data()), text.size()};
}

// Two TPs that converse; the first has the turn.
struct pair {
    program a;
    program b;
    u32 at_a;
    u32 at_b;
};
u32 converse_with(program& a, std::string_view tp_name);  // allocates only
pair converse(world& w, u8 sync_level = APPC_SYNC_CONFIRM, u8 conv_type = APPC_MAPPED);

}  // namespace tessaly::node::playing
