#include "localnode/daemon/switchboard.h"

#include "localnode/engine/lu_names.h"
#include "localnode/runtime/clock.h"
#include "wire/tp_server_datagrams.h"

#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tessaly::daemon {

namespace {

using node::frame_kind;

constexpr u32 MOST_PACKETS_A_ROUND = 16;

// Connections with shared memory: a 32-bit process has no room for that of any number, and the kernel looks after 2,048 robust
// futexes.
constexpr std::size_t MOST_SHARING = 1000;

template <typename Record>
std::span<const u8> bytes_of(const Record& record) noexcept
{
    return {reinterpret_cast<const u8*>(&record), sizeof record};
}

// A client's frames that are a kind and a number.
bool is_bare(frame_kind kind) noexcept
{
    return kind == frame_kind::path_opened || kind == frame_kind::path_closed || kind == frame_kind::tp_server_opened ||
           kind == frame_kind::tp_server_closed;
}

// The frame in a packet. None for what no client sends.
std::optional<node::frame> frame_in(std::span<const u8> packet) noexcept
{
    node::packet_header header;
    if (packet.size() < sizeof header)
        return std::nullopt;
    std::memcpy(&header, packet.data(), sizeof header);
    packet = packet.subspan(sizeof header);
    const u8 nothing[sizeof header.reserved] = {};
    if (!std::ranges::equal(header.reserved, nothing) || header.block_bytes > packet.size() ||
        header.data_bytes != packet.size() - header.block_bytes)
        return std::nullopt;
    const auto kind = static_cast<frame_kind>(header.kind);
    const bool fits = kind == frame_kind::message || (kind == frame_kind::datagram && header.data_bytes == 0) ||
                      (kind == frame_kind::datagram_returned && header.data_bytes == 0) || (is_bare(kind) && packet.empty());
    if (!fits)
        return std::nullopt;
    return node::frame{.kind = kind,
                       .path = header.path,
                       .block = packet.first(header.block_bytes),
                       .data = packet.subspan(header.block_bytes)};
}

}  // namespace

switchboard::switchboard(int poller, const settings& with, programs& children)
    : poller_(poller), settings_(with), programs_(children), began_ms_(runtime::precise_now_ms())
{
    configure();
}

void switchboard::configure()
{
    const std::size_t most = std::max<std::size_t>(settings_.limits.clients, connections_.size()) + 1 + MOST_REFUSED;
    departed_.reserve(most);  // so that dropping a client needs no memory
    gone_.reserve(most);
    engine_.configure(engine_configuration(settings_));
    for (const auto& [id, each] : connections_)
        each->rights = rights_of(*each);
}

connection* switchboard::find(node::client_id id)
{
    const auto at = connections_.find(id);
    return at == connections_.end() ? nullptr : at->second.get();
}

void switchboard::take_packets(connection& from)
{
    for (u32 taken = 0; taken < MOST_PACKETS_A_ROUND && from.now != connection::stage::gone; ++taken) {
        const std::span<const u8> packet = receive(from, MSG_DONTWAIT);
        if (packet.empty() || !take(from, packet))
            break;
    }
    settle();
}

// While the engine waits for time, while somebody is to be closed or does not take what it is sent, the poller is needed.
bool switchboard::may_be_alone(const connection& client) const
{
    return client.now == connection::stage::conversing && !client.watched_for_room && gone_.empty() && !deadline_ms();
}

void switchboard::serve_alone(connection& client, private_line& line)
{
    watch(client, 0);
    if (line.begin(client.socket())) {
        log(level::debug, "client ", client.id, ": is alone");
        const u32 before = packets_;
        for (std::span<const u8> packet; may_be_alone(client) && line.is_quiet() && !(packet = receive(client, 0)).empty();) {
            pass_time(runtime::cheap_now_ms());
            take(client, packet);
            settle();
        }
        line.end();
        log(level::debug, "client ", client.id, ": is not alone any more, after ", packets_ - before, " packets");
    }
    if (client.now != connection::stage::gone)
        watch_for_room(client, client.watched_for_room);
}

// What has come or, without MSG_DONTWAIT, what comes next. Empty: nothing, or the client is gone.
std::span<const u8> switchboard::receive(connection& from, int flags)
{
    const ssize_t got = from.receive(received_, flags);
    if (got > 0) [[likely]] {
        ++packets_;
        return {received_, static_cast<std::size_t>(got)};
    }
    if (got == 0)
        drop(from, from.now == connection::stage::greeting ? level::debug : level::info, "left");
    else if (errno == EMSGSIZE)
        drop(from, level::warning, "sent a packet that is too long");
    else if (errno == EFAULT)
        drop(from, level::warning, "named memory that is not there");
    else if (errno != EAGAIN && errno != EINTR)
        drop(from, level::info, error_text(errno));
    return {};
}

