// Connecting, greeting, and packets in and out.
#include "localnode/runtime/connection.h"

#include "localnode/runtime/logs.h"
#include "localnode/runtime/socket_calls.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

namespace tessaly::runtime {

namespace {

// A node that is there answers at once; one that is stopped must not stop its clients for good.
constexpr long GREETING_LIMIT_SECONDS = 5;

const char* reason_of(node::refusal refused) noexcept
{
    switch (refused) {
    case node::refusal::version: return "it speaks another version of the protocol";
    case node::refusal::not_permitted: return "this user may not use it";
    case node::refusal::too_many_clients: return "it has too many clients";
    case node::refusal::none: break;
    }
    return "it did not answer as a node does";
}

// A short packet is put together here: that costs less than having the kernel gather its parts.
constexpr std::size_t LONGEST_COPIED = 2048;

template <typename Send>
ssize_t unless_interrupted(Send send) noexcept
{
    ssize_t bytes = 0;
    do
        bytes = send();
    while (bytes < 0 && errno == EINTR);
    return bytes;
}

}  // namespace

std::unique_ptr<connection> connection::to(std::string_view socket_path) noexcept
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socket_path.empty() || socket_path.size() >= sizeof address.sun_path) {
        log_node("the path of its socket is empty or too long");
        return nullptr;
    }
    std::copy(socket_path.begin(), socket_path.end(), address.sun_path);
    const int made = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (made < 0) {
        log_node("no socket: %s", std::strerror(errno));
        return nullptr;
    }
    std::unique_ptr<connection> to_node{new (std::nothrow) connection{made}};
    if (to_node == nullptr) {
        close(made);
        return nullptr;
    }
    if (!to_node->connect_to(address))
        return nullptr;
    log_node("connected to %s", address.sun_path);
    return to_node;
}

connection::~connection()
{
    if (socket_ >= 0)
        close(socket_);
}

bool connection::connect_to(const sockaddr_un& address) noexcept
{
    const auto* to = reinterpret_cast<const sockaddr*>(&address);
    if (!set_time_limit(GREETING_LIMIT_SECONDS))
        return false;
    if (unless_interrupted([&] { return ::connect(socket_, to, sizeof address); }) != 0) {
        log_node("cannot connect to %s: %s", address.sun_path, std::strerror(errno));
        return false;
    }
    return greet() && set_time_limit(0);
}

bool connection::greet() noexcept
{
    const node::hello greeting;
    if (::send(socket_, &greeting, sizeof greeting, MSG_NOSIGNAL) != sizeof greeting) {
        log_node("it does not take a greeting: %s", std::strerror(errno));
        return false;
    }
    node::welcome answer;
    int descriptor = -1;
    const ssize_t received =
        unless_interrupted([&] { return receive_with_descriptor(socket_, &answer, sizeof answer, descriptor, MSG_TRUNC); });
    if (descriptor >= 0) {
        if (slots_.take_over(descriptor))  // without it all frames go through the socket
            mailbox_.use(slots_.mailbox());
        close(descriptor);
    }
    const bool sound = received == sizeof answer && answer.magic == node::PACKET_MAGIC;
    if (sound && answer.refused == node::refusal::none && answer.version == node::PACKET_VERSION)
        return true;
    log_node("refused: %s", reason_of(sound ? answer.refused : node::refusal::none));
    return false;
}

bool connection::set_time_limit(long seconds) noexcept
{
    const timeval limit{.tv_sec = seconds, .tv_usec = 0};
    return setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0 &&
           setsockopt(socket_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) == 0;
}

status connection::send(const node::frame& sent) noexcept
{
    node::packet_header header{};
    header.kind = static_cast<u8>(sent.kind);
    header.path = sent.path;
    header.block_bytes = static_cast<u32>(sent.block.size());
    header.data_bytes = static_cast<u32>(sent.data.size());
    if (sent.block.size() > node::LONGEST_PACKET || sizeof header + sent.block.size() + sent.data.size() > node::LONGEST_PACKET)
        return BAD_ARGUMENT;
    const std::size_t content = sent.block.size() + sent.data.size();
    header.slot = content >= SHORTEST_IN_SLOT ? slots_.put(sent.block, sent.data) : u8{0};
    const ssize_t bytes = header.slot == 0 ? send_parts(header, sent.block, sent.data) : send_parts(header, {}, {});
    if (bytes >= 0)
        return DONE;
    if (header.slot != 0)
        slots_.free(header.slot);
    return errno == ENOMEM || errno == ENOBUFS ? NO_MEMORY : PATH_BROKEN;
}

