// A tessaly-node in a process of its own, the one of this build, for as long as the object lives.
#pragma once

#include "bench/children.h"

#include <sched.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <fstream>

namespace tessaly::bench {

// With TESSALY_BENCH_PIN_LATER=CPU processes are pinned to that processor after they have found out that they may use
// several: so they look before they sleep, where it is in vain.
inline void pin_later(pid_t process)
{
    const char* processor = std::getenv("TESSALY_BENCH_PIN_LATER");
    if (processor == nullptr)
        return;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(std::strtoul(processor, nullptr, 10), &one);
    if (sched_setaffinity(process, sizeof one, &one) != 0)
        fail("sched_setaffinity");
}

class node_process {
public:
    // Returns when the node can be connected to, and leaves its address in TESSALY_NODE.
    node_process() : told_(listen_for_news()), running_([this] { become_node(); })
    {
        char news[64];
        if (recv(told_, news, sizeof news, 0) <= 0)
            fail("the node does not start");
        pin_later(running_.id());
        setenv("TESSALY_NODE", ("unix:" + directory_.path_of("socket")).c_str(), 1);
    }
    node_process(const node_process&) = delete;
    node_process& operator=(const node_process&) = delete;
    ~node_process() { close(told_); }

    pid_t id() const noexcept { return running_.id(); }

private:
    // It tells when it is ready as it would tell a service manager.
    int listen_for_news() const
    {
        constexpr timeval LIMIT{.tv_sec = 10, .tv_usec = 0};
        const std::string at = directory_.path_of("ready");
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (at.size() >= sizeof address.sun_path)
            fail("the name of the temporary directory is too long");
        at.copy(address.sun_path, at.size());
        const int made = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (bind(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            setsockopt(made, SOL_SOCKET, SO_RCVTIMEO, &LIMIT, sizeof LIMIT) != 0)
            fail("NOTIFY_SOCKET");
        return made;
    }

    void become_node() const
    {
        const std::string config = directory_.path_of("config");
        std::ofstream{config} << "log.level = \"warning\"\n";
        const auto node = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "../bin/tessaly-node";
        setenv("NOTIFY_SOCKET", directory_.path_of("ready").c_str(), 1);
        execl(node.c_str(), "tessaly-node", "--foreground", "--config", config.c_str(), "--socket",
              directory_.path_of("socket").c_str(), nullptr);
        fail(node.c_str());
    }

    const scratch_directory directory_;
    const int told_;
    const child running_;
};

}  // namespace tessaly::bench