// Result: whether to look for another packet at once. Behind an answer there is none as a rule.
bool switchboard::take(connection& from, std::span<const u8> packet)
try {
    switch (from.now) {
    case connection::stage::greeting: return greet(from, packet);
    case connection::stage::conversing: return converse(from, packet);
    case connection::stage::leaving:
    case connection::stage::gone: break;
    }
    return true;  // to no effect
} catch (const std::exception& error) {
    drop(from, level::error, error.what());
    return false;
}

bool switchboard::greet(connection& from, std::span<const u8> packet)
{
    const bool asks_for_status =
        std::ranges::equal(packet, node::STATUS_REQUEST, {}, {}, [](char c) { return static_cast<u8>(c); });
    if (asks_for_status && from.refused != node::refusal::not_permitted) {
        report_status(from);
        return false;
    }
    node::hello hello;
    if (packet.size() != sizeof hello || (std::memcpy(&hello, packet.data(), sizeof hello), hello.magic != node::PACKET_MAGIC)) {
        drop(from, level::warning, "did not greet as a client does");
        return false;
    }
    node::welcome welcome{.refused = from.refused};
    if (hello.version != node::PACKET_VERSION)
        welcome.refused = node::refusal::version;
    if (welcome.refused == node::refusal::none)
        from.now = connection::stage::conversing;
    log(level::info, "client ", from.id, ": process ", from.peer.pid, ", user ", from.peer.uid, ", group ", from.peer.gid,
        welcome.refused == node::refusal::none ? "" : ", refused");
    if (!from.send_welcome(welcome, welcome.refused == node::refusal::none && connections_.size() <= MOST_SHARING))
        drop(from, level::info, error_text(errno));
    else if (welcome.refused != node::refusal::none)
        leave(from);
    return false;
}

bool switchboard::converse(connection& from, std::span<const u8> packet)
{
    if (packet[0] == node::ECHO) {
        send_to(from, packet);
        return false;
    }
    std::optional<node::frame> sent = frame_in(packet);
    if (!sent) {
        drop(from, level::warning, "sent what is no frame");
        return false;
    }
    if (refuses_path(from, *sent))
        return true;
    track_path(from, *sent);
    if (sent->kind != frame_kind::message && !from.rights.tp_server)
        note_missing_rights(from, *sent);
    sent->client = from.id;
    sent->now_ms = told_ms_;
    sent->rights = from.rights;
    feed(*sent);
    return sent->kind != frame_kind::message;
}

// Once for each client.
void switchboard::note_missing_rights(connection& from, const node::frame& sent)
{
    datagram_header header{};
    if (sent.kind == frame_kind::datagram && sent.block.size() >= sizeof header)
        std::memcpy(&header, sent.block.data(), sizeof header);
    if (from.told_no_rights || !(sent.kind == frame_kind::tp_server_opened || is_from_tp_server(header.type)))
        return;
    from.told_no_rights = true;
    log(level::warning, "client ", from.id, ", process ", from.peer.pid, " of user ", from.peer.uid, ", group ", from.peer.gid,
        ": may not be a TP server");
}

bool switchboard::refuses_path(connection& from, const node::frame& sent)
{
    if (sent.kind != frame_kind::path_opened || from.paths.size() < settings_.limits.paths_per_client ||
        from.paths.contains(sent.path))
        return false;
    log(level::warning, "client ", from.id, ": has too many paths");
    send_to(from, bytes_of(node::packet_header{.kind = static_cast<u8>(frame_kind::path_failed), .path = sent.path}));
    return true;
}

void switchboard::track_path(connection& from, const node::frame& sent)
{
    if (sent.kind == frame_kind::path_opened)
        from.paths.insert(sent.path);
    else if (sent.kind == frame_kind::path_closed)
        from.paths.erase(sent.path);
}

void switchboard::send_to(connection& to, std::span<const u8> packet)
try {
    if (!to.send(packet))
        drop(to, level::info, error_text(errno));
    else if (to.queued_bytes() > std::size_t{settings_.limits.queued_mib_per_client} * 1024 * 1024)
        drop(to, level::warning, "does not take what it is sent");
    else if (to.queued_bytes() != 0 && !to.watched_for_room)
        watch_for_room(to, true);
} catch (const std::bad_alloc&) {
    drop(to, level::error, "no memory for what it is sent");
}

void switchboard::watch(connection& of, u32 events)
{
    epoll_event event{};
    event.events = events;
    event.data.ptr = &of;
    epoll_ctl(poller_, EPOLL_CTL_MOD, of.socket(), &event);
}

void switchboard::watch_for_room(connection& of, bool wanted)
{
    watch(of, wanted ? EPOLLIN | EPOLLOUT : EPOLLIN);
    of.watched_for_room = wanted;
}

