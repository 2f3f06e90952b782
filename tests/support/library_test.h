// The fixture of tests that use the library through its entry points: it makes verbs, follows what becomes of them, and when
// the test is over stops the library and demands that nothing is left and that each verb was completed once.
#pragma once

#include "tests/support/scripted_node.h"

#include <tessaly/appc.h>
#include <tessaly/layout.h>

#include <gtest/gtest.h>

#include <memory>

namespace tessaly::test {

// The return codes of a verb.
struct rc {
    u16 primary;
    u32 secondary = 0;

    bool operator==(const rc&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const rc& codes)
    {
        return out << std::hex << "rc(0x" << codes.primary << ", 0x" << codes.secondary << ")" << std::dec;
    }
};

using outcome = rc;

inline constexpr rc PENDING{0xFFFF, 0};       // accepted, and its callback not called yet
inline constexpr u32 UNTOUCHED = 0x5EC0DA7E;  // what every block's secondary_rc holds before it is issued
inline constexpr u32 CORR = 0xC0FFEE, CONV_7 = 7, CONV_8 = 8;
inline constexpr u32 ATTACH_ADDRESS = 0x0A0B0C0D, ATTACH_CORR = 0x00112233;

using file_texts = std::map<std::string, std::string>;  // by name

// clang-format off
struct tp { bytes id; u32 handle, path; };
// clang-format on

// One call of a callback.
struct callback {
    enum kind { completion, post, forget } by;
    bytes tp_id;
    u32 conv_id;
    u32 corr = 0;  // completion: the correlator; forget: the value
    u16 type = 0;  // forget

    bool operator==(const callback&) const = default;
};

// One verb: its block, exactly as long as its public struct, and what became of it.
struct verb {
    verb(u16 opcode, u8 format, u32 block_bytes);

    template <typename Block>
    Block& as()
    {
        return *reinterpret_cast<Block*>(memory.get());
    }
    u8* block() { return memory.get(); }
    block_header& header() { return as<block_header>(); }
    bytes image() const { return as_bytes(memory.get(), size); }
    auto completions() const { return std::ssize(calls) - std::ranges::count(calls, callback::forget, &callback::by); }
    rc codes() { return completions() < accepted ? PENDING : rc{header().primary_rc, header().secondary_rc}; }

    std::unique_ptr<u8[]> memory;
    u32 size;
    u16 result = 0;                 // what its asynchronous entry returned
    i32 accepted = 0;               // how often that was VAV_IN_PROGRESS
    std::vector<callback> calls;    // of its routines
    std::function<void()> on_call;  // runs in them
};

// The routines of verbs; the last two a block names itself.
void completed(void* vcb, u8* tp_id, u32 conv_id, u32 corr);
void post(void* vcb, u8* tp_id, u32 conv_id);
void forget(void* vcb, u8* tp_id, u32 conv_id, u16 type, u32 value);

enum class entry : u8 { appc, appc_async };

struct library_test : ::testing::Test {
    library_test();
    void TearDown() override;

    // A block of zeros with its opcode and format. block_bytes 0: as long as its public struct.
    verb& make(u16 opcode, u8 format = 0, u32 block_bytes = 0);
    verb& make_on(const tp& of, u16 opcode, u32 conv_id = 0, u8 format = 0);  // tp_id and conv_id filled in
    // One in which every byte counts, with no data to send and no routine.
    verb& patterned(const tp& of, u16 opcode, u8 format = 0, u32 block_bytes = 0);
    verb& tp_started(const std::string& name = "ECHO", const std::string& lu_alias = "LUA");

    verb& run(verb& what, void (*entry)(void*) = APPC) { return entry(what.block()), what; }
    verb& issue(verb& what, u16 (*entry)(void*, appc_completion, u32) = APPC_Async)
    {
        what.result = entry(what.block(), completed, CORR);
        what.accepted += what.result == VAV_IN_PROGRESS;
        return what;
    }
    verb& enter(bool synchronous, verb& what) { return synchronous ? run(what) : issue(what); }
    verb& enter(entry through, verb& what) { return enter(through == entry::appc, what); }
    verb& enter(bool synchronous, verb& what, const std::function<void()>& meanwhile);  // which runs while the verb waits
    rc codes_of(const tp& of, u16 opcode, u32 conv_id = 0) { return run(make_on(of, opcode, conv_id)).codes(); }
    verb& issue_on(const tp& of, u16 opcode, u32 conv_id = 0) { return issue(make_on(of, opcode, conv_id)); }
    tp start_tp(const char* name = "ECHO");  // answered with OK
    tp tp_of(verb& started) const;

    // What became of an announced receive-allocate, as the node tells it.
    u32 announced() const { return load<u32>(node.datagrams.back().data(), 8); }  // the TP
    void conversation_ready(u32 tp_handle, u32 status = VSM_ST_READY, const char* name = "ASKEDFOR");

    void stop_library() { node.reports(NODE_EVENT_TERMINATED); }
    // Stops it too: at its next start it finds these files next to the alias map, and no others.
    void restart_with(const file_texts& files);

    scripted_node node;
    std::deque<verb> verbs;
    std::vector<verb*> completion_order;
    std::string directory;
};

// One that has a TP already.
struct running_tp_test : library_test {
    tp running = start_tp();
};

// Whether two images are the same, or where they differ first.
::testing::AssertionResult same_bytes(const bytes& actual, const bytes& expected);

}  // namespace tessaly::test
