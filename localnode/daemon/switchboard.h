// The clients around the engine: packets become frames, frames packets. Whatever one client sends or fails to take, the others
// go on.
#pragma once

#include "localnode/daemon/connection.h"
#include "localnode/daemon/outgoing.h"
#include "localnode/daemon/private_line.h"
#include "localnode/daemon/programs.h"
#include "localnode/daemon/settings.h"
#include "localnode/daemon/status_report.h"

namespace tessaly::daemon {

class switchboard {
public:
    // poller: an epoll instance, which hands back the connection with each event.
    switchboard(int poller, const settings& with, programs& children);

    // The settings are others from now on.
    void configure();

    // A new connection, unless the peer may not connect.
    void admit(unique_fd socket);

    // Takes what has come from a client, but no more packets than would keep the others waiting.
    void take_packets(connection& from);
    void send_waiting(connection& to);

    // Takes one client's packets as they come, waiting for them on its socket, until there is any other news.
    void serve_alone(connection& client, private_line& line);
    bool may_be_alone(const connection& client) const;

    void pass_time(u64 now_ms);
    void reap_programs();
    std::optional<u64> deadline_ms() const { return engine_.deadline_ms(); }

    // Tells all clients that the node stops, and takes nothing from them any more.
    void terminate();

    // How many have come; their difference counts, since it starts again at 0.
    u32 packets() const noexcept { return packets_; }

    std::size_t clients() const noexcept { return connections_.size(); }

    // Connections that are gone live until this, so that events of the same round may still name them.
    void drop_gone() noexcept { gone_.clear(); }

private:
    // Connections that stay until they can be told that they are refused; a connection that is closed before loses what was sent.
    static constexpr u32 MOST_REFUSED = 16;

    node::refusal refusal_for(const ucred& peer) const;
    bool may_connect(const ucred& peer) const;
    node::client_rights rights_of(const connection& client) const;
    void note_missing_rights(connection& from, const node::frame& sent);
    std::span<const u8> receive(connection& from, int flags);
    bool take(connection& from, std::span<const u8> packet);
    bool greet(connection& from, std::span<const u8> packet);
    bool converse(connection& from, std::span<const u8> packet);
    void track_path(connection& from, const node::frame& sent);
    bool refuses_path(connection& from, const node::frame& sent);
    void start_program(std::span<const u8> packet);
    void send_to(connection& to, std::span<const u8> packet);
    void report_status(connection& to);
    void watch(connection& of, u32 events);
    void watch_for_room(connection& of, bool wanted);
    void leave(connection& leaving);

    void feed(const node::frame& input);
    void accept(const node::frame& input);
    void settle();
    void deliver(node::client_id cause);
    void deliver(const outgoing::packet& packet);
    void drop(connection& dropped, level of, std::string_view reason);
    connection* find(node::client_id id);

    const int poller_;
    const settings& settings_;
    programs& programs_;
    node::engine engine_;
    outgoing out_;
    connection_map connections_;
    std::vector<std::unique_ptr<connection>> gone_;
    std::vector<node::client_id> departed_;  // of whom the engine has not been told yet
    std::vector<u32> not_started_;           // attaches for which no program could be started, the same
    node::client_id last_id_ = 0;
    u32 refused_ = 0;  // connections
    u32 packets_ = 0;
    u64 told_ms_ = 0;
    const u64 began_ms_;
    alignas(16) u8 received_[node::LONGEST_PACKET];
};

}  // namespace tessaly::daemon
