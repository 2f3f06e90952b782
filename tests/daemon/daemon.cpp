#include "tests/daemon/daemon.h"

#include "localnode/daemon/status_protocol.h"
#include "localnode/runtime/socket_calls.h"

#include <sched.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace tessaly::daemon {

namespace {

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

std::optional<std::string> raw_client::receive()
{
    std::string packet(2 * node::LONGEST_PACKET, '\0');
    EXPECT_TRUE(is_readable(socket_.get())) << "nothing comes from the node";
    int memory = -1;
    const ssize_t got = runtime::receive_with_descriptor(socket_.get(), packet.data(), packet.size(), memory, MSG_DONTWAIT);
    if (memory >= 0)
        memory_ = unique_fd{memory};
    if (got <= 0)
        return std::nullopt;
    packet.resize(static_cast<std::size_t>(got));
    return packet;
}

bool raw_client::greet()
{
    return send(bytes_of(node::hello{})) && receive() == bytes_of(node::welcome{});
}

DaemonTest::DaemonTest() : directory(new_directory()), socket(directory + "/socket"), config(directory + "/config.toml")
{
    setenv("TESSALY_NODE", ("unix:" + socket).c_str(), 1);
}

DaemonTest::~DaemonTest()
{
    node_.reset();
    std::filesystem::remove_all(directory);
}

void DaemonTest::write_config(const std::string& text) const
{
    std::ofstream(config) << "socket = \"" << socket << "\"\n" << text;
}

void DaemonTest::start(const std::string& text)
{
    write_config(text);
    node_.emplace(std::vector<std::string>{TESSALY_NODE_PROGRAM, "--foreground", "--config", config}, directory);
}

void DaemonTest::start_on_one_processor(const std::string& text)
{
    cpu_set_t own, one;
    CPU_ZERO(&one);
    ASSERT_EQ(sched_getaffinity(0, sizeof own, &own), 0);
    int first = 0;
    while (!CPU_ISSET(first, &own))
        ++first;
    CPU_SET(first, &one);
    sched_setaffinity(0, sizeof one, &one);
    start(text);
    sched_setaffinity(0, sizeof own, &own);
}

ending DaemonTest::run(std::initializer_list<const char*> arguments) const
{
    std::vector<std::string> words{TESSALY_NODE_PROGRAM};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return run_to_the_end(words);
}

std::string DaemonTest::status() const
{
    raw_client asking{socket};
    EXPECT_TRUE(asking.send(node::STATUS_REQUEST));
    std::string document;
    while (const std::optional<std::string> part = asking.receive())
        document += *part;
    return document;
}

}  // namespace tessaly::daemon
