// Conversations written as text: two TPs, a and b, of which a has allocated the conversation and has the turn. A script is a
// list of steps, separated by |, each with whose verb it is, the verb with a number of its own (see scripts.cpp), the data it
// sends, and what becomes of it: "a send hello | b get.4 => hell~ | b get => o".
//
// Without => a verb is expected to be answered with OK. Else: waits; the codes in hex, the secondary one behind a slash; what
// was received, ~ behind an incomplete record, = behind data of fill buffer, then <send>, <confirm> and so on; the state; and
// rts or expd where the answer tells those. "then" stands for the first answer that has come to a verb that waited, "later" for
// so many milliseconds that pass, and "due" for those until something happens by itself.
// On basic conversations _ is a zero byte, a digit that byte, and C the byte with only the high bit.
#pragma once

#include "tests/engine/playing.h"

namespace tessaly::node::playing {

class ScriptTest : public EngineTest {
protected:
    // Each on a conversation of its own; no frame may be left over behind one.
    void play(std::span<const char* const> scripts, u8 conv_type = APPC_MAPPED, u8 sync_level = APPC_SYNC_CONFIRM);
    void play(const std::string& script, u8 conv_type = APPC_MAPPED, u8 sync_level = APPC_SYNC_CONFIRM);
};

}  // namespace tessaly::node::playing