ssize_t connection::send_parts(const node::packet_header& header, std::span<const u8> block, std::span<const u8> data) noexcept
{
    const std::size_t whole = sizeof header + block.size() + data.size();
    if (whole <= LONGEST_COPIED) {
        u8 packet[LONGEST_COPIED];
        std::memcpy(packet, &header, sizeof header);
        std::ranges::copy(data, std::ranges::copy(block, packet + sizeof header).out);
        return unless_interrupted([&] { return send_packet(socket_, packet, whole, MSG_NOSIGNAL); });
    }
    iovec parts[] = {{const_cast<node::packet_header*>(&header), sizeof header},
                     {const_cast<u8*>(block.data()), block.size()},
                     {const_cast<u8*>(data.data()), data.size()}};
    msghdr packet{};
    packet.msg_iov = parts;
    packet.msg_iovlen = std::size(parts);
    return unless_interrupted([&] { return sendmsg(socket_, &packet, MSG_NOSIGNAL); });
}

reception connection::receive_with(int flags) noexcept
{
    const ssize_t bytes =
        unless_interrupted([&] { return receive_packet(socket_, packet_, sizeof packet_, flags | MSG_TRUNC); });
    if (bytes < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
        return reception::nothing;
    ++received_;
    block_ = packet_ + sizeof(node::packet_header);
    return judge(static_cast<std::size_t>(std::max<ssize_t>(bytes, 0)));
}

// The block stays where it is until it is taken.
reception connection::take_letter(std::span<const u8> letter) noexcept
{
    std::memcpy(packet_, letter.data(), std::min(letter.size(), sizeof(node::packet_header)));
    block_ = letter.data() + sizeof(node::packet_header);
    return judge(letter.size());
}

reception connection::judge(std::size_t length) const noexcept
{
    if (length < sizeof(node::packet_header) || length > sizeof packet_)
        return reception::end;
    const node::packet_header& came = header();
    if (came.data_bytes != 0)
        return reception::end;
    const bool sound = came.slot == 0 ? came.block_bytes == length - sizeof came
                                      : length == sizeof came && slots_.content(came.slot, came.block_bytes, 0) != nullptr;
    return sound ? reception::packet : reception::end;
}

void connection::take_block(u8* to) noexcept
{
    const node::packet_header& came = header();
    const u8* const from = came.slot == 0 ? block_ : slots_.content(came.slot, came.block_bytes, 0);
    if (to != nullptr && came.block_bytes != 0)
        std::memcpy(to, from, came.block_bytes);
    if (came.slot != 0)
        slots_.free(came.slot);
}

reception connection::receive_at_once() noexcept
{
    return receive_with(MSG_DONTWAIT);
}

reception connection::stop_expecting() noexcept
{
    const std::span<const u8> letter = mailbox_.stop();
    return letter.empty() ? reception::nothing : take_letter(letter);
}

reception connection::receive(u64 until_ms) noexcept
{
    if (until_ms == NEVER && mailbox_.listen(received_)) {
        const std::span<const u8> letter = mailbox_.next();
        return letter.empty() ? receive_with(0) : take_letter(letter);
    }
    reception got = stop_expecting();
    if (got != reception::nothing || look_.finds([&] { return (got = receive_at_once()) != reception::nothing; }))
        return got;
    if (until_ms == NEVER)
        return receive_with(0);
    watch(-1, until_ms);
    return receive_at_once();
}

void connection::watch(int wake_fd, u64 until_ms) const noexcept
{
    constexpr u64 LONGEST_WAIT_MS = 1'000'000;
    pollfd awaited[] = {{socket_, POLLIN, 0}, {wake_fd, POLLIN, 0}};
    int ready = 0;
    do {
        int limit = -1;
        if (until_ms != NEVER) {
            const u64 now = precise_now_ms();
            limit = now < until_ms ? static_cast<int>(std::min(until_ms - now, LONGEST_WAIT_MS)) : 0;
        }
        ready = poll(awaited, std::size(awaited), limit);
    } while (ready < 0 && errno == EINTR);
}

void connection::ask_for_echo() noexcept
{
    node::packet_header echo{};
    echo.kind = node::ECHO;
    if (unless_interrupted([&] { return send_packet(socket_, &echo, sizeof echo, MSG_NOSIGNAL); }) < 0)
        hang_up();  // which ends the wait as well
}

void connection::hang_up() noexcept
{
    shutdown(socket_, SHUT_RDWR);
    mailbox_.close();
}

void connection::leave_to_parent() noexcept
{
    close(socket_);
    socket_ = -1;
    mailbox_.use(nullptr);
    slots_.forget();
}

}  // namespace tessaly::runtime
