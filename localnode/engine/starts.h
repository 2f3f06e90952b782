// Programs that are started for attaches: by the TP server whose definition fits best, else by the host. One mechanism for both:
// an attach is kept for the program that is started for it, until that names it in a RECEIVE_ALLOCATE.
#pragma once

#include "localnode/engine/node.h"
#include "wire/tp_server_datagrams.h"

namespace tessaly::node {

// Afterwards the attach's start tells who was asked; nobody when none is to be had, or the program is never to be started.
void start_program(node& n, attach& arrived);

// The program has taken the attach, or never will: the next in its queue may be started for. A start_id means nothing any more
// when the attach gets another number.
void end_start(node& n, attach& started) noexcept;

// Starts what queues have room for.
void move_queues(node& n);

// For attaches that wait already and that nobody is started for.
void start_waiting(node& n, const tp_definition& defined);

// One server of a client has ended, or all have: what they were asked for is asked of the next, or ends.
void forget_server(node& n, client_record& of, client_id client, const u32* server);
void pass_on_starts(node& n, client_id client, const u32* server);

// Datagrams.
void start_answered(node& n, client_id client, const start_appl_rsp_datagram& datagram);
void program_failed(node& n, client_id client, const appl_failed_datagram& datagram);
void take_back(node& n, client_id client, const start_appl_req_datagram& datagram);

// The attach that a client's TP server was asked to start for, as long as that matters. None: told in what way by the code, a
// secondary one of appc.h.
struct start_found {
    attach* of;
    u32 code;
};
start_found find_start(node& n, client_id client, const start_id_words& start_id) noexcept;

// When the host was asked; null for another number.
attach* find_hosts_start(node& n, u32 attach_corr) noexcept;

}  // namespace tessaly::node
