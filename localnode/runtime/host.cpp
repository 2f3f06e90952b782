// Chooses the host by the environment, and keeps it.
#include "localnode/runtime/host.h"

#include "localnode/runtime/clock.h"
#include "localnode/runtime/never_destroyed.h"

#include <cstdlib>
#include <string_view>

namespace tessaly::runtime {

namespace {

constinit never_destroyed<std::unique_ptr<node_host>> host;

}  // namespace

node_host* the_host() noexcept
{
    if (*host == nullptr) {
        const char* chosen = std::getenv("TESSALY_NODE");
        if (chosen == nullptr || *chosen == '\0' || std::string_view{chosen} == "embedded")
            *host = make_embedded_host();
    }
    return host->get();
}

void forget_host() noexcept
{
    host->reset();
}

u64 node_deadline_ms() noexcept
{
    return *host != nullptr ? (*host)->deadline_ms() : NEVER;
}

bool pass_time_if_due() noexcept
{
    const u64 deadline = node_deadline_ms();
    if (deadline == NEVER)
        return false;
    const u64 now = precise_now_ms();
    if (now < deadline)
        return false;
    (*host)->pass_time(now);
    return true;
}

}  // namespace tessaly::runtime
