#include "scripted_engine.h"

namespace tessaly::node {

node_script script;

class engine::state {};

engine::engine() { ++script.engines; }

engine::~engine() = default;

void engine::accept(const frame& input, frame_sink& output)
{
    std::vector<u8> bytes{input.block.begin(), input.block.end()};
    bytes.insert(bytes.end(), input.data.begin(), input.data.end());
    if (input.kind != frame_kind::path_opened && input.kind != frame_kind::datagram && input.kind != frame_kind::time_passed)
        script.seen.push_back({input.kind, bytes});
    const node_script::answer& answer = input.kind == frame_kind::message       ? script.on_message
                                        : input.kind == frame_kind::datagram    ? script.on_datagram
                                        : input.kind == frame_kind::time_passed ? script.on_time : nullptr;
    if (answer)
        answer(input, output);
}

std::optional<u64> engine::deadline_ms() const { return script.deadline_ms; }

}  // namespace tessaly::node
