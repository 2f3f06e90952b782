#include "tests/daemon/daemon.h"

#include "localnode/daemon/status_protocol.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace tessaly::daemon {

namespace {

constexpr int PATIENCE_MS = 60'000;  // ends only a test that has failed

std::string new_directory()
{
    char name[] = "/tmp/tessaly-daemon-XXXXXX";
    return mkdtemp(name);
}

sockaddr_un address_of(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

bool is_readable(int fd)
{
    pollfd wanted{fd, POLLIN, 0};
    return poll(&wanted, 1, PATIENCE_MS) == 1;
}

// What can be read there; empty at the end.
std::string read_some(int fd)
{
    char text[4096];
    const ssize_t got = is_readable(fd) ? read(fd, text, sizeof text) : 0;
    return {text, static_cast<std::size_t>(std::max<ssize_t>(got, 0))};
}

pid_t run_node(const std::vector<const char*>& arguments, int output)
{
    const pid_t child = fork();
    if (child != 0)
        return child;
    std::vector<char*> words{const_cast<char*>("tessaly-node")};
    for (const char* const each : arguments)
        words.push_back(const_cast<char*>(each));
    words.push_back(nullptr);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    execv(TESSALY_NODE_PROGRAM, words.data());
    _exit(126);
}

struct pipe_ends {
    unique_fd out, in;
};

pipe_ends make_pipe()
{
    int ends[2];
    return pipe2(ends, O_CLOEXEC) == 0 ? pipe_ends{unique_fd{ends[0]}, unique_fd{ends[1]}} : pipe_ends{};
}

}  // namespace

raw_client::raw_client(const std::string& path) : socket_(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0))
{
    const sockaddr_un address = address_of(path);
    EXPECT_EQ(connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0) << path;
}

bool raw_client::send(std::string_view packet) const
{
    return ::send(socket_.get(), packet.data(), packet.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(packet.size());
}

std::optional<std::string> raw_client::receive() const
{
    std::string packet(2 * node::LONGEST_PACKET, '\0');
    EXPECT_TRUE(is_readable(socket_.get())) << "nothing comes from the node";
    const ssize_t got = recv(socket_.get(), packet.data(), packet.size(), MSG_DONTWAIT);
    if (got <= 0)
        return std::nullopt;
    packet.resize(static_cast<std::size_t>(got));
    return packet;
}

bool raw_client::greet() const
{
    return send(bytes_of(node::hello{})) && receive() == bytes_of(node::welcome{});
}

DaemonTest::DaemonTest() : directory(new_directory()), socket(directory + "/socket"), config(directory + "/config.toml")
{
    setenv("TESSALY_NODE", ("unix:" + socket).c_str(), 1);
}

DaemonTest::~DaemonTest()
{
    if (node_ != 0) {
        EXPECT_EQ(stop(SIGTERM), 0) << "how the node ended";
    }
    std::filesystem::remove_all(directory);
}

void DaemonTest::write_config(const std::string& text) const
{
    std::ofstream(config) << "socket = \"" << socket << "\"\n" << text;
}

void DaemonTest::start(const std::string& text)
{
    write_config(text);
    const std::string manager = directory + "/manager";
    const unique_fd told{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    const sockaddr_un address = address_of(manager);
    ASSERT_EQ(bind(told.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    setenv("NOTIFY_SOCKET", manager.c_str(), 1);
    pipe_ends log = make_pipe();
    node_ = run_node({"--foreground", "--config", config.c_str()}, log.in.get());
    unsetenv("NOTIFY_SOCKET");
    log_ = std::move(log.out);
    EXPECT_EQ(read_some(told.get()), "READY=1");
    std::filesystem::remove(manager);
}

DaemonTest::ending DaemonTest::run(std::initializer_list<const char*> arguments) const
{
    pipe_ends output = make_pipe();
    const pid_t child = run_node(arguments, output.in.get());
    output.in.reset();
    int how = 0;
    waitpid(child, &how, 0);
    ending seen{WIFEXITED(how) ? WEXITSTATUS(how) : -1, ""};
    for (std::string some; !(some = read_some(output.out.get())).empty();)
        seen.printed += some;
    return seen;
}

void DaemonTest::signal(int number) const
{
    kill(node_, number);
}

int DaemonTest::stop(int number)
{
    signal(number);
    int how = -1;
    waitpid(node_, &how, 0);
    node_ = 0;
    return how;
}

bool DaemonTest::logs(std::string_view text)
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

std::string DaemonTest::status() const
{
    const raw_client asking{socket};
    EXPECT_TRUE(asking.send(node::STATUS_REQUEST));
    std::string document;
    while (const std::optional<std::string> part = asking.receive())
        document += *part;
    return document;
}

}  // namespace tessaly::daemon
