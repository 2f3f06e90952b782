#include "tests/daemon/service_process.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <utility>

namespace tessaly::daemon {

namespace {

constexpr int PATIENCE_MS = 60'000;  // ends only a test that has failed

}  // namespace

pipe_ends make_pipe()
{
    int ends[2];
    return pipe2(ends, O_CLOEXEC) == 0 ? pipe_ends{unique_fd{ends[0]}, unique_fd{ends[1]}} : pipe_ends{};
}

bool is_readable(int fd)
{
    pollfd wanted{fd, POLLIN, 0};
    return poll(&wanted, 1, PATIENCE_MS) == 1;
}

std::string read_some(int fd)
{
    char text[4096];
    const ssize_t got = is_readable(fd) ? read(fd, text, sizeof text) : 0;
    return {text, static_cast<std::size_t>(std::max<ssize_t>(got, 0))};
}

std::string read_all(int fd)
{
    std::string all;
    for (std::string some; !(some = read_some(fd)).empty();)
        all += some;
    return all;
}

pid_t run_program(const std::vector<std::string>& words, int output, uid_t as)
{
    const pid_t child = fork();
    if (child != 0)
        return child;
    std::vector<char*> pointers;
    for (const std::string& each : words)
        pointers.push_back(const_cast<char*>(each.c_str()));
    pointers.push_back(nullptr);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    if (as == 0 || (setgroups(0, nullptr) == 0 && setgid(as) == 0 && setuid(as) == 0))
        execv(pointers[0], pointers.data());
    _exit(126);
}

ending run_to_the_end(const std::vector<std::string>& words, uid_t as)
{
    pipe_ends output = make_pipe();
    const pid_t child = run_program(words, output.in.get(), as);
    output.in.reset();
    const std::string printed = read_all(output.out.get());
    int how = 0;
    waitpid(child, &how, 0);
    return {WIFEXITED(how) ? WEXITSTATUS(how) : -1, printed};
}

service_process::service_process(const std::vector<std::string>& words, const std::string& directory, uid_t as)
{
    const std::string manager = directory + "/manager";
    const unique_fd told{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    manager.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(told.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    std::filesystem::permissions(manager, std::filesystem::perms(0666));
    setenv("NOTIFY_SOCKET", manager.c_str(), 1);
    pipe_ends log = make_pipe();
    process_ = run_program(words, log.in.get(), as);
    unsetenv("NOTIFY_SOCKET");
    log_ = std::move(log.out);
    log.in.reset();
    EXPECT_EQ(read_some(told.get()), "READY=1");
    std::filesystem::remove(manager);
}

service_process::~service_process()
{
    if (process_ != 0) {
        EXPECT_EQ(stop(SIGTERM), 0) << "how it ended: " << rest_of_log();
    }
}

void service_process::signal(int number) const
{
    kill(process_, number);
}

int service_process::stop(int number)
{
    signal(number);
    int how = -1;
    waitpid(process_, &how, 0);
    process_ = 0;
    return how;
}

bool service_process::logs(std::string_view text)
{
    while (true) {
        for (std::size_t end = 0; (end = unread_.find('\n')) != unread_.npos;) {
            const std::string line = unread_.substr(0, end);
            unread_.erase(0, end + 1);
            if (line.find(text) != line.npos)
                return true;
        }
        const std::string some = read_some(log_.get());
        if (some.empty())
            return false;
        unread_ += some;
    }
}

std::string service_process::rest_of_log()
{
    return std::exchange(unread_, "") + read_all(log_.get());
}

}  // namespace tessaly::daemon
