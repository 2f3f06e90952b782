// What the node sends: answers to verbs, path failures, application-ready datagrams. All that leaves goes through here.
#pragma once

#include "localnode/engine/node.h"

namespace tessaly::node {

// Answers a verb of that path's TP with the block as it now is, and data behind it; not on a path that has failed. When there
// is no room for the frame the path counts as lost; what that means for its TP happens when the frame in hand is dealt with.
void answer(node& n, path_record& path, verb_ref verb, std::span<const u8> data = {});

// The same; the caller puts the data where the result says. Null when no answer leaves.
u8* begin_answer(node& n, path_record& path, verb_ref verb, u32 data_bytes);

// The only way in which a message leaves. Null when the path has failed, or is lost now.
u8* begin_message(node& n, path_record& path, u32 bytes);

// The only way in which a datagram leaves. False when there is no memory; the client gets to know.
bool send_datagram(node& n, client_id client, std::span<const u8> datagram);
template <typename Datagram>
bool send_datagram(node& n, client_id client, const Datagram& datagram)
{
    return send_datagram(n, client, std::span{reinterpret_cast<const u8*>(&datagram), sizeof datagram});
}

// Answers the verb that waits on a side, which then waits no more.
void answer_waiter(node& n, conv_side& side, return_codes codes);

// Fills the status bytes of the verbs that have some: the partner asked for the turn, and expedited data wait.
void put_status(conv_side& side, u8* block) noexcept;

// Tells the client that a path has failed. The caller has ended its TP.
void send_path_failed(node& n, const path_record& path);
void send_path_failed(node& n, client_id client, u32 path_number);

// Asks the host to start a program. False when that cannot be told.
bool send_start_program(node& n, const attach& arrived);

// Tells a client what became of an announced TP.
void send_ready(node& n, const attach& offered);
void send_announcement_failed(node& n, client_id client, u32 tp_handle);

}  // namespace tessaly::node
