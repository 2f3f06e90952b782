#include "localnode/daemon/programs.h"

#include "localnode/daemon/unique_fd.h"
#include "localnode/engine/engine.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/wait.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>

namespace tessaly::daemon {

namespace {

// Which attach the program takes: 16 digits, correlator and address, each with the byte first that is first in memory.
std::string attach_id(u32 attach_corr)
{
    char digits[17];
    std::snprintf(digits, sizeof digits, "%08x%08x", htonl(attach_corr), htonl(node::NODE_ADDRESS));
    return digits;
}

// The name or number of a user, as the config file has it.
const passwd* find_user(const std::string& name)
{
    if (const passwd* const named = getpwnam(name.c_str()))
        return named;
    uid_t id = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), id);
    return error == std::errc{} && end == name.data() + name.size() ? getpwuid(id) : nullptr;
}

// False, with errno, when that user is not to be had.
bool become(const std::string& name)
{
    if (name.empty())
        return true;
    errno = ENOENT;
    const passwd* const user = find_user(name);
    if (user == nullptr)
        return false;
    if (geteuid() != 0) {
        errno = EPERM;
        return user->pw_uid == geteuid();
    }
    setenv("HOME", user->pw_dir, 1);
    setenv("USER", user->pw_name, 1);
    setenv("LOGNAME", user->pw_name, 1);
    return initgroups(user->pw_name, user->pw_gid) == 0 && setgid(user->pw_gid) == 0 && setuid(user->pw_uid) == 0;
}

// In the child; the node has one thread, so everything is allowed here.
[[noreturn]] void run(const program_settings& program, u32 attach_corr, const std::string& socket)
{
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    std::signal(SIGPIPE, SIG_DFL);
    setsid();
    const unique_fd nothing{open("/dev/null", O_RDONLY | O_CLOEXEC)};
    dup2(nothing.get(), STDIN_FILENO);
    if (!become(program.user)) {
        log(level::error, "program ", program.tp_name, ": cannot run as user ", program.user, ": ", error_text(errno));
        _exit(126);
    }
    setenv("TESSALY_NODE", ("unix:" + socket).c_str(), 1);
    for (const auto& [name, value] : program.environment)
        setenv(name.c_str(), value.c_str(), 1);
    setenv("APPC_ATTACH_ID", attach_id(attach_corr).c_str(), 1);
    std::vector<char*> words;
    for (const std::string& word : program.command)
        words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    execv(words[0], words.data());
    log(level::error, "program ", program.tp_name, ": ", words[0], ": ", error_text(errno));
    _exit(127);
}

}  // namespace

bool programs::start(const program_settings& program, u32 attach_corr) noexcept
try {
    child started{attach_corr, program.tp_name};
    running_.reserve(running_.size() + 1);
    const pid_t pid = fork();
    if (pid == 0) {
        try {
            run(program, attach_corr, socket_);
        } catch (...) {
            _exit(125);
        }
    }
    if (pid < 0) {
        log(level::error, "program ", program.tp_name, ": ", error_text(errno));
        return false;
    }
    log(level::info, "program ", program.tp_name, ": started as process ", pid);
    running_.emplace(pid, std::move(started));
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
