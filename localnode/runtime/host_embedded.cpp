// The embedded host: the node's engine in this process, with this process as its only client. A verb that the node answers at
// once is plain calls from vpm_send_ips to the event queue.
#include "localnode/runtime/host.h"

#include <unistd.h>

#include <exception>

namespace tessaly::runtime {

namespace {

constexpr node::client_id THIS_PROCESS = 1;

// The engine's clock stands still while nothing waits for it, and goes on from there when something does: the engine counts
// intervals only, and its time must never go back.
class embedded_host final : public node_host, private node::frame_sink {
public:
    status submit(node::frame&& sent) noexcept override;
    void pass_time(u64 now_ms) noexcept override;

private:
    u8* add(node::client_id client, node::frame_kind kind, u32 path, u32 bytes) override;
    void accept(const node::frame& input);

    node::engine engine_;
    u64 told_ms_ = 0;    // what the engine was told last
    u64 behind_ms_ = 0;  // how far its clock is behind while something waits
};

void embedded_host::accept(const node::frame& input)
{
    engine_.accept(input, *this);
    const std::optional<u64> deadline = engine_.deadline_ms();
    if (!deadline.has_value()) [[likely]] {
        node_deadline_ms = NEVER;
        return;
    }
    if (node_deadline_ms == NEVER)
        behind_ms_ = precise_now_ms() - told_ms_;
    node_deadline_ms = *deadline + behind_ms_;
}

status embedded_host::submit(node::frame&& sent) noexcept
try {
    if (node_deadline_ms != NEVER) [[unlikely]]
        pass_time(cheap_now_ms());
    sent.client = THIS_PROCESS;
    sent.now_ms = told_ms_;
    if (sent.kind != node::frame_kind::message)
        sent.rights = {.tp_server = true, .root = geteuid() == 0};
    accept(sent);
    return DONE;
} catch (const std::exception&) {
    return NO_MEMORY;
}

void embedded_host::pass_time(u64 now_ms) noexcept
try {
    if (now_ms <= told_ms_ + behind_ms_)
        return;
    told_ms_ = now_ms - behind_ms_;
    accept({.kind = node::frame_kind::time_passed, .client = THIS_PROCESS, .now_ms = told_ms_});
} catch (const std::exception&) {
    // The time is told again with the next frame; only a deadline that keeps failing must not keep the deliverer busy.
    node_deadline_ms = NEVER;
}

u8* embedded_host::add(node::client_id client, node::frame_kind kind, u32 path, u32 bytes)
{
    return client == THIS_PROCESS ? take_frame(kind, path, bytes) : nullptr;
}

}  // namespace

std::unique_ptr<node_host> make_embedded_host() noexcept
try {
    return std::make_unique<embedded_host>();
} catch (const std::exception&) {
    return nullptr;
}

}  // namespace tessaly::runtime
