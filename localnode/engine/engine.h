// The local node as a state machine: one frame from a client in, a list of frames to clients out. No socket, clock, thread or
// global; the hosts around it (embedded in a process, or behind a socket) bring frames and time.
#pragma once

#include "common/types.h"

#include <memory>
#include <optional>
#include <span>

namespace tessaly::node {

using client_id = u32;  // a process that uses the node; numbers are the host's, 0 is none

inline constexpr u32 NODE_ADDRESS = 0x01010101;  // the same in either byte order

enum class frame_kind : u8 {
    // from a client, or from the host on its behalf
    path_opened,  // path: the client's new number for it
    path_closed,
    client_gone,  // all its paths are closed and its announcements withdrawn
    time_passed,  // now_ms
    // to a client
    path_failed,
    terminated,
    // both ways
    message,   // block: verb_message_header and block in node layout; data: what follows
    datagram,  // block: the datagram
};

struct frame {
    frame_kind kind;
    client_id client = 0;
    u32 path = 0;
    std::span<const u8> block = {};  // aligned for u32
    std::span<const u8> data = {};
    u64 now_ms = 0;  // CLOCK_MONOTONIC
};

// Where the engine puts what it sends. Order matters: a client gets its frames in the order of these calls.
class frame_sink {
public:
    virtual ~frame_sink() = default;

    // Room for one frame of that many bytes, which the engine fills before it returns from accept(); aligned for u32.
    // Null when there is no memory: the frame is lost, and the host must fail the path for it (or the client, for a datagram).
    virtual u8* add(client_id client, frame_kind kind, u32 path, u32 bytes) = 0;
};

// Records that the engine keeps.
struct record_counts {
    u32 paths = 0;
    u32 tps = 0;
    u32 sides = 0;  // of conversations
    u32 attaches = 0;
    u32 announcements = 0;
    u32 names = 0;        // registered for CPI-C
    u32 lost_paths = 0;   // between two frames none
    u32 unreachable = 0;  // of all these, records that nothing will ever use or release; always 0
    bool operator==(const record_counts&) const = default;
};

class engine {
public:
    engine();
    ~engine();
    engine(const engine&) = delete;
    engine& operator=(const engine&) = delete;

    // Takes one frame, whatever it holds; what is malformed is answered with path_failed or ignored, and harms no other client.
    void accept(const frame& input, frame_sink& output);

    // When to feed the next time_passed frame; none while nothing waits for time.
    std::optional<u64> deadline_ms() const;

    // Looks at every record.
    record_counts counts() const;

private:
    class state;
    std::unique_ptr<state> state_;
};

}  // namespace tessaly::node
