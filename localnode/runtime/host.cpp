// Chooses the host by the environment, and keeps it. What every host does with a frame for this process.
#include "localnode/runtime/host.h"

#include "localnode/runtime/events.h"
#include "localnode/runtime/host_socket.h"
#include "localnode/runtime/logs.h"
#include "localnode/runtime/never_destroyed.h"
#include "localnode/runtime/paths.h"

#include "runtime/node_runtime.h"

#include <cstdlib>
#include <string_view>

namespace tessaly::runtime {

constinit u64 node_deadline_ms = NEVER;

namespace {

constinit never_destroyed<std::unique_ptr<node_host>> host;

std::unique_ptr<node_host> make_chosen_host() noexcept
{
    constexpr std::string_view UNIX = "unix:";
    const char* variable = std::getenv("TESSALY_NODE");
    const std::string_view chosen = variable != nullptr ? variable : "";
    if (chosen.empty() || chosen == "embedded")
        return make_embedded_host();
    if (chosen.starts_with(UNIX))
        return make_socket_host(chosen.substr(UNIX.size()));
    log_node("TESSALY_NODE is neither \"embedded\" nor \"unix:PATH\"");
    return nullptr;
}

}  // namespace

node_host* the_host() noexcept
{
    if (*host == nullptr) [[unlikely]]
        *host = make_chosen_host();
    return *host != nullptr && (*host)->is_there() ? host->get() : nullptr;
}

node_host* host_in_use() noexcept
{
    return host->get();
}

void forget_host() noexcept
{
    host->reset();
    node_deadline_ms = NEVER;
}

void look_at_clock() noexcept
{
    if (const u64 now = precise_now_ms(); now >= node_deadline_ms)
        (*host)->pass_time(now);
}

u8* take_frame(node::frame_kind kind, u32 path, u32 bytes) noexcept
{
    static u8 nothing[4];
    switch (kind) {
    case node::frame_kind::message:
        if (u8* room = queue_event(NODE_EVENT_IPS, path, bytes))
            return room;
        fail_path(path);
        return nullptr;
    case node::frame_kind::datagram:
        if (u8* room = queue_event(NODE_EVENT_DATAGRAM, 0, bytes))
            return room;
        fail_all_paths();
        return nullptr;
    case node::frame_kind::path_failed: fail_path(path); break;
    case node::frame_kind::terminated: announce_termination(); break;
    case node::frame_kind::path_opened:
    case node::frame_kind::path_closed:
    case node::frame_kind::client_gone:
    case node::frame_kind::time_passed:
    case node::frame_kind::start_program:
    case node::frame_kind::program_ended:
    case node::frame_kind::tp_server_opened:
    case node::frame_kind::tp_server_closed:
    case node::frame_kind::datagram_returned: return nullptr;
    }
    return bytes <= sizeof nothing ? nothing : nullptr;
}

}  // namespace tessaly::runtime
