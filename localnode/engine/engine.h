// The local node as a state machine: one frame from a client in, a list of frames to clients out. No socket, clock, thread or
// global; the hosts around it (embedded in a process, or behind a socket) bring frames and time, and start programs for it.
#pragma once

#include "common/types.h"

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tessaly::node {

using client_id = u32;  // a process that uses the node; numbers are the host's, 0 is none

inline constexpr u32 NODE_ADDRESS = 0x01010101;  // the same in either byte order

// A program may well send all it has before anybody receives; this keeps it from filling the node's memory.
inline constexpr u32 MOST_UNREAD_BYTES = 16 * 1024 * 1024;

enum class frame_kind : u8 {
    // from a client, or from the host on its behalf
    path_opened,  // path: the client's new number for it
    path_closed,
    client_gone,  // all its paths are closed and its announcements withdrawn
    time_passed,  // now_ms
    // to a client
    path_failed,
    terminated,
    // both ways
    message,   // block: verb_message_header and block in node layout; data: what follows
    datagram,  // block: the datagram
    // to and from a host that starts programs; path: the attach's correlator
    start_program,  // block: program_to_start; client: 0
    program_ended,  // or could not be started: unless it has taken its attach, nobody does
    // from a client; path: its number for one of its TP servers
    tp_server_opened,
    tp_server_closed,
    datagram_returned,  // block: a datagram for which nobody was there
};

// What the host knows of a client. It comes with datagrams and with what TP servers send.
struct client_rights {
    bool tp_server = false;  // it may start programs
    bool root = false;       // and be told who asks for them
};

// What a host needs to start a program for an attach, which the program's first receive-allocate names.
struct program_to_start {
    u8 tp_name[64];  // EBCDIC, padded with blanks
    u8 lu_alias[8];  // ASCII, padded with blanks: to which the attach came
};

struct lu_definition {
    std::string alias;
    std::string name;  // with its network: "TESSALY.HERE"

    bool operator==(const lu_definition&) const = default;
};

// What names mean and how long things wait. Names are of the right length and characters; what is not is never found.
struct configuration {
    std::string network = "TESSALY";
    std::vector<lu_definition> local_lus;    // the first one is the default; empty: every alias is an LU, network.alias in full
    std::vector<lu_definition> partner_lus;  // further aliases of local LUs, for ALLOCATE
    std::vector<std::string> programs;       // names of TPs that the host starts when an attach finds none waiting
    u32 attach_limit_ms = 30'000;
    u32 start_limit_ms = 60'000;  // until a TP server tells what became of a start
    u32 most_attaches = 1000;  // that wait
    // How much of a conversation may be unread before its sender is held back: for a moment at most, unless it is
    // MOST_UNREAD_BYTES, which nothing is above.
    u32 unread_bytes = MOST_UNREAD_BYTES;
};

// What there is at the moment, in plain text.
struct node_report {
    struct tp {
        u32 id;
        client_id client;
        std::string name, lu;
        u32 conversations;
    };
    struct conversation {
        u32 id, tp;
        const char* state;
        std::string partner_lu, tp_name, mode;
    };
    struct tp_server {
        client_id client;
        u32 servers;  // that the client has
        u32 definitions, starts;
    };
    struct tp_definition {
        u32 id;
        client_id client;
        u32 server;
        std::string tp_name, lu, partner_lu;  // as they are matched
        const char* type;
    };
    struct start {
        u32 id;
        client_id client;  // 0: the host
        std::string tp_name, lu, partner_lu;
        const char* state;
    };
    std::vector<lu_definition> lus;
    std::vector<tp> tps;
    std::vector<conversation> conversations;
    std::vector<tp_server> tp_servers;
    std::vector<tp_definition> tp_definitions;
    std::vector<start> starts;
    u32 attaches_waiting, tps_waiting, registered_names;
};

struct frame {
    frame_kind kind;
    client_id client = 0;
    u32 path = 0;
    std::span<const u8> block = {};  // aligned for u32
    std::span<const u8> data = {};
    u64 now_ms = 0;  // CLOCK_MONOTONIC
    client_rights rights = {};
};

// Where the engine puts what it sends. Order matters: a client gets its frames in the order of these calls.
class frame_sink {
public:
    virtual ~frame_sink() = default;

    // Room for one frame of that many bytes, which the engine fills before it returns from accept(); aligned for u32.
    // Null when there is no memory: the frame is lost, and the host must fail the path for it (or the client, for a datagram).
    virtual u8* add(client_id client, frame_kind kind, u32 path, u32 bytes) = 0;
};

// Records that the engine keeps.
struct record_counts {
    u32 paths = 0;
    u32 tps = 0;
    u32 sides = 0;  // of conversations
    u32 attaches = 0;
    u32 announcements = 0;
    u32 names = 0;        // registered for CPI-C
    u32 tp_servers = 0;
    u32 definitions = 0;  // of TPs that they start
    u32 lost_paths = 0;   // between two frames none
    u32 unreachable = 0;  // of all these, records that nothing will ever use or release; always 0
    bool operator==(const record_counts&) const = default;
};

class engine {
public:
    engine();
    explicit engine(const configuration& with);
    ~engine();
    engine(const engine&) = delete;
    engine& operator=(const engine&) = delete;

    // Takes one frame, whatever it holds; what is malformed is answered with path_failed or ignored, and harms no other client.
    void accept(const frame& input, frame_sink& output);

    // From now on; what has begun goes on.
    void configure(const configuration& with);

    node_report report() const;

    // When to feed the next time_passed frame; none while nothing waits for time.
    std::optional<u64> deadline_ms() const;

    // Looks at every record.
    record_counts counts() const;

private:
    class state;
    std::unique_ptr<state> state_;
};

}  // namespace tessaly::node
