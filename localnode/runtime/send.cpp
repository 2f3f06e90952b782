// What the library sends: messages on paths, datagrams to the node's control point.
#include "localnode/runtime/host.h"
#include "localnode/runtime/paths.h"
#include "localnode/runtime/record_handles.h"

#include "runtime/node_runtime.h"
#include "verbs/block.h"
#include "verbs/catalogue.h"
#include "wire/datagrams.h"
#include "wire/verb_message.h"

#include <cstring>
#include <new>
#include <span>

namespace tessaly::runtime {

namespace {

constexpr u32 LONGEST_MESSAGE = 1024 * 1024;

using bytes = std::span<const u8>;

bytes bytes_at(const void* address, u32 count) noexcept
{
    return address != nullptr ? bytes{static_cast<const u8*>(address), count} : bytes{};
}

// Remembers how much data the verb has room for. The maximum lies before the first pointer, so that it has the same place in
// both layouts.
bool note_room(u32 path_handle, bytes block) noexcept
{
    constexpr u32 MAX_LEN_AT = offsetof(appc_receive, max_len);
    constexpr u32 BLOCK_AT = sizeof(verb_message_header);
    static_assert(MAX_LEN_AT == 30 && offsetof(appc_receive_expedited_data, max_len) == MAX_LEN_AT);
    static_assert(MAX_LEN_AT < offsetof(appc_receive, dptr) && offsetof(appc_receive_expedited_data, dptr) > MAX_LEN_AT);

    receive_limit limit{.path = path_handle, .bytes = 0};
    if (block.size() >= BLOCK_AT + MAX_LEN_AT + sizeof(u16)) {
        const verb_row* verb = find_verb(load<u16>(block.data(), BLOCK_AT + offsetof(appc_header, opcode)));
        if (verb != nullptr && verb->received_into != 0)
            limit.bytes = load<u16>(block.data(), BLOCK_AT + MAX_LEN_AT);
    }
    return note_receive_limit(load<u32>(block.data(), offsetof(verb_message_header, pend_handle)), limit);
}

status send_whole(u32 path_handle, const path& from, bytes block, bytes data) noexcept
{
    if (from.user->kind == VERB_LIBRARY && !note_room(path_handle, block))
        return NO_MEMORY;
    return host_in_use()->submit({.kind = node::frame_kind::message, .path = path_handle, .block = block, .data = data});
}

status assemble(u32 path_handle, path& from, bytes part) noexcept
{
    if (part.size() > from.assembly_bytes - from.assembly.size())
        return BAD_ARGUMENT;
    try {
        from.assembly.insert(from.assembly.end(), part.begin(), part.end());
    } catch (const std::bad_alloc&) {
        return NO_MEMORY;
    }
    if (from.assembly.size() < from.assembly_bytes)
        return DONE;
    const bytes whole{from.assembly};
    const status sent = send_whole(path_handle, from, whole.first(from.assembly_block), whole.subspan(from.assembly_block));
    from.assembly.clear();
    from.assembly_bytes = 0;
    return sent;
}

status begin_message(u32 path_handle, path& from, bytes block, bytes data) noexcept
{
    if (block.size() < sizeof(verb_message_header) || from.assembly_bytes != 0)
        return BAD_ARGUMENT;
    const u32 whole = load<u32>(block.data(), offsetof(verb_message_header, msg_len));
    if (whole < block.size() || whole > LONGEST_MESSAGE || data.size() > whole - block.size())
        return BAD_ARGUMENT;
    if (block.size() + data.size() == whole)
        return send_whole(path_handle, from, block, data);

    from.assembly_block = static_cast<u32>(block.size());
    from.assembly_bytes = whole;
    const status begun = assemble(path_handle, from, block);
    return begun == DONE ? assemble(path_handle, from, data) : begun;
}

status continue_message(u32 path_handle, path& from, bytes data) noexcept
{
    if (data.empty())
        return DONE;
    return from.assembly_bytes != 0 ? assemble(path_handle, from, data) : BAD_ARGUMENT;
}

}  // namespace

}  // namespace tessaly::runtime

using namespace tessaly;
using namespace tessaly::runtime;

// The library does not act on the result, so whatever cannot be sent breaks the path: its verbs must complete.
extern "C" uint16_t vpm_send_ips(uint32_t path_handle, void* message, uint32_t message_bytes, const void* data,
                                 uint32_t data_bytes)
{
    path* from = find_path(path_handle);
    if (from == nullptr || from->failed())
        return PATH_BROKEN;
    last_sent_on = path_handle;
    const bytes rest = bytes_at(data, data_bytes);
    const status sent = message != nullptr ? begin_message(path_handle, *from, bytes_at(message, message_bytes), rest)
                                           : continue_message(path_handle, *from, rest);
    if (sent != DONE)
        break_path(path_handle);
    return sent;
}

extern "C" uint16_t vpm_send_datagram(uint32_t kind, uint32_t, void* datagram, uint32_t datagram_bytes)
{
    datagram_header header;
    if (kind != DATAGRAM_DESTINATION || datagram == nullptr || datagram_bytes < sizeof header)
        return BAD_ARGUMENT;
    std::memcpy(&header, datagram, sizeof header);
    if (header.length != datagram_bytes)
        return BAD_ARGUMENT;
    node_host* host = the_host();
    return host != nullptr
               ? host->submit({.kind = node::frame_kind::datagram, .block = bytes_at(datagram, datagram_bytes)})
               : NO_NODE;
}
