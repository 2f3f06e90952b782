#include "tools/tessaly/tp_server.h"

#include "tools/tessaly/names.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

namespace tessaly::tool {

namespace {

constexpr struct {
    u16 opcode;
    const char* name;
} verbs[] = {{APPC_OP_NAP_REGISTER_TP_SERVER, "NAP_REGISTER_TP_SERVER"},
             {APPC_OP_NAP_UNREGISTER_TP_SERVER, "NAP_UNREGISTER_TP_SERVER"},
             {APPC_OP_NAP_REGISTER_TP, "NAP_REGISTER_TP"},
             {APPC_OP_NAP_UNREGISTER_TP, "NAP_UNREGISTER_TP"},
             {APPC_OP_NAP_QUERY_ATTACH, "NAP_QUERY_ATTACH"},
             {APPC_OP_NAP_START_APPL_OK, "NAP_START_APPL_OK"},
             {APPC_OP_NAP_START_APPL_ERR, "NAP_START_APPL_ERR"},
             {APPC_OP_NAP_APPL_FAILED, "NAP_APPL_FAILED"}};

template <typename Block>
outcome run(Block& vcb)
{
    appc_async_int(&vcb, nullptr, 0);
    const auto row = std::ranges::find(verbs, vcb.opcode, [](const auto& each) { return each.opcode; });
    return {row->name, vcb.primary_rc, vcb.secondary_rc};
}

// A TP server is not told that its node is gone. A conversation that nobody begins is: its wait ends then.
struct watch {
    appc_receive_allocate wait;
    appc_tp_ended leave;

