// Making and ending path users and paths.
#include "localnode/runtime/paths.h"

#include "localnode/runtime/events.h"
#include "localnode/runtime/handle_space.h"
#include "localnode/runtime/host.h"
#include "localnode/runtime/never_destroyed.h"

#include <memory>
#include <new>

namespace tessaly::runtime {

constinit u32 last_sent_on = 0;

namespace {

constinit never_destroyed<handle_space> path_users;
constinit never_destroyed<handle_space> paths;

void tell_node(node::frame_kind kind, u32 handle) noexcept
{
    if (node_host* host = host_in_use())
        host->submit({.kind = kind, .path = handle});
}

// Removes a path that has not failed, or whose failure is still queued.
void close_path(u32 handle) noexcept
{
    path* closed = find_path(handle);
    if (closed == nullptr)
        return;
    const bool node_has_it = !closed->failed();
    drop_events_of(handle);
    forget_path(handle);
    if (node_has_it)
        tell_node(node::frame_kind::path_closed, handle);
}

}  // namespace

path_user* find_path_user(u32 handle) noexcept
{
    return static_cast<path_user*>(path_users->pointer_of(handle));
}

path* find_path(u32 handle) noexcept
{
    return static_cast<path*>(paths->pointer_of(handle));
}

path_user* first_path_user(u32 kind) noexcept
{
    for (u32 handle = path_users->next_used(0); handle != 0; handle = path_users->next_used(handle))
        if (find_path_user(handle)->kind == kind)
            return find_path_user(handle);
    return nullptr;
}

void fail_path(u32 handle) noexcept
{
    path* failing = find_path(handle);
    if (failing == nullptr || failing->failed())
        return;
    block* event = failing->failure;
    failing->failure = nullptr;
    event->event = NODE_EVENT_PATH_FAILURE;
    event->path = handle;
    queue_block(event);
}

void fail_all_paths() noexcept
{
    for (u32 handle = paths->next_used(0); handle != 0; handle = paths->next_used(handle))
        fail_path(handle);
}

void break_path(u32 handle) noexcept
{
    path* broken = find_path(handle);
    if (broken == nullptr || broken->failed())
        return;
    fail_path(handle);
    tell_node(node::frame_kind::path_closed, handle);
}

void forget_path(u32 handle) noexcept
{
    path* gone = find_path(handle);
    if (gone == nullptr)
        return;
    if (gone->failure != nullptr)
        free_block(gone->failure);
    paths->release(handle);
    delete gone;
}

void announce_termination() noexcept
{
    for (u32 handle = path_users->next_used(0); handle != 0; handle = path_users->next_used(handle))
        if (queue_event(NODE_EVENT_TERMINATED, handle, 0) == nullptr)
            fail_all_paths();
}

void report_fork_to_path_users() noexcept
{
    for (u32 handle = paths->next_used(0); handle != 0; handle = paths->next_used(handle))
        forget_path(handle);
    for (u32 handle = path_users->next_used(0); handle != 0; handle = path_users->next_used(handle)) {
        const std::unique_ptr<path_user> told{find_path_user(handle)};
        path_users->release(handle);
        rcv_info info{};
        info.event = NODE_EVENT_FORKED;
        told->receive(0, &info);
    }
}

}  // namespace tessaly::runtime

using namespace tessaly;
using namespace tessaly::runtime;

extern "C" uint16_t vpm_init_path_user(uint32_t kind, uint32_t, node_receive_routine receive, uint32_t, uint32_t* out)
{
    if ((kind != VERB_LIBRARY && kind != TP_SERVER) || receive == nullptr || out == nullptr)
        return BAD_ARGUMENT;
    if (the_host() == nullptr)
        return NO_NODE;
    std::unique_ptr<path_user> made{new (std::nothrow) path_user{kind, receive}};
    const u32 handle = made != nullptr ? path_users->create(made.get()) : 0;
    if (handle == 0)
        return NO_MEMORY;
    const status told =
        kind == TP_SERVER ? the_host()->submit({.kind = node::frame_kind::tp_server_opened, .path = handle}) : DONE;
    if (told != DONE) {
        path_users->release(handle);
        return told;
    }
    made.release();
    *out = handle;
    return DONE;
}

extern "C" void vpm_terminate_path_user(uint32_t path_user_handle)
{
    const path_user* ended = find_path_user(path_user_handle);
    if (ended == nullptr)
        return;
    for (u32 handle = paths->next_used(0); handle != 0; handle = paths->next_used(handle))
        if (find_path(handle)->user == ended)
            close_path(handle);
    if (ended->kind == TP_SERVER)
        tell_node(node::frame_kind::tp_server_closed, path_user_handle);
    path_users->release(path_user_handle);
    delete ended;
}

extern "C" uint32_t vsm_query_services(uint32_t type, uint32_t, uint32_t cursor[2])
{
    constexpr u32 VERB_SERVICE = 1;
    if (type != VERB_SERVICE || cursor == nullptr || cursor[0] != 0 || the_host() == nullptr)
        return 0;
    cursor[0] = node::NODE_ADDRESS;
    return node::NODE_ADDRESS;
}

extern "C" uint32_t vpm_create_path(uint32_t path_user_handle, uint32_t node_address, uint32_t, const void*)
{
    const path_user* user = find_path_user(path_user_handle);
    node_host* host = the_host();
    if (user == nullptr || host == nullptr || node_address != node::NODE_ADDRESS)
        return 0;
    std::unique_ptr<path> made{new (std::nothrow) path{.user = user}};
    const u32 handle = made != nullptr ? paths->create(made.get()) : 0;
    if (handle == 0)
        return 0;
    path* opened = made.release();
    opened->failure = allocate_block(0);
    if (opened->failed() || host->submit({.kind = node::frame_kind::path_opened, .path = handle}) != DONE) {
        close_path(handle);
        return 0;
    }
    return handle;
}

extern "C" void vpm_close_path(uint32_t path_handle, uint32_t)
{
    close_path(path_handle);
}
