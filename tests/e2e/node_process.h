// A node in a process of its own, on a socket in a directory of its own.
#pragma once

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

namespace talking {

class node_process {
public:
    // With the text of a config file.
    explicit node_process(const std::string& config = "")
    {
        std::filesystem::create_directory(directory_);
        std::ofstream(directory_ + "/config.toml") << config;
        setenv("TESSALY_NODE", ("unix:" + socket()).c_str(), 1);
        start();
    }
    node_process(const node_process&) = delete;
    node_process& operator=(const node_process&) = delete;
    ~node_process()
    {
        if (running()) {
            EXPECT_EQ(stop(SIGTERM), 0) << "how the node ended";
        }
        std::filesystem::remove_all(directory_);
        unsetenv("TESSALY_NODE");
    }

    const std::string& directory() const { return directory_; }  // goes with the node; others may use it
    std::string socket() const { return directory_ + "/socket"; }
    pid_t process() const { return process_; }
    bool running() const { return process_ > 0; }

    // Returns when it can be connected to, which it tells as it would tell a service manager.
    void start()
    {
        const std::string ready = directory_ + "/ready";
        std::filesystem::remove(ready);
        const int told = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        ready.copy(address.sun_path, sizeof address.sun_path - 1);
        ASSERT_EQ(bind(told, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        process_ = fork();
        if (process_ == 0) {
            setenv("NOTIFY_SOCKET", ready.c_str(), 1);
            execl(TESSALY_NODE_PROGRAM, "tessaly-node", "--foreground", "--socket", socket().c_str(), "--config",
                  (directory_ + "/config.toml").c_str(), nullptr);
            _exit(127);
        }
        constexpr int LIMIT_MS = 60'000;
        char text[256] = "";
        pollfd awaited{told, POLLIN, 0};
        EXPECT_EQ(poll(&awaited, 1, LIMIT_MS), 1) << "the node does not start";
        EXPECT_GT(recv(told, text, sizeof text - 1, MSG_DONTWAIT), 0);
        EXPECT_NE(std::string(text).find("READY=1"), std::string::npos) << text;
        close(told);
    }

    // A connection of its own kind, which the caller closes.
    int connect() const
    {
        sockaddr_un there{};
        there.sun_family = AF_UNIX;
        socket().copy(there.sun_path, sizeof there.sun_path - 1);
        const int made = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        EXPECT_EQ(::connect(made, reinterpret_cast<sockaddr*>(&there), sizeof there), 0);
        return made;
    }

    // Result: how it ended, as waitpid tells it.
    int stop(int signal)
    {
        int how = 0;
        kill(process_, signal);
        waitpid(process_, &how, 0);
        process_ = 0;
        return how;
    }

private:
    // The same for all nodes that a process has one after the other, since the runtime reads TESSALY_NODE once.
    std::string directory_ = "/tmp/tessaly-node-" + std::to_string(getpid());
    pid_t process_ = 0;
};

// For stories that both hosts tell: with the argument "socket" they converse through a node process.
class chosen_host : public testing::Environment {
public:
    void SetUp() override
    {
        if (testing::internal::GetArgvs().back() == "socket")
            node_ = std::make_unique<node_process>();
    }
    void TearDown() override { node_.reset(); }

private:
    std::unique_ptr<node_process> node_;
};

}  // namespace talking
