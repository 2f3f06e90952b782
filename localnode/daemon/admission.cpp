// Who may connect and who is a TP server: what the settings say about the credentials of a connection.
#include "localnode/daemon/switchboard.h"

#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>

namespace tessaly::daemon {

namespace {

// The groups of a socket's peer besides its own.
std::vector<gid_t> further_groups(int socket)
{
    std::vector<gid_t> groups(64);
    for (;;) {
        auto bytes = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
        const int result = getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &bytes);
        const std::size_t count = bytes / sizeof(gid_t);
        if (result == 0 || errno != ERANGE) {
            groups.resize(result == 0 ? count : 0);
            return groups;
        }
        groups.resize(count);
    }
}

template <typename Id>
bool is_in(const std::vector<Id>& ids, Id id)
{
    return std::ranges::find(ids, id) != ids.end();
}

}  // namespace

bool switchboard::may_connect(const ucred& peer) const
{
    const auto& access = settings_.access;
    return peer.uid == 0 || peer.uid == geteuid() || (access.users.empty() && access.groups.empty()) ||
           is_in(access.users, peer.uid) || is_in(access.groups, peer.gid);
}

node::client_rights switchboard::rights_of(const connection& client) const
{
    const auto& admitted = settings_.tp_servers;
    const bool root = client.peer.uid == 0;
    const bool tp_server = root || is_in(admitted.users, client.peer.uid) || is_in(admitted.groups, client.peer.gid) ||
                           std::ranges::any_of(client.groups, [&](gid_t each) { return is_in(admitted.groups, each); });
    return {tp_server, root};
}

node::refusal switchboard::refusal_for(const ucred& peer) const
{
    if (!may_connect(peer))
        return node::refusal::not_permitted;
    return connections_.size() - refused_ < settings_.limits.clients ? node::refusal::none : node::refusal::too_many_clients;
}

void switchboard::admit(unique_fd socket)
{
    ucred peer{};
    socklen_t length = sizeof peer;
    if (getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0)
        return;
    const node::refusal refused = refusal_for(peer);
    if (refused != node::refusal::none) {
        log(level::warning, "refuses process ", peer.pid, " of user ", peer.uid, ", group ", peer.gid, ": ",
            refused == node::refusal::not_permitted ? "not permitted" : "too many clients");
        if (refused_ == MOST_REFUSED)
            return;
    }
    do
        ++last_id_;
    while (last_id_ == 0 || connections_.contains(last_id_));
    const int fd = socket.get();
    auto made = std::make_unique<connection>(last_id_, std::move(socket), peer, further_groups(fd));
    made->rights = rights_of(*made);
    made->refused = refused;
    refused_ += refused != node::refusal::none;
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.ptr = made.get();
    connections_.emplace(last_id_, std::move(made));
    if (epoll_ctl(poller_, EPOLL_CTL_ADD, fd, &event) != 0)
        drop(*find(last_id_), level::warning, error_text(errno));
}

}  // namespace tessaly::daemon
