// A frame as bytes, for hosts whose engine runs in another process: one packet of a SOCK_SEQPACKET socket each. A connection
// begins with a hello of the client and the node's welcome; after that come frames, both ways. With its welcome the node may hand
// over the descriptor of memory that both share: for long frames, which the kernel would have to allocate pages for and copy
// twice, and for packets to a client that waits for one, for which the kernel then only has to wake it.
#pragma once

#include "localnode/engine/engine.h"

#include <cstddef>

namespace tessaly::node {

// What the block and the data of a message come behind. Numbers are in the order of the machine.
struct packet_header {
    u8 kind = 0;          // frame_kind, or ECHO
    u8 slot = 0;          // of the shared memory, where block and data lie; 0: they follow
    u8 reserved[2] = {};
    u32 path = 0;         // the client's number for it; 0 where the kind has none
    u32 block_bytes = 0;  // of a message or datagram, else 0
    u32 data_bytes = 0;   // of a message from a client, else 0: what the node sends is all block
};
static_assert(sizeof(packet_header) == 16);

// The node sends it back as it came, so that a client's thread that waits for packets comes back.
inline constexpr u8 ECHO = 0xFF;

inline constexpr u32 LONGEST_PACKET = 128 * 1024;  // header included; a message with 65,535 bytes of data fits

inline constexpr u32 PACKET_MAGIC = 0x594C5354;
inline constexpr u16 PACKET_VERSION = 3;

// Where a client waits for its next packet, and the node puts it, if it is short: a letter. A client may wait there only when it
// has received all packets that came through the socket before, so that packets keep their order:
// - The client notes how many it has received, takes MAILBOX_AT_REST out of the word, and then sees whether the node has sent
//   more through the socket; if so, it puts the bit back and receives those.
// - The node puts a letter, or none when the packet went through the socket, puts the bit back and wakes the client.
// Whoever puts the bit back has decided: the node takes its letter back if the client was first, though the client may listen
// again by then and get it all the same. While the node lives and the mailbox is open, the word has the number of the node's
// thread in its lower 30 bits and MAILBOX_ANSWERED_FOR above: it is a robust futex that the thread owns and somebody waits for.
// So the kernel clears the number and wakes the client when the node is killed, be it between changing the word and waking.
struct shared_mailbox {
    u32 word;
    u32 sent;          // packets through the socket since the welcome, counted by the node before it sends one
    u32 received;      // of those
    u32 letter_bytes;  // 0: look at the socket; again when the client has taken the letter
    u8 letter[4032];
};
inline constexpr u32 MAILBOX_ANSWERED_FOR = 0x80000000;
inline constexpr u32 MAILBOX_AT_REST = 0x40000000;

// Slots for what would make a packet long. Who sends takes a free slot of its own direction, fills it and names it in the packet;
// who receives copies it out, and only then looks at it, and frees the slot.
inline constexpr u32 SLOTS_EACH_WAY = 2;
inline constexpr u32 SLOT_BYTES = 68 * 1024;  // a message with 65,535 bytes of data fits

struct shared_memory {
    shared_mailbox mailbox;
    u32 in_use_by_client;           // 1 once the client can read slots
    u32 taken[2 * SLOTS_EACH_WAY];  // 0 or 1; the node's slots come first
    alignas(4096) u8 slots[2 * SLOTS_EACH_WAY][SLOT_BYTES];
};
static_assert(offsetof(shared_memory, slots) == 4096 && sizeof(shared_memory) % 4096 == 0);

struct hello {
    u32 magic = PACKET_MAGIC;
    u16 version = PACKET_VERSION;
    u16 reserved = 0;
};

enum class refusal : u16 { none = 0, version = 1, not_permitted = 2, too_many_clients = 3 };

// After a refusal the node closes the connection.
struct welcome {
    u32 magic = PACKET_MAGIC;
    u16 version = PACKET_VERSION;
    refusal refused = refusal::none;
};
static_assert(sizeof(hello) == 8 && sizeof(welcome) == 8);

}  // namespace tessaly::node
