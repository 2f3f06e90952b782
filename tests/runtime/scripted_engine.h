// A node for the runtime's tests: in the place of the engine, and does what the test says.
#pragma once

#include "localnode/engine/engine.h"

#include <functional>
#include <vector>

namespace tessaly::node {

struct seen_frame { frame_kind kind; std::vector<u8> bytes; };  // block and data

// Guarded by the process lock, as the engine is.
struct node_script {
    using answer = std::function<void(const frame&, frame_sink&)>;
    answer on_message, on_datagram, on_time;
    std::optional<u64> deadline_ms;
    std::vector<seen_frame> seen;  // all but opened paths, datagrams and the time
    u32 engines = 0;               // made so far
};

extern node_script script;

}  // namespace tessaly::node
