// One transaction program and its conversation: mapped, half-duplex, ended when the object goes. Errors are values.
#pragma once

#include "tools/tessaly/stopper.h"
#include "tools/tessaly/terminal.h"

#include "verbs/codes.h"

#include <tessaly/appc.h>

#include <span>
#include <string>
#include <string_view>

namespace tessaly::tool {

// How a verb ended.
struct outcome {
    const char* verb = "";
    u16 primary = OK;
    u32 secondary = SEC_NONE;
    stop_cause stopped = stop_cause::none;  // why it was cancelled, or not even begun

    bool ok() const noexcept { return primary == OK; }
};

// What a receive verb brought.
struct received {
    u16 what = APPC_WR_NONE;  // APPC_WR_...
    std::size_t bytes = 0;

    bool has(u16 bits) const noexcept { return (what & bits) != 0; }
};

// What a CANCEL_CONV without a TP ends: a start that has no TP yet. See appc_header.
inline constexpr appc_u32 A_TP_STARTED = 0;
inline constexpr appc_u32 A_RECEIVE_ALLOCATE = 1;

// The text in a field that is padded with blanks, printable.
std::string from_field(std::span<const appc_u8> ascii);

// Whom to converse with; names that is_name has passed.
struct partner {
    std::string lu;
    std::string tp;
};

inline constexpr std::size_t LONGEST_RECORD = 0xFFFF;

// Used by one thread. Verbs wait at most for the limit; each blocks until it has completed.
class conversation {
public:
    conversation(stopper& stop, clock::duration limit) : stop_(stop), limit_(limit) {}
    ~conversation();  // TP_ENDED: a conversation that is still there is deallocated abnormally
    conversation(const conversation&) = delete;
    conversation& operator=(const conversation&) = delete;

    // TP_STARTED on the local LU (empty: the default one), then ALLOCATE.
    outcome allocate(std::string_view local_lu, std::string_view own_name, const partner& with, appc_u8 sync_level);
    // RECEIVE_ALLOCATE, by any partner.
    outcome accept(std::string_view tp);

    outcome send(std::span<const appc_u8> record, appc_u8 type = APPC_SEND_NONE);  // at most LONGEST_RECORD
    outcome receive(std::span<appc_u8> record, received& got);                     // data and status may come together
    outcome confirmed();
    outcome send_error();
    outcome deallocate(appc_u8 type);

    const std::string& partner_lu() const noexcept { return partner_lu_; }  // printable; after accept

private:
    template <typename Block>
    Block block(u16 opcode) const;
    template <typename Block>
    outcome run(Block& vcb, const appc_cancel_conv& cancel);
    template <typename Block>
    outcome run_on_conversation(Block& vcb);

    stopper& stop_;
    const clock::duration limit_;
    appc_u8 tp_id_[8] = {};
    appc_u32 conv_id_ = 0;
    bool started_ = false;
    std::string partner_lu_;
};

// Says what a failed verb means and what to do, with the exit code that fits. limit: what the verb could wait.
ending failed(const outcome& verb, clock::duration limit);

// Whether TESSALY_NODE names a node that other processes share, not the one inside this process.
bool shares_a_node();

// For a subcommand whose partner is another process, when shares_a_node is false.
ending needs_a_shared_node();

}  // namespace tessaly::tool
