// How one asks a running node for its status: connect to its SOCK_SEQPACKET socket, send STATUS_REQUEST as one packet, read
// packets of at most STATUS_PACKET bytes until the node closes. Joined they are one JSON document.
#pragma once

#include <cstddef>
#include <string_view>

namespace tessaly::node {

inline constexpr std::string_view DEFAULT_SOCKET = "/run/tessaly/node.sock";
inline constexpr std::string_view STATUS_REQUEST = "tessaly-status 1";
inline constexpr std::size_t STATUS_PACKET = 64 * 1024;

// {
//   "node": "...", "pid": N, "uptime_seconds": N, "version": "7.0.0",
//   "clients":       [{"id": N, "pid": N, "uid": N, "paths": N, "queued_bytes": N}],
//   "lus":           [{"alias": "...", "name": "..."}],
//   "tps":           [{"id": N, "client": N, "name": "...", "lu": "...", "conversations": N}],
//   "conversations": [{"id": N, "tp": N, "state": "...", "partner_lu": "...", "tp_name": "...", "mode": "..."}],
//   "tp_servers":     [{"client": N, "servers": N, "definitions": N, "starts": N}],
//   "tp_definitions": [{"id": N, "client": N, "server": N, "tp_name": "...", "lu": "...", "partner_lu": "...", "type": "..."}],
//   "starts":         [{"id": N, "client": N, "tp_name": "...", "lu": "...", "partner_lu": "...", "state": "..."}],
//   "attaches_waiting": N, "tps_waiting": N, "registered_names": N
// }
// "client" of a start is 0 when the node itself starts the program. An "lu" or "partner_lu" that is empty stands for any.
// "tp" of a conversation is 0 while no TP has taken it. A further version may add members.

}  // namespace tessaly::node
