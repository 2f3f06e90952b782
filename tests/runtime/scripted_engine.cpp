#include "scripted_engine.h"

namespace tessaly::node {

node_script script;

std::vector<seen_frame> node_script::seen_of(frame_kind kind) const
{
    std::vector<seen_frame> found;
    for (const seen_frame& one : seen)
        if (one.kind == kind)
            found.push_back(one);
    return found;
}

class engine::state {};

engine::engine()
{
    ++script.engines;
}

engine::~engine() = default;

void engine::accept(const frame& input, frame_sink& output)
{
    if (input.kind != frame_kind::time_passed)
        script.seen.push_back({input.kind, input.path, {input.block.begin(), input.block.end()},
                               {input.data.begin(), input.data.end()}});
    script.answer(input, output);
}

std::optional<u64> engine::deadline_ms() const
{
    return script.deadline_ms;
}

}  // namespace tessaly::node
