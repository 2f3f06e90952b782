#include "faults.h"

#include "localnode/runtime/events.h"
#include "localnode/runtime/paths.h"
#include "verbs/block.h"
#include "wire/verb_message.h"

#include <cstring>

namespace tessaly::stress {

void lose_path(u32 path) noexcept
{
    runtime::break_path(path);
}

void abend(u32 path, u32 tp_handle) noexcept
{
    constexpr u32 bytes = sizeof(verb_message_header) + sizeof(block_header);
    u8* room = runtime::queue_event(NODE_EVENT_IPS, path, bytes);
    if (room == nullptr)
        return;
    std::memset(room, 0, bytes);
    store(room, offsetof(verb_message_header, dest_corr), tp_handle);
    store(room, offsetof(verb_message_header, buf_len), bytes);
    store(room, offsetof(verb_message_header, msg_len), bytes);
    store(room, sizeof(verb_message_header), u16{ABEND_INDICATION});
}

void terminate_node() noexcept
{
    runtime::announce_termination();
}

}  // namespace tessaly::stress
