// What a TP server asks about the attach that it is to start a program for.
#pragma once

#include "localnode/engine/node.h"
#include "wire/tp_server_datagrams.h"

namespace tessaly::node {

void query_start(node& n, client_id client, const query_dload_datagram& datagram);

// The message that fetches PIP data; it is no verb of the catalogue.
bool is_pip_request(const frame& input) noexcept;

// On a path that carries no TP. Answers as much of the data as the request has room for, and tells how much there is.
void extract_pip(node& n, path_record& path, const frame& input);

}  // namespace tessaly::node
