#include "tools/tessaly/conversation.h"

#include "tools/tessaly/code_texts.h"
#include "tools/tessaly/names.h"

#include "verbs/catalogue.h"

#include <cstdlib>
#include <cstring>
#include <type_traits>

namespace tessaly::tool {

namespace {

// Verbs by which a program leaves are issued even when everything is to stop.
constexpr bool ends_something(u16 opcode) noexcept
{
    return opcode == TP_ENDED || opcode == DEALLOCATE;
}

appc_cancel_conv cancel_of(const appc_u8 (&tp_id)[8], appc_u32 conv_id)
{
    appc_cancel_conv cancel{};
    cancel.opcode = CANCEL_CONV;
    std::memcpy(cancel.tp_id, tp_id, sizeof tp_id);
    cancel.conv_id = conv_id;
    return cancel;
}

}  // namespace

std::string from_field(std::span<const appc_u8> ascii)
{
    const std::string name(ascii.begin(), ascii.end());
    return printable(name.substr(0, name.find_last_not_of(' ') + 1));
}

template <typename Block>
Block conversation::block(u16 opcode) const
{
    Block vcb{};
    vcb.opcode = opcode;
    vcb.opext = APPC_MAPPED_CONVERSATION;
    std::memcpy(vcb.tp_id, tp_id_, sizeof tp_id_);
    if constexpr (!std::is_same_v<Block, appc_tp_ended>)
        vcb.conv_id = conv_id_;
    return vcb;
}

template <typename Block>
outcome conversation::run(Block& vcb, const appc_cancel_conv& cancel)
{
    const char* verb = find_verb(vcb.opcode)->name;
    const bool limited = stop_.begin_wait(cancel, limit_);
    if (!limited && !ends_something(vcb.opcode))
        return {verb, CANCELLED, SEC_NONE, stop_.cause()};
    APPC(&vcb);
    if (limited)
        stop_.end_wait(cancel);
    return {verb, vcb.primary_rc, vcb.secondary_rc, vcb.primary_rc == OK ? stop_cause::none : stop_.cause()};
}

template <typename Block>
outcome conversation::run_on_conversation(Block& vcb)
{
    return run(vcb, cancel_of(tp_id_, conv_id_));
}

conversation::~conversation()
{
    if (!started_)
        return;
    auto ended = block<appc_tp_ended>(TP_ENDED);
    run_on_conversation(ended);
}

outcome conversation::allocate(std::string_view local_lu, std::string_view own_name, const partner& with,
                               appc_u8 sync_level)
{
    appc_tp_started start{};
    start.opcode = TP_STARTED;
    put_alias(start.lu_alias, local_lu);
    put_ebcdic(start.tp_name, own_name);
    if (const outcome result = run(start, cancel_of({}, A_TP_STARTED)); !result.ok())
        return result;
    std::memcpy(tp_id_, start.tp_id, sizeof tp_id_);
    started_ = true;

    auto allocate = block<appc_allocate_format_0>(ALLOCATE);
    allocate.conv_type = APPC_MAPPED;
    allocate.sync_level = sync_level;
    put_alias(allocate.plu_alias, with.lu);
    put_ebcdic(allocate.mode_name, "");
    put_ebcdic(allocate.tp_name, with.tp);
    const outcome result = run_on_conversation(allocate);
    conv_id_ = result.ok() ? allocate.conv_id : 0;
    return result;
}

outcome conversation::accept(std::string_view tp)
{
    appc_receive_allocate allocate{};
    allocate.opcode = RECEIVE_ALLOCATE;
    // In a program that a node has started, format 1 takes the conversation that it was started for.
    const char* started_for = std::getenv("APPC_ATTACH_ID");
    allocate.format = started_for != nullptr && *started_for != '\0' ? 1 : 0;
    put_ebcdic(allocate.tp_name, tp);
    const outcome result = run(allocate, cancel_of({}, A_RECEIVE_ALLOCATE));
    if (!result.ok())
        return result;
    std::memcpy(tp_id_, allocate.tp_id, sizeof tp_id_);
    conv_id_ = allocate.conv_id;
    started_ = true;
    partner_lu_ = from_field(allocate.plu_alias);
    return result;
}

outcome conversation::send(std::span<const appc_u8> record, appc_u8 type)
{
    auto send = block<appc_send_data>(SEND_DATA);
    send.dptr = record.data();
    send.dlen = static_cast<appc_u16>(record.size());
    send.type = type;
    return run_on_conversation(send);
}

outcome conversation::receive(std::span<appc_u8> record, received& got)
{
    auto receive = block<appc_receive_and_wait>(RECEIVE_AND_WAIT);
    receive.rtn_status = 1;
    receive.dptr = record.data();
    receive.max_len = static_cast<appc_u16>(std::min(record.size(), LONGEST_RECORD));
    const outcome result = run_on_conversation(receive);
    got = {};
    if (result.ok())
        got = {receive.what_rcvd, receive.dlen};
    return result;
}

outcome conversation::confirmed()
{
    auto confirmed = block<appc_confirmed>(CONFIRMED);
    return run_on_conversation(confirmed);
}

outcome conversation::send_error()
{
    auto error = block<appc_send_error>(SEND_ERROR);
    error.err_type = APPC_PROG_ERROR;
    return run_on_conversation(error);
}

outcome conversation::deallocate(appc_u8 type)
{
    auto deallocate = block<appc_deallocate>(DEALLOCATE);
    deallocate.dealloc_type = type;
    return run_on_conversation(deallocate);
}

ending failed(const outcome& verb, clock::duration limit)
{
    if (verb.stopped == stop_cause::time_out) {
        const double seconds = std::chrono::duration<double>(limit).count();
        return {EXIT_TIME_OUT,
                text_of("%s took longer than %g s (--timeout) and was cancelled. See whether the partner runs.",
                        verb.verb, seconds)};
    }
    if (verb.stopped == stop_cause::signal)
        return {EXIT_VERB_FAILED,
                text_of("stopped by a signal: %s was cancelled, and a partner is told that the conversation is over.",
                        verb.verb)};

    const auto primary = codes_of(code_kind::primary, verb.primary);
    const auto secondary = codes_of(code_kind::secondary, verb.secondary);
    // The secondary code says more, where there is one. That of a system error is a number of the system, not a code.
    const bool has_secondary = verb.secondary != SEC_NONE && verb.primary != UNEXPECTED_SYSTEM_ERROR &&
                               verb.primary != COMMS_SUBSYSTEM_NOT_LOADED;
    std::string text = std::string(verb.verb) + " failed: " + name_of(code_kind::primary, verb.primary);
    if (has_secondary)
        text += ", " + name_of(code_kind::secondary, verb.secondary);
    else if (verb.secondary != SEC_NONE)
        text += text_of(", 0x%08X", verb.secondary);
    const auto& described = has_secondary && !secondary.empty() ? secondary : primary;
    if (!described.empty())  // of two with one value, the last is what a conversation verb means
        text += std::string(". ") + described.back().meaning + " " + described.back().next_step;
    const bool no_node = verb.primary == COMMS_SUBSYSTEM_NOT_LOADED || verb.primary == COMMS_SUBSYSTEM_ABENDED;
    return {no_node ? EXIT_NO_NODE : EXIT_VERB_FAILED, text};
}

bool shares_a_node()
{
    const char* node = std::getenv("TESSALY_NODE");
    return node != nullptr && *node != '\0' && std::strcmp(node, "embedded") != 0;
}

ending needs_a_shared_node()
{
    return {EXIT_NO_NODE,
            "TESSALY_NODE is not set, so the node is the one inside this process, and nobody else can be there.\n"
            "Both ends must share a node. Start one, and name its socket to both ends:\n"
            "    tessaly-node --socket /tmp/node.sock --foreground &\n"
            "    export TESSALY_NODE=unix:/tmp/node.sock"};
}

}  // namespace tessaly::tool
