// Programs as the benchmarks write them: a TP with at most one conversation, and the blocks of its verbs. A verb that fails
// ends the process, since what follows would measure something else.
#pragma once

#include "bench/timing.h"
#include "common/types.h"
#include "examples/names.h"

#include <tessaly/appc.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tessaly::bench {

struct program {
    u8 tp_id[8] = {};
    u32 conv_id = 0;
};

// A block of a mapped conversation, filled with what all verbs have.
template <typename Block>
Block verb_of(const program& issuer, u16 opcode)
{
    Block block{};
    block.opcode = opcode;
    block.opext = APPC_MAPPED_CONVERSATION;
    std::memcpy(block.tp_id, issuer.tp_id, sizeof block.tp_id);
    if constexpr (requires { block.conv_id; })
        block.conv_id = issuer.conv_id;
    return block;
}

[[noreturn]] inline void give_up(const char* what, u16 opcode, u16 primary, u32 secondary)
{
    std::fprintf(stderr, "verb 0x%04X %s: primary_rc 0x%04X, secondary_rc 0x%08X\n", opcode, what, primary, secondary);
    std::exit(1);
}

template <typename Block>
void expect_ok(const Block& block)
{
    if (block.primary_rc != APPC_OK) [[unlikely]]
        give_up("failed", block.opcode, block.primary_rc, block.secondary_rc);
}

template <typename Block>
void run(Block& block)
{
    APPC(&block);
    expect_ok(block);
}

// Issues a verb whose callback must come later.
template <typename Block>
void issue(Block& block, appc_completion callback, u32 corr = 0)
{
    if (APPC_Async(&block, callback, corr) != APPC_IN_PROGRESS) [[unlikely]]
        give_up("is not in progress", block.opcode, block.primary_rc, block.secondary_rc);
}

inline program start_tp()
{
    appc_tp_started started{};
    started.opcode = APPC_OP_TP_STARTED;
    set_alias(started.lu_alias, "HERE");
    set_ebcdic(started.tp_name, sizeof started.tp_name, "BENCH");
    run(started);
    program made;
    std::memcpy(made.tp_id, started.tp_id, sizeof made.tp_id);
    return made;
}

inline void end_tp(const program& ended)
{
    auto block = verb_of<appc_tp_ended>(ended, APPC_OP_TP_ENDED);
    run(block);
}

inline appc_send_data sending(const program& from, const void* record, u8 type = APPC_SEND_NONE)
{
    auto block = verb_of<appc_send_data>(from, APPC_OP_SEND_DATA);
    block.dptr = record;
    block.dlen = RECORD_BYTES;
    block.type = type;
    return block;
}

inline appc_receive receiving(const program& by, void* buffer, u16 opcode = APPC_OP_RECEIVE_AND_WAIT)
{
    auto block = verb_of<appc_receive>(by, opcode);
    block.dptr = buffer;
    block.max_len = RECORD_BYTES;
    return block;
}

// A RECEIVE_ALLOCATE and an ALLOCATE that meet, by the name of the accepting TP.
inline appc_receive_allocate accepting(const char* tp_name)
{
    appc_receive_allocate block{};
    block.opcode = APPC_OP_RECEIVE_ALLOCATE;
    set_ebcdic(block.tp_name, sizeof block.tp_name, tp_name);
    return block;
}

inline program accepted(const appc_receive_allocate& block)
{
    expect_ok(block);
    program made;
    std::memcpy(made.tp_id, block.tp_id, sizeof made.tp_id);
    made.conv_id = block.conv_id;
    return made;
}

inline void allocate(program& from, const char* tp_name)
{
    auto block = verb_of<appc_allocate_format_0>(from, APPC_OP_ALLOCATE);
    block.conv_type = APPC_MAPPED;
    block.sync_level = APPC_SYNC_CONFIRM;
    set_alias(block.plu_alias, "THERE");
    set_ebcdic(block.mode_name, sizeof block.mode_name, "BATCH");
    set_ebcdic(block.tp_name, sizeof block.tp_name, tp_name);
    run(block);
    from.conv_id = block.conv_id;
}

}  // namespace tessaly::bench