void switchboard::send_waiting(connection& to)
{
    if (to.now == connection::stage::gone)
        return;
    if (!to.flush()) {
        drop(to, level::info, error_text(errno));
        settle();
        return;
    }
    if (to.queued_bytes() != 0)
        return;
    watch_for_room(to, false);
    if (to.now == connection::stage::leaving)
        drop(to, level::debug, "has got everything");
}

void switchboard::leave(connection& leaving)
{
    if (leaving.now == connection::stage::gone)
        return;
    leaving.now = connection::stage::leaving;
    if (leaving.queued_bytes() == 0)
        drop(leaving, level::debug, "has got everything");
}

void switchboard::pass_time(u64 now_ms)
{
    if (now_ms <= told_ms_)
        return;
    told_ms_ = now_ms;
    feed({.kind = frame_kind::time_passed, .now_ms = now_ms});
}

void switchboard::feed(const node::frame& input)
{
    accept(input);
    settle();
}

// Tells the engine what has become of what it sent, which may cause more of the same.
void switchboard::settle()
{
    while (!departed_.empty() || !not_started_.empty()) {
        node::frame news{.kind = frame_kind::client_gone, .now_ms = told_ms_};
        if (!departed_.empty()) {
            news.client = departed_.back();
            departed_.pop_back();
        } else {
            news.kind = frame_kind::program_ended;
            news.path = not_started_.back();
            not_started_.pop_back();
        }
        accept(news);
    }
}

void switchboard::reap_programs()
{
    for (const u32 attach_corr : programs_.take_ended())
        feed({.kind = frame_kind::program_ended, .path = attach_corr, .now_ms = told_ms_});
}

void switchboard::start_program(std::span<const u8> packet)
{
    node::packet_header header;
    node::program_to_start asked;
    std::memcpy(&header, packet.data(), sizeof header);
    std::memcpy(&asked, packet.data() + sizeof header, sizeof asked);
    const std::string name = node::text_of(asked.tp_name);
    const auto program = std::ranges::find(settings_.programs, name, &program_settings::tp_name);
    const bool room = programs_.running() < settings_.limits.programs;
    if (!room)
        log(level::warning, "program ", name, ": not started, since ", programs_.running(), " run already");
    if (!room || program == settings_.programs.end() || !programs_.start(*program, header.path))
        not_started_.push_back(header.path);
}

void switchboard::accept(const node::frame& input)
{
    out_.clear();
    try {
        engine_.accept(input, out_);
    } catch (const std::exception& error) {
        if (connection* const sender = find(input.client))
            drop(*sender, level::error, error.what());
        else
            log(level::error, "the engine: ", error.what());
    }
    deliver(input.client);
}

void switchboard::deliver(const outgoing::packet& packet)
{
    if (packet.client == 0)
        start_program(packet.bytes);
    else if (connection* const to = find(packet.client); to != nullptr && to->now == connection::stage::conversing)
        send_to(*to, packet.bytes);
}

// Whoever caused it gets its packets first: on one processor it has often asked again before the others run, and its next packet
// is found together with theirs.
void switchboard::deliver(node::client_id cause)
{
    for (const bool to_cause : {true, false})
        for (const outgoing::packet& packet : out_.packets())
            if ((packet.client == cause) == to_cause)
                deliver(packet);
    for (const node::client_id client : out_.starved())
        if (connection* const to = find(client))
            drop(*to, level::error, "no memory for what it is sent");
}

void switchboard::drop(connection& dropped, level of, std::string_view reason)
{
    if (dropped.now == connection::stage::gone)
        return;
    log(of, "client ", dropped.id, ", process ", dropped.peer.pid, ": ", reason);
    if (dropped.now == connection::stage::conversing)
        departed_.push_back(dropped.id);
    refused_ -= dropped.refused != node::refusal::none;
    dropped.now = connection::stage::gone;
    const auto at = connections_.find(dropped.id);
    gone_.push_back(std::move(at->second));
    connections_.erase(at);
}

void switchboard::terminate()
{
    const node::packet_header terminated{.kind = static_cast<u8>(frame_kind::terminated)};
    std::vector<connection*> all;
    for (const auto& [id, each] : connections_)
        all.push_back(each.get());
    for (connection* const each : all) {
        if (each->now == connection::stage::conversing)
            send_to(*each, bytes_of(terminated));
        leave(*each);
    }
}

void switchboard::report_status(connection& to)
{
    const std::string document =
        status_document(settings_, runtime::precise_now_ms() - began_ms_, connections_, engine_.report());
    std::span<const u8> rest{reinterpret_cast<const u8*>(document.data()), document.size()};
    while (!rest.empty() && to.now != connection::stage::gone) {
        const std::size_t next = std::min(rest.size(), node::STATUS_PACKET);
        send_to(to, rest.first(next));
        rest = rest.subspan(next);
    }
    leave(to);
}

}  // namespace tessaly::daemon
