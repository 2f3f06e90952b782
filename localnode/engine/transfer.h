// Data and indications on their way from one side of a conversation to the other, and the receive verbs that take them.
#pragma once

#include "localnode/engine/verdict.h"

namespace tessaly::node {

// Passes a mapped record (if there is one) and what a verb indicates to the side that receives, which may be over afterwards.
// False when there is no memory to keep the record, which ends the conversation.
bool pass_on(node& n, conv_side& to, const std::span<const u8>* record, indication behind, return_codes ending);

// Leaves data of a basic conversation, whose LLs have been checked, with the side that receives; pass_on follows and tells it.
// False when there is no memory.
bool pass_records(conv_side& from, conv_side& to, std::span<const u8> data);

// The same as pass_on with an error, which the side receives in its place among the records.
bool pass_error_on(node& n, conv_side& to, u16 code);

// RECEIVE_AND_WAIT, RECEIVE_AND_POST and RECEIVE_IMMEDIATE in receive state.
verdict receive(node& n, conv_side& side, request& verb, bool wait);

// Completes the receive verb that waits on this side, when there is something for it. The side may be over afterwards.
void serve_receiver(node& n, conv_side& side);

// 1 when the partner asked for the turn and no answer has told it yet; this one does.
u8 take_turn_wanted(conv_side& side) noexcept;

// Keeps a verb until what it waits for happens.
verdict keep_waiting(conv_side& side, const request& verb, waits_for what) noexcept;

}  // namespace tessaly::node
