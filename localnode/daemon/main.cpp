// tessaly-node: reads its settings, listens, goes into the background, runs until it is told to stop.
#include "localnode/daemon/options.h"
#include "localnode/daemon/server.h"

#include <fcntl.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
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

int run(const options& given)
{
    settings with;
    if (!given.socket.empty())
        with.socket = given.socket;
    std::signal(SIGPIPE, SIG_IGN);
    const sigset_t taken = signals_taken();
    sigprocmask(SIG_BLOCK, &taken, nullptr);
    listener clients{with};
    if (!given.foreground)
        go_into_background();
    server node{with, clients};
    log(level::info, "listens on ", with.socket);
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
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tessaly-node: %s\n", error.what());
        return 1;
    }
}
