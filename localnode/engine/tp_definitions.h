// What TP servers have told that they start, and which of it fits an attach.
#pragma once

#include "localnode/engine/node.h"
#include "wire/tp_server_datagrams.h"

namespace tessaly::node {

inline constexpr u8 EBCDIC_ASTERISK = 0x5C;  // in a pattern of partners

enum tp_start_type : u8 { START_EACH = 1, START_QUEUED = 2, START_NEVER = 3 };

// The definition that fits an attach best: one for its local LU before one for any; then an exact partner, a pattern with a
// network, one without, any, the longer pattern first; then the one that was made first. Null when none fits.
tp_definition* best_definition(const node& n, const conv_side& incoming) noexcept;
bool fits(const node& n, const tp_definition& definition, const conv_side& incoming) noexcept;

// Adds, replaces or deletes, and answers.
void update_definition(node& n, client_id client, const update_tp_info_datagram& datagram);

// Those of one server of a client, or of all. What is queued for them is looked at again.
void forget_definitions(node& n, client_record& of, client_id client, const u32* server) noexcept;

// A client's TP servers, by its numbers.
void open_tp_server(node& n, client_id client, u32 number, client_rights rights);

// With the last one all definitions of the client go.
void close_tp_server(node& n, client_id client, u32 number);

// Tells all TP servers that definitions have changed, once for all that one frame changes.
void tell_changes(node& n);

}  // namespace tessaly::node
