// A node that the test plays behind a socket.
#pragma once

#include "runtime_fixture.h"

#include "localnode/engine/packet.h"
#include "localnode/runtime/slots.h"
#include "localnode/runtime/socket_calls.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <thread>
#include <utility>

namespace tessaly {

inline const std::string directory = "/tmp/tessaly-socket-test-" + std::to_string(getpid());
inline const std::string place = directory + "/node";

using bytes = std::vector<u8>;

inline bytes packet(u8 kind, u32 path, bytes block = {}, u32 lies_by = 0, u32 data_bytes = 0)
{
    const packet_header header{
        .kind = kind, .path = path, .block_bytes = static_cast<u32>(block.size()) + lies_by, .data_bytes = data_bytes};
    bytes whole(sizeof header);
    std::memcpy(whole.data(), &header, sizeof header);
    whole.insert(whole.end(), block.begin(), block.end());
    return whole;
}

inline bytes packet(frame_kind kind, u32 path, bytes block = {}) { return packet(static_cast<u8>(kind), path, std::move(block)); }

inline packet_header header_of(const bytes& whole)
{
    packet_header header{};
    std::memcpy(&header, whole.data(), std::min(whole.size(), sizeof header));
    return header;
}

inline bytes answer(const bytes& sent)
{
    return packet(frame_kind::message, header_of(sent).path, {sent.begin() + sizeof(packet_header), sent.end()});
}

inline auto open_descriptors() { return std::distance(std::filesystem::directory_iterator{"/proc/self/fd"}, {}); }

inline sockaddr_un address()
{
    sockaddr_un there{};
    there.sun_family = AF_UNIX;
    place.copy(there.sun_path, sizeof there.sun_path - 1);
    return there;
}

// What such a node shares with its client.
struct memory_of_node {
    runtime::slots memory;
    const int descriptor = memory.make();
    ~memory_of_node() { close(descriptor); }
};

// Listens, and greets the next client as it is told.
class played_node {
public:
    // memory: a descriptor that the first client gets with its welcome; -1: none.
    explicit played_node(int memory = -1)
    {
        std::filesystem::create_directory(directory);
        setenv("TESSALY_NODE", ("unix:" + place).c_str(), 1);
        listen_again();
        expect_client(packet_of({}), memory);
    }
    ~played_node()
    {
        hang_up();
        stop_listening();
        std::filesystem::remove_all(directory);
        u16 asks[2] = {4, DATAGRAM_ANNOUNCE};
        const process_lock lock;
        EXPECT_NE(vpm_send_datagram(DATAGRAM_DESTINATION, 0, asks, sizeof asks), 0);  // so the runtime knows that it is gone
    }

    void listen_again()
    {
        const sockaddr_un here = address();
        listening_ = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(listening_, reinterpret_cast<const sockaddr*>(&here), sizeof here), 0);
        EXPECT_EQ(listen(listening_, 4), 0);
    }
    void stop_listening()
    {
        close(listening_);
        std::filesystem::remove(place);
    }

    // Answers the hello of the client that comes next; with nothing: closes at once.
    void expect_client(bytes welcome = packet_of({}), int memory = -1)
    {
        greeter_ = std::thread{[this, welcome, memory] {
            client_ = accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC);
            hello greeting{};
            EXPECT_EQ(recv(client_, &greeting, sizeof greeting, 0), static_cast<ssize_t>(sizeof greeting));
            EXPECT_TRUE(greeting.magic == PACKET_MAGIC && greeting.version == PACKET_VERSION);
            if (!welcome.empty())
                runtime::send_with_descriptor(client_, welcome.data(), welcome.size(), memory, MSG_NOSIGNAL);
        }};
    }
    void meet() { greeter_.join(); }
    static bytes packet_of(welcome like)
    {
        return {reinterpret_cast<const u8*>(&like), reinterpret_cast<const u8*>(&like + 1)};
    }

    void send(const bytes& sent) const
    {
        EXPECT_EQ(::send(client_, sent.data(), sent.size(), MSG_NOSIGNAL), static_cast<ssize_t>(sent.size()));
    }
    // Empty at the connection's end.
    bytes take() const
    {
        bytes taken(LONGEST_PACKET);
        taken.resize(static_cast<std::size_t>(std::max<ssize_t>(recv(client_, taken.data(), taken.size(), 0), 0)));
        return taken;
    }
    bytes take(u8 kind) const
    {
        bytes taken;
        do
            taken = take();
        while (!taken.empty() && header_of(taken).kind != kind);
        return taken;
    }
    bytes take(frame_kind kind) const { return take(static_cast<u8>(kind)); }
    void hang_up()
    {
        if (greeter_.joinable())
            meet();
        close(std::exchange(client_, -1));
    }

private:
    int listening_ = -1;
    int client_ = -1;
    std::thread greeter_;
};

}  // namespace tessaly