    bool begin();
};

void watch_is_left(void* leave, appc_u8*, appc_u32, appc_u32 corr)
{
    auto* const self = reinterpret_cast<watch*>(corr);
    if (static_cast<appc_tp_ended*>(leave)->primary_rc == OK && self->begin())
        return;
    the_inbox().put({.what = news::node_lost});
    delete self;
}

void watch_is_over(void* wait, appc_u8* tp_id, appc_u32, appc_u32 corr)
{
    auto* const self = reinterpret_cast<watch*>(corr);
    const auto& over = *static_cast<appc_receive_allocate*>(wait);
    if (over.primary_rc == OK) {  // somebody has guessed the name
        self->leave = {.opcode = TP_ENDED};
        std::memcpy(self->leave.tp_id, tp_id, sizeof self->leave.tp_id);
        if (APPC_Async(&self->leave, watch_is_left, corr) == APPC_IN_PROGRESS)
            return;
    }
    if (over.primary_rc != CANCELLED)
        the_inbox().put({.what = news::node_lost});
    delete self;
}

bool watch::begin()
{
    wait = {.opcode = RECEIVE_ALLOCATE};
    put_ebcdic(wait.tp_name, "TESSALY.LAUNCHER." + std::to_string(getpid()));
    return APPC_Async(&wait, watch_is_over, reinterpret_cast<appc_u32>(this)) == APPC_IN_PROGRESS;
}

outcome begin_watch()
{
    auto made = std::make_unique<watch>();
    if (made->begin()) {
        static_cast<void>(made.release());  // until its callback
        return {"RECEIVE_ALLOCATE", OK, SEC_NONE};
    }
    return {"RECEIVE_ALLOCATE", made->wait.primary_rc, made->wait.secondary_rc};
}

void note_event(appc_u32 event, void* data, appc_u32 value)
{
    if (event != APPC_TPS_EVENT_START_APPL)
        return;
    news asked{.what = news::asked, .definition = value};
    std::memcpy(&asked.id, data, sizeof asked.id);
    the_inbox().put(asked);
}

std::string from_ebcdic(std::span<const appc_u8> field)
{
    std::string text;
    for (const appc_u8 byte : field) {
        char found = byte == 0x40 ? ' ' : '?';
        for (char c = '!'; c <= '~'; ++c)
            if (ebcdic_of(c) == byte)
                found = c;
        text += found;
    }
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

// The security subfields of an attach header stand behind the TP name: their length in all, then each with its length and type.
std::string user_in(std::span<const appc_u8> header)
{
    constexpr std::size_t FIXED = 9;
    constexpr appc_u8 USER_ID = 2;
    if (header.size() <= FIXED)
        return "";
    std::size_t at = FIXED + 1 + header[FIXED];
    if (at >= header.size())
        return "";
    const std::size_t end = std::min(at + 1 + header[at], header.size());
    for (++at; at + 1 < end && header[at] != 0; at += 1u + header[at])
        if (header[at + 1] == USER_ID)
            return from_ebcdic(header.subspan(at + 2, std::min<std::size_t>(header[at] - 1u, end - at - 2)));
    return "";
}

// A partner's name, and the * at the end of a pattern.
void put_pattern(std::span<appc_u8> field, std::string_view pattern)
{
    constexpr appc_u8 EBCDIC_ASTERISK = 0x5C;
    put_ebcdic(field, pattern);
    if (pattern.ends_with('*'))
        field[pattern.size() - 1] = EBCDIC_ASTERISK;
}

}  // namespace

void inbox::put(const news& item)
{
    const std::lock_guard lock(mutex_);
    items_.push_back(item);
    filled_.notify_one();
}

news inbox::take(clock::time_point until)
{
    std::unique_lock lock(mutex_);
    const auto filled = [this] { return !items_.empty(); };
    if (until == clock::time_point::max())
        filled_.wait(lock, filled);
    else if (!filled_.wait_until(lock, until, filled))
        return {};
    const news oldest = items_.front();
    items_.pop_front();
    return oldest;
}

inbox& the_inbox()
{
    static inbox& own = *new inbox;
    return own;
}

template <typename Block>
Block tp_server::block(u16 opcode) const
{
    Block vcb{};
    vcb.opcode = opcode;
    vcb.server_handle = handle_;
    return vcb;
}

outcome tp_server::begin()
{
    auto vcb = block<appc_register_tp_server>(APPC_OP_NAP_REGISTER_TP_SERVER);
    vcb.server_callback = note_event;
    const outcome result = run(vcb);
    if (!result.ok())
        return result;
    handle_ = vcb.server_handle;
    const outcome watched = begin_watch();
    if (!watched.ok())
        end();
    return watched;
}

void tp_server::end()
{
    auto vcb = block<appc_unregister_tp_server>(APPC_OP_NAP_UNREGISTER_TP_SERVER);
    run(vcb);
    handle_ = 0;
    appc_cancel_conv cancel{.opcode = CANCEL_CONV};
    cancel.conv_id = A_RECEIVE_ALLOCATE;
    APPC(&cancel);
}

outcome tp_server::define(const launched_tp& tp, u32 definition, u32& registration)
{
    auto vcb = block<appc_register_tp>(APPC_OP_NAP_REGISTER_TP);
    vcb.tp_reg_id = registration;
    vcb.replace = registration != 0;
    put_ebcdic(vcb.tp_name, tp.program.tp_name);
    put_alias(vcb.lu_alias, tp.lu);
    put_pattern(vcb.fqplu_name, tp.partner);
    vcb.tp_type = tp.type;
    vcb.start_value = definition;
    const outcome result = run(vcb);
    if (result.ok())
        registration = vcb.tp_reg_id;
    return result;
}

outcome tp_server::undefine(u32 registration)
{
    auto vcb = block<appc_register_tp>(APPC_OP_NAP_UNREGISTER_TP);
    vcb.tp_reg_id = registration;
    return run(vcb);
}

outcome tp_server::query(const appc_start_id& id, attach_details& details)
{
    constexpr std::size_t LONGEST_PIP = 32'767;
    constexpr std::size_t LONGEST_HEADER = 255;
    auto vcb = block<appc_query_attach>(APPC_OP_NAP_QUERY_ATTACH);
    std::vector<appc_u8> pip(LONGEST_PIP);
    std::array<appc_u8, LONGEST_HEADER> header{};
    vcb.start_id = id;
    vcb.pip_buf = pip.data();
    vcb.pip_buf_len = static_cast<appc_u16>(pip.size());
    vcb.attach_buf = header.data();
    vcb.attach_buf_len = static_cast<appc_u16>(header.size());
    const outcome result = run(vcb);
    if (!result.ok())
        return result;
    pip.resize(std::min<std::size_t>(vcb.pip_len, pip.size()));
    details = {.tp_name = from_ebcdic(vcb.tp_name),
               .lu = from_field(vcb.lu_alias),
               .partner = from_ebcdic(vcb.fqplu_name),
               .user = user_in({header.data(), std::min<std::size_t>(vcb.attach_len, header.size())}),
               .pip = std::move(pip)};
    return result;
}

outcome tp_server::report(u16 opcode, const appc_start_id& id, u32 error_code)
{
    auto vcb = block<appc_start_appl>(opcode);
    vcb.start_id = id;
    vcb.error_code = error_code;
    return run(vcb);
}

outcome tp_server::started(const appc_start_id& id)
{
    return report(APPC_OP_NAP_START_APPL_OK, id, 0);
}

outcome tp_server::refused(const appc_start_id& id, u32 error_code)
{
    return report(APPC_OP_NAP_START_APPL_ERR, id, error_code);
}

outcome tp_server::ended_early(const appc_start_id& id, u32 error_code)
{
    return report(APPC_OP_NAP_APPL_FAILED, id, error_code);
}

}  // namespace tessaly::tool
