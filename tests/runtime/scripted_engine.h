// A node for the runtime's tests: in the place of the engine, and does what the test says.
#pragma once

#include "localnode/engine/engine.h"

#include <functional>
#include <vector>

namespace tessaly::node {

struct seen_frame {
    frame_kind kind;
    u32 path;
    std::vector<u8> block;
    std::vector<u8> data;
};

// Guarded by the process lock, as the engine is.
struct node_script {
    std::function<void(const frame&, frame_sink&)> answer = [](const frame&, frame_sink&) {};
    std::optional<u64> deadline_ms;
    std::vector<seen_frame> seen;  // all but the time
    u32 engines = 0;               // made so far

    std::vector<seen_frame> seen_of(frame_kind kind) const;
};

extern node_script script;

}  // namespace tessaly::node
