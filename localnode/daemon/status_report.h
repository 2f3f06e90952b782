// The node's status as a JSON document; its members stand in status_protocol.h.
#pragma once

#include "localnode/daemon/connection.h"
#include "localnode/daemon/settings.h"

#include <unordered_map>

namespace tessaly::daemon {

using connection_map = std::unordered_map<node::client_id, std::unique_ptr<connection>>;

std::string status_document(const settings& of, u64 uptime_ms, const connection_map& clients, const node::node_report& report);

}  // namespace tessaly::daemon
