// A node in a process of its own with a config file of its own, and clients that send it whatever bytes they like.
#pragma once

#include "localnode/engine/packet.h"
#include "tests/daemon/service_process.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>

namespace tessaly::daemon {

// A client without the library. Whatever it waits for, it waits at most a minute.
class raw_client {
public:
    explicit raw_client(const std::string& path);

    bool send(std::string_view packet) const;
    std::optional<std::string> receive();         // the next packet; none when the node has closed the connection
    int memory() const { return memory_.get(); }  // a descriptor that came with a packet
    bool greet();                                 // whether the node welcomes it
    bool is_dropped() { return !receive(); }

private:
    unique_fd socket_;
    unique_fd memory_;
};

template <typename Record>
std::string bytes_of(const Record& record)
{
    return {reinterpret_cast<const char*>(&record), sizeof record};
}

inline std::string packet(node::frame_kind kind, u32 path, u32 block_bytes = 0, u32 data_bytes = 0)
{
    return bytes_of(node::packet_header{
        .kind = static_cast<u8>(kind), .path = path, .block_bytes = block_bytes, .data_bytes = data_bytes});
}
inline std::string echo(std::size_t bytes = 0)
{
    return bytes_of(node::packet_header{.kind = node::ECHO}) + std::string(bytes, 'e');
}

class DaemonTest : public testing::Test {
protected:
    DaemonTest();
    ~DaemonTest() override;

    // Returns when the node has said that it is ready, as it says it to a service manager. The library of this process uses it.
    void start(const std::string& config = "");
    void start_on_one_processor(const std::string& config);
    void write_config(const std::string& config) const;

    // Another run with these arguments, until it ends. Result: its exit code and what it printed.
    ending run(std::initializer_list<const char*> arguments) const;

    void signal(int number) const { node_->signal(number); }
    int stop(int signal) { return node_->stop(signal); }
    bool logs(std::string_view text) { return node_->logs(text); }

    std::string status() const;  // the JSON document

    const std::string directory;
    const std::string socket;
    const std::string config;

private:
    std::optional<service_process> node_;
};

}  // namespace tessaly::daemon
