// What the runtime needs from whatever runs the node: the embedded host has it in this process.
#pragma once

#include "common/types.h"
#include "localnode/engine/engine.h"
#include "localnode/runtime/clock.h"

#include <memory>

namespace tessaly::runtime {

// Results of the contract's operations. NO_NODE is one of the three that applications see as a node that is not there.
enum status : u16 { DONE = 0, NO_NODE = 2, NO_MEMORY = 12, BAD_ARGUMENT = 22, PATH_BROKEN = 32 };

class node_host {
public:
    virtual ~node_host() = default;

    // Whether the node can be reached; tries to, if it was not so far.
    virtual bool is_there() noexcept { return true; }

    // Hands one frame of this process to the node; the host fills in client and time. Answers go into the event queue, and
    // nothing is delivered from in here.
    virtual status submit(node::frame&& sent) noexcept = 0;

    virtual void pass_time(u64 now_ms) noexcept = 0;

    // In a fork's child, before it is forgotten: gives up what the parent goes on using. Does only what a signal handler may.
    virtual void leave_to_parent() noexcept {}
};

// When the node next wants to be told the time, as its host knows it; NEVER while nothing waits for time, so that the verbs of
// a conversation under way read no clock.
extern u64 node_deadline_ms;

// Null when there is no memory.
std::unique_ptr<node_host> make_embedded_host() noexcept;

// The process's host, made and connected when it is first asked for; null when the environment names a node that cannot be
// reached.
node_host* the_host() noexcept;

// The host if it was asked for before, whether its node is still there or not.
node_host* host_in_use() noexcept;
void forget_host() noexcept;

// Takes a frame for this process into the event queue: room for the bytes of a message or datagram, which the caller fills. Null
// when there is no memory, which then has failed the path (for a datagram all paths), and for a frame that is none for a client.
u8* take_frame(node::frame_kind kind, u32 path, u32 bytes) noexcept;

// Tells the node the time when its deadline has come.
void look_at_clock() noexcept;
inline void pass_time_if_due() noexcept
{
    if (node_deadline_ms != NEVER) [[unlikely]]
        look_at_clock();
}

}  // namespace tessaly::runtime
