// Chooses the host by the environment, and keeps it.
#include "localnode/runtime/host.h"

#include "localnode/runtime/never_destroyed.h"

#include <cstdlib>
#include <string_view>

namespace tessaly::runtime {

constinit u64 node_deadline_ms = NEVER;

namespace {

constinit never_destroyed<std::unique_ptr<node_host>> host;

}  // namespace

node_host* the_host() noexcept
{
    if (*host == nullptr) [[unlikely]] {
        const char* chosen = std::getenv("TESSALY_NODE");
        if (chosen == nullptr || *chosen == '\0' || std::string_view{chosen} == "embedded")
            *host = make_embedded_host();
    }
    return host->get();
}

void forget_host() noexcept
{
    host->reset();
    node_deadline_ms = NEVER;
}

void look_at_clock() noexcept
{
    if (const u64 now = precise_now_ms(); now >= node_deadline_ms)
        (*host)->pass_time(now);
}

}  // namespace tessaly::runtime
