// Frames of this process go out as packets, packets of the node come into the event queue.
#include "localnode/runtime/host_socket.h"

#include "localnode/runtime/events.h"
#include "localnode/runtime/logs.h"
#include "localnode/runtime/paths.h"

#include "verbs/block.h"
#include "wire/datagrams.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>

namespace tessaly::runtime {

constinit socket_host* node_elsewhere = nullptr;

namespace {

bool is_answered(const node::frame& sent) noexcept
{
    if (sent.kind == node::frame_kind::message)
        return true;
    if (sent.kind != node::frame_kind::datagram || sent.block.size() < sizeof(datagram_header))
        return false;
    const u16 type = load<u16>(sent.block.data(), offsetof(datagram_header, type));
    return type != DATAGRAM_ATTACH_RESPONSE && type != TPS_MSG_START_APPL_RSP && type != TPS_MSG_APPL_FAILED;
}

}  // namespace

socket_host::socket_host(std::string_view socket_path) : socket_path_{socket_path}
{
    node_elsewhere = this;
}

socket_host::~socket_host()
{
    node_elsewhere = nullptr;
    if (wake_watcher_ >= 0)
        close(wake_watcher_);
}

bool socket_host::is_there() noexcept
{
    if (wake_watcher_ < 0)
        wake_watcher_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake_watcher_ < 0)
        log_node("nothing to wake the runtime's thread with: %s", std::strerror(errno));
    else if (connected_ == nullptr)
        connected_ = connection::to(socket_path_);
    return connected_ != nullptr;
}

status socket_host::submit(node::frame&& sent) noexcept
{
    if (connected_ == nullptr)
        return NO_NODE;
    if (sent.kind == node::frame_kind::message && reader_ == nullptr)
        connected_->expect_answer();
    const status done = connected_->send(sent);
    const bool unknown_to_node = done != DONE && sent.kind == node::frame_kind::path_closed;
    if (done == PATH_BROKEN || unknown_to_node)
        lose();  // else the partners of that path would wait for ever
    else if (is_answered(sent))
        sent_to_ = true;
    return done;
}

bool socket_host::was_sent_to() noexcept
{
    return std::exchange(sent_to_, false);
}

void socket_host::stop_expecting() noexcept
{
    if (may_be_read())
        take_in(connected_->stop_expecting());
}

void socket_host::read(waiter& me, u64 until_ms) noexcept
{
    reader_ = &me;
    read_ = connected_.get();
    process_lock.wait(me, until_ms, [](sleeper&, u64 limit_ms) noexcept {
        node_elsewhere->got_ = node_elsewhere->read_->receive(limit_ms);
        return false;
    });
    reader_ = nullptr;
    if (std::exchange(read_, nullptr) == connected_.get())
        take_in(got_);
    bury_disconnected();
}

void socket_host::watch(waiter& me) noexcept
{
    constexpr int MOST_AT_ONCE = 64;
    watcher_ = &me;
    watched_ = connected_.get();
    process_lock.wait(me, NEVER, [](sleeper&, u64 limit_ms) noexcept {
        node_elsewhere->watched_->watch(node_elsewhere->wake_watcher_, limit_ms);
        return false;
    });
    watcher_ = nullptr;
    eventfd_t wake_ups = 0;
    eventfd_read(wake_watcher_, &wake_ups);
    const connection* from = std::exchange(watched_, nullptr);
    stop_expecting();  // a letter comes before what the socket has
    for (int i = 0; i < MOST_AT_ONCE && from == connected_.get() && may_be_read(); ++i) {
        const reception got = connected_->receive_at_once();
        if (got == reception::nothing)
            break;
        take_in(got);
    }
    bury_disconnected();
}

void socket_host::interrupt(const waiter& woken) noexcept
{
    if (&woken == reader_)
        read_->ask_for_echo();
    if (&woken == watcher_)
        eventfd_write(wake_watcher_, 1);
}

void socket_host::take_in(reception got) noexcept
{
    if (got == reception::nothing)
        return;
    if (got == reception::end)
        return lose();
    const node::packet_header& came = connected_->header();
    if (came.kind == node::ECHO)
        return;
    switch (const auto kind = static_cast<node::frame_kind>(came.kind)) {
    case node::frame_kind::message:
    case node::frame_kind::datagram: {
        u8* room = take_frame(kind, came.path, came.block_bytes);
        connected_->take_block(room);
        if (room == nullptr)
            drop_for_want_of_memory(kind, came.path);
        return;
    }
    case node::frame_kind::path_failed:
        take_frame(kind, came.path, 0);
        return;
    case node::frame_kind::terminated:
        log_node("it ends");
        announce_termination();
        disconnect();
        return fail_all_paths();
    default:
        log_node("it sends what no node sends");
        return lose();
    }
}

// What it was for has failed on this side only.
void socket_host::drop_for_want_of_memory(node::frame_kind kind, u32 path) noexcept
{
    log_node("no memory for what it sends");
    if (kind == node::frame_kind::message)
        submit({.kind = node::frame_kind::path_closed, .path = path});
    else
        lose();
}

// The next verb that starts a TP connects again.
void socket_host::disconnect() noexcept
{
    connected_->hang_up();
    connected_->before = std::move(disconnected_);
    disconnected_ = std::move(connected_);
    bury_disconnected();
}

void socket_host::lose() noexcept
{
    log_node("lost");
    disconnect();
    fail_all_paths();
    announce_termination();
}

void socket_host::bury_disconnected() noexcept
{
    if (read_ == nullptr && watched_ == nullptr)
        disconnected_.reset();
}

void socket_host::leave_to_parent() noexcept
{
    for (connection* left = disconnected_.get(); left != nullptr; left = left->before.get())
        left->leave_to_parent();
    if (connected_ != nullptr)
        connected_->leave_to_parent();
    close(std::exchange(wake_watcher_, -1));
    reader_ = nullptr;
    watcher_ = nullptr;
}

std::unique_ptr<node_host> make_socket_host(std::string_view socket_path) noexcept
try {
    return std::make_unique<socket_host>(socket_path);
} catch (const std::exception&) {
    return nullptr;
}

}  // namespace tessaly::runtime
