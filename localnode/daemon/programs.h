// Programs that the node starts, each for one attach, until they end.
#pragma once

#include "localnode/daemon/settings.h"

#include <unordered_map>

namespace tessaly::daemon {

class programs {
public:
    explicit programs(std::string socket) : socket_(std::move(socket)) {}

    // False, after a line in the log, when it cannot be started.
    bool start(const program_settings& program, u32 attach_corr) noexcept;

    // The attaches of programs that have ended meanwhile.
    std::vector<u32> take_ended();

    std::size_t running() const noexcept { return running_.size(); }

private:
    struct child {
        u32 attach_corr;
        std::string tp_name;
    };

    const std::string socket_;
    std::unordered_map<pid_t, child> running_;
};

}  // namespace tessaly::daemon
