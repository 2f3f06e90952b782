#include "localnode/daemon/programs.h"

#include "localnode/engine/engine.h"

#include <sys/wait.h>

namespace tessaly::daemon {

bool programs::start(const program_settings& program, u32 attach_corr) noexcept
try {
    child starting{attach_corr, program.tp_name};
    running_.reserve(running_.size() + 1);
    const started_program started =
        start_program(program, base_environment::inherited,
                      {{"TESSALY_NODE", "unix:" + socket_}, {"APPC_ATTACH_ID", attach_id(attach_corr, node::NODE_ADDRESS)}});
    if (started.process < 0) {
        log(level::error, "program ", program.tp_name, ": cannot be started: ", started.problem);
        return false;
    }
    log(level::info, "program ", program.tp_name, ": started as process ", started.process);
    running_.emplace(started.process, std::move(starting));
    return true;
} catch (const std::exception& error) {
    log(level::error, "program ", program.tp_name, ": ", error.what());
    return false;
}

std::vector<u32> programs::take_ended()
{
    std::vector<u32> ended;
    int status = 0;
    for (pid_t pid = 0; (pid = waitpid(-1, &status, WNOHANG)) > 0;) {
        const auto at = running_.find(pid);
        if (at == running_.end())
            continue;
        log(status == 0 ? level::info : level::warning, "program ", at->second.tp_name, ": process ", pid,
            WIFSIGNALED(status) ? " was ended by signal " : " ended with exit code ",
            WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status));
        ended.push_back(at->second.attach_corr);
        running_.erase(at);
    }
    return ended;
}

}  // namespace tessaly::daemon
