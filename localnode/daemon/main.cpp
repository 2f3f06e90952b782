// tessaly-node: reads its settings, listens, goes into the background, runs until it is told to stop.
#include "localnode/daemon/config.h"
#include "service/notify.h"
#include "localnode/daemon/options.h"
#include "localnode/daemon/server.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

namespace tessaly::daemon {

namespace {

// The parent ends; the child goes on without a terminal, in the root directory.
void go_into_background()
{
    const pid_t child = fork();
    if (child < 0)
        throw std::runtime_error("cannot go into the background: " + error_text(errno));
    if (child > 0)
        _exit(0);
    setsid();
    const unique_fd nothing{open("/dev/null", O_RDWR | O_CLOEXEC)};
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(nothing.get(), standard);
    if (chdir("/") != 0)
        log(level::warning, "cannot leave the directory: ", error_text(errno));
}

// Each client takes a descriptor.
void allow_descriptors(rlim_t wanted)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur >= wanted)
        return;
    limit.rlim_cur = std::min(wanted, limit.rlim_max);
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur < wanted)
        log(level::warning, "the system allows ", limit.rlim_cur, " descriptors, fewer than the clients that are allowed");
}

// The node leaves the directory in which it was started.
std::string whole_path(const std::string& path)
{
    return path.empty() ? path : std::filesystem::absolute(path).string();
}

int run(const options& given)
{
    const std::string config = whole_path(given.config);
    settings with = config.empty() ? settings{} : read_config(config);
    if (!given.socket.empty())
        with.socket = whole_path(given.socket);
    if (given.check_config) {
        std::printf("%s: no faults\n", config.empty() ? "the built-in settings" : config.c_str());
        return 0;
    }
    log_up_to(with.log.most);
    if (!log_to(with.log.file))
        throw std::runtime_error(with.log.file + ": " + error_text(errno));
    constexpr rlim_t OTHER_DESCRIPTORS = 32;
    allow_descriptors(with.limits.clients + OTHER_DESCRIPTORS);
    std::signal(SIGPIPE, SIG_IGN);
    const sigset_t taken = signals_taken();
    sigprocmask(SIG_BLOCK, &taken, nullptr);
    listener clients{with};
    if (!given.foreground)
        go_into_background();
    server node{with, config, clients};
    log(level::info, "listens on ", with.socket);
    notify_manager("READY=1");
    node.run();
    clients.remove_file();
    log(level::info, "has stopped");
    return 0;
}

}  // namespace

}  // namespace tessaly::daemon

int main(int count, char** words)
{
    using namespace tessaly::daemon;
    int exit_code = 0;
    const std::optional<options> given = read_command_line(count, words, exit_code);
    if (!given)
        return exit_code;
    try {
        return run(*given);
    } catch (const config_error& error) {
        std::fputs(error.what(), stderr);
        return 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tessaly-node: %s\n", error.what());
        return 1;
    }
}
