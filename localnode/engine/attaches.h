// Where conversations that were allocated meet the TPs that wait for one. An attach is offered to one waiting TP at a time,
// which comes with a RECEIVE_ALLOCATE that names the attach, or refuses. For one that finds no TP waiting a program may be
// started (starts), which takes it in the same way. What nobody takes ends with its time limit.
#pragma once

#include "localnode/engine/node.h"
#include "wire/datagrams.h"

namespace tessaly::node {

// Brings the incoming side of a new conversation on its way, as the ALLOCATE or SEND_CONVERSATION asks. False when too many wait
// already, or there is no memory.
bool send_attach(node& n, conv_side& incoming, const request& verb);

// The attach that a RECEIVE_ALLOCATE names, if it was offered to that TP of that client; its time limit is lifted.
// One that a program was started for is given to whoever names it: only the program has been told its number.
attach* take_attach(node& n, u32 attach_corr, client_id client, u32 tp_handle);

// The conversation has been taken, or is over: the attach has served its purpose.
void drop_attach(node& n, attach& done);

// The TP to which it was offered does not take it: offers it to the next, or ends the conversation.
void refuse_attach(node& n, attach& refused);

// Nobody takes the conversation; that is what its allocating side gets.
void end_attach(node& n, attach& ended, return_codes codes);

// Puts an attach at the end of one of the node's two lists, with that time limit from now on.
void wait_in(node& n, list_head<attach>& list, attach& waiting, u32 limit_ms) noexcept;

// The program that was started for an attach is no more, or never was.
void program_ended(node& n, u32 attach_corr);

// A TP server has been asked for a program, or will be, which has not been started yet.
inline bool is_to_be_started(const attach& arrived) noexcept
{
    return arrived.start.phase == start_phase::queued || arrived.start.phase == start_phase::asked;
}

// Datagrams.
void announce(node& n, client_id client, const announce_datagram& datagram);
void cancel_announcement(node& n, client_id client, const cancel_announce_datagram& datagram);
void attach_response(node& n, client_id client, const attach_response_datagram& datagram);
void register_name(node& n, client_id client, const cpic_datagram& datagram);
void unregister_name(node& n, client_id client, const cpic_datagram& datagram);

// A client that is gone waits no more, and takes nothing that was offered to it.
void forget_waiting(node& n, client_id client, client_record& leaving);

void expire_attaches(node& n);

}  // namespace tessaly::node
