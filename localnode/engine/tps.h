// Paths and the TPs that use them: one TP a path. The verbs of TPs, and every way in which a TP ends.
#pragma once

#include "localnode/engine/verdict.h"

namespace tessaly::node {

path_record* find_path(node& n, client_id client, u32 number) noexcept;

// A path that is open already is begun anew.
void open_path(node& n, client_id client, u32 number);
void close_path(node& n, path_record& path);

// Ends the path's TP and tells the client. What still comes on it is ignored until it is closed or opened again.
void fail_path(node& n, path_record& path);

// The same for paths whose client could not be reached; the host tells it.
void fail_lost_paths(node& n);

// All paths of that client close, its announcements and registered names go.
void client_gone(node& n, client_id client);

// A TP on a path that has none. Null when there is no room.
tp* begin_tp(node& n, path_record& path, u32 client_corr);

// The TP identifier that blocks carry.
void put_tp_id(u8 (&field)[TP_ID_BYTES], const tp& program) noexcept;
bool is_tp_id(const u8 (&field)[TP_ID_BYTES], const tp& program) noexcept;

verdict tp_started(node& n, request& verb);
verdict tp_ended(node& n, request& verb);
verdict set_tp_properties(request& verb) noexcept;
verdict get_tp_properties(const node& n, request& verb) noexcept;

}  // namespace tessaly::node
