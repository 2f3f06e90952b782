// The fixture of tests that use the library through its entry points: it makes verbs, follows what becomes of them, and when
// the test is over stops the library and demands that nothing is left.
#pragma once

#include "tests/support/scripted_node.h"
#include "verbs/block.h"

#include <tessaly/appc.h>
#include <tessaly/layout.h>

#include <gtest/gtest.h>

#include <deque>
#include <memory>

namespace tessaly::test {

struct outcome {
    u16 primary;
    u32 secondary;

    bool operator==(const outcome&) const = default;
};
std::ostream& operator<<(std::ostream& out, const outcome& codes);

constexpr outcome rc(u16 primary, u32 secondary = 0)
{
    return {primary, secondary};
}

inline constexpr u32 UNTOUCHED = 0x5EC0DA7E;  // what every block's secondary_rc holds before it is issued
inline constexpr u32 CONV_7 = 7;
inline constexpr u32 CONV_8 = 8;
inline constexpr u32 ATTACH_ADDRESS = 0x0A0B0C0D;
inline constexpr u32 ATTACH_CORR = 0x00112233;

// One call of a callback.
struct callback {
    enum kind { completion, post, forget } by;
    bytes tp_id;
    u32 conv_id;
    u32 corr;  // completion: the correlator; forget: the value
    u16 type;  // forget
};

// One verb: its block, exactly as long as its public struct, and what became of it.
class verb {
public:
    verb(u16 opcode, u8 format, u32 size);

    template <typename Block>
    Block& as()
    {
        return *reinterpret_cast<Block*>(block_.get());
    }
    u8* block() { return block_.get(); }
    bytes image() const { return {block_.get(), block_.get() + size_}; }
    block_header& header() { return as<block_header>(); }
    outcome codes() { return {header().primary_rc, header().secondary_rc}; }

    u16 result = 0;                 // what the entry returned
    std::vector<callback> calls;    // of its callbacks
    std::function<void()> on_call;  // runs in them

private:
    std::unique_ptr<u8[]> block_;
    u32 size_;
};

struct tp {
    bytes id;
    u32 handle;
    u32 path;
};

enum class entry : u8 { appc, appc_c, appc_p, appc_c1, appc_async, appc_async1, appc_async_int };
inline constexpr u32 CORR = 0xC0FFEE;

class library_test : public ::testing::Test {
protected:
    library_test();
    ~library_test() override;
    void TearDown() override;

    // A block of zeros with its opcode and format. size 0: that of its public struct.
    verb& make(u16 opcode, u8 format = 0, u32 size = 0);
    verb& make_on(const tp& of, u16 opcode, u32 conv_id = 0, u8 format = 0);  // tp_id and conv_id filled in
    verb& enter(entry through, verb& what);
    verb& run(verb& what) { return enter(entry::appc, what); }
    verb& issue(verb& what) { return enter(entry::appc_async, what); }

    verb& tp_started(const char* name = "ECHO", const char* lu_alias = "LUA");  // not issued yet
    tp start_tp(const char* name = "ECHO");                                     // answered with OK
    tp tp_of(verb& started) const;

    // What became of an announced receive-allocate, as the node tells it.
    u32 announced() const { return load<u32>(node.datagrams.back().data(), 8); }  // the TP
    void conversation_ready(u32 tp_handle, u32 status = VSM_ST_READY, const char* name = "ASKEDFOR");

    void write_file(const char* name, const std::string& text) const;  // next to the alias map
    void remove_file(const char* name) const;
    void stop_library();

    scripted_node node;

private:
    static void completed(void* vcb, u8* tp_id, u32 conv_id, u32 corr);
    static void posted(void* vcb, u8* tp_id, u32 conv_id);
    static void forgotten(void* vcb, u8* tp_id, u32 conv_id, u16 type, u32 value);
    static void called(void* vcb, const u8* tp_id, callback call);

    std::deque<verb> verbs_;
    std::string directory_;

protected:
    // The routines that a block names itself.
    static constexpr appc_post post = &posted;
    static constexpr appc_implied_forget forget = &forgotten;
    static constexpr appc_completion completion = &completed;
};

// Bytes a block shares with an expected image, or where they differ first.
::testing::AssertionResult same_bytes(const bytes& actual, const bytes& expected);

bytes as_bytes(const void* start, u32 count);

}  // namespace tessaly::test
