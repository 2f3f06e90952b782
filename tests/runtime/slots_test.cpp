// Long frames through the memory that a node shares with its client.
#include "played_node.h"

#include <fcntl.h>
#include <sys/mman.h>

namespace tessaly {

namespace {

constexpr u32 LONG = 50'000;
constexpr u8 CLIENTS_FIRST = SLOTS_EACH_WAY + 1;

bytes long_message(u32 pend, u8 filler)
{
    bytes whole = verb(SEND_DATA, pend, LONG);
    whole.resize(whole.size() + LONG, filler);
    return whole;
}

bytes packet_in_slot(u8 slot, u32 path, u32 block_bytes, u32 data_bytes = 0)
{
    bytes whole = packet(static_cast<u8>(frame_kind::message), path, {}, block_bytes, data_bytes);
    whole[offsetof(packet_header, slot)] = slot;
    return whole;
}

}  // namespace

class Slots : private memory_of_node, public played_node, public RuntimeTest {
protected:
    Slots() : played_node(descriptor)
    {
        meet();
        on_event = [this](u32, rcv_info& info) -> u16 {
            if (info.event == NODE_EVENT_IPS)
                last.assign(static_cast<u8*>(info.rcv_ips), static_cast<u8*>(info.rcv_ips) + BLOCK_BYTES + LONG);
            delivered.release();
            return NODE_RESULT_DONE;
        };
    }

    using RuntimeTest::send, played_node::send, memory_of_node::memory, memory_of_node::descriptor;

    static u16 send_long(u32 path, u8 filler)
    {
        return send(path, verb(SEND_DATA, 1, LONG), std::string(LONG, static_cast<char>(filler)));
    }

    // The slot of the long message that comes next, which is whole wherever it lies; 0: it came in the packet.
    u8 take_long(u8 filler) const
    {
        const bytes taken = take(frame_kind::message);
        const packet_header header = header_of(taken);
        EXPECT_EQ(header.block_bytes + header.data_bytes, BLOCK_BYTES + LONG);
        const u8* const content = header.slot != 0 ? memory.content(header.slot, header.block_bytes, header.data_bytes)
                                                   : taken.data() + sizeof header;
        const bytes expected = long_message(1, filler);
        EXPECT_TRUE(taken.size() == sizeof header + (header.slot != 0 ? 0 : expected.size()) && content != nullptr &&
                    std::equal(expected.begin(), expected.end(), content));
        return header.slot;
    }

    void connect_again(int with_memory)
    {
        hang_up();
        for (int i = 0; i < 2; ++i)
            delivered.acquire();  // the path's failure and the termination
        expect_client(packet_of({}), with_memory);
        const process_lock lock;
        vpm_terminate_path_user(std::exchange(user, 0));
        EXPECT_EQ(vpm_init_path_user(0, 0, receive, 0, &user), 0);
        meet();
    }

    bytes last;  // guarded by the lock
};

TEST_F(Slots, carry_long_frames_while_there_is_a_free_one_and_the_packet_carries_the_others)
{
    const u32 path = open_path();
    for (const u8 slot : {CLIENTS_FIRST, u8{CLIENTS_FIRST + 1}, u8{0}, u8{0}}) {
        EXPECT_EQ(send_long(path, slot), 0);
        EXPECT_EQ(take_long(slot), slot);
    }
    memory.free(CLIENTS_FIRST + 1);
    EXPECT_EQ(send_long(path, 9), 0);
    EXPECT_EQ(take_long(9), CLIENTS_FIRST + 1);
    EXPECT_EQ(send(path, 1), 0);
    EXPECT_EQ(header_of(take(frame_kind::message)).slot, 0) << "a short one";

    for (u8 i = 1; i <= 2 * SLOTS_EACH_WAY + 1; ++i) {
        const bytes sent = long_message(1, i);
        const u8 slot = memory.put(sent, {});
        EXPECT_EQ(slot, 1) << "the client frees it when it has the message";
        send(packet_in_slot(slot, path, static_cast<u32>(sent.size())));
        delivered.acquire();
        const process_lock lock;
        EXPECT_TRUE(last == sent);
    }
}

TEST_F(Slots, that_the_node_may_not_name_end_the_connection)
{
    const struct { const char* what; u8 slot; u32 block_bytes, data_bytes; bool more; } cases[] = {
        {"the client's", CLIENTS_FIRST, BLOCK_BYTES, 0, false},
        {"one that there is not", 2 * SLOTS_EACH_WAY + 1, BLOCK_BYTES, 0, false},
        {"255", 255, BLOCK_BYTES, 0, false},
        {"more than it holds", 1, SLOT_BYTES + 1, 0, false},
        {"far more than it holds", 1, 0xFFFFFFFF, 0, false},
        {"data", 1, BLOCK_BYTES, 1, false},
        {"bytes in the packet as well", 1, BLOCK_BYTES, 0, true},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        const u32 path = open_path();
        EXPECT_EQ(send(path, 1), 0);  // so that somebody reads
        bytes hostile = packet_in_slot(each.slot, path, each.block_bytes, each.data_bytes);
        if (each.more)
            hostile.push_back(0);
        send(hostile);
        while (!take().empty()) {}  // to the end of the connection
        connect_again(descriptor);
        EXPECT_TRUE(last.empty());
    }
}

TEST_F(Slots, are_not_used_in_memory_that_could_shrink_or_is_none_or_that_no_client_has_taken)
{
    runtime::slots untaken;
    close(untaken.make());
    EXPECT_EQ(untaken.put(long_message(1, 1), {}), 0);
    const auto memory_file = [](off_t bytes_long, int seals) {
        const int made = memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING);
        EXPECT_TRUE(ftruncate(made, bytes_long) == 0 && fcntl(made, F_ADD_SEALS, seals) == 0);
        return made;
    };
    constexpr off_t WHOLE = sizeof(shared_memory);
    const int descriptors[] = {memory_file(WHOLE, F_SEAL_GROW), memory_file(WHOLE - 1, F_SEAL_SHRINK),
                               memory_file(WHOLE + 1, F_SEAL_SHRINK), open("/dev/zero", O_RDWR | O_CLOEXEC)};
    open_path();  // which fails with its connection
    for (const int unusable : descriptors) {
        const auto before = open_descriptors();
        connect_again(unusable);
        EXPECT_EQ(open_descriptors(), before) << "what the client was handed is closed";
        EXPECT_EQ(send_long(open_path(), 7), 0);
        EXPECT_EQ(take_long(7), 0);
        close(unusable);
    }
}

}  // namespace tessaly
