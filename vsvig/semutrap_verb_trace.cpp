// Texts of the verb trace. What is dumped of a block stands in its verb's row; file, layout and lock are the runtime's.
#include "vsvig/semutrap_verb_trace.h"

#include "common/export.h"
#include "common/runtime_log.h"
#include "runtime/node_runtime.h"
#include "verbs/block.h"
#include "verbs/catalogue.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

namespace tessaly {

namespace {

constexpr char LABEL[] = "APPC ";
constexpr u16 UNKNOWN_VERB_BYTES = 6;  // up to primary_rc

// A record under way, from its separator to the moment when others may write. Without a file nothing was locked.
class trace_record {
public:
    trace_record() noexcept : file_(turn())
    {
        if (opened())
            com_trc_sep(file_, LABEL);
    }
    ~trace_record()
    {
        if (opened())
            trc_unlock_file(&trc_api);
    }
    trace_record(const trace_record&) = delete;
    trace_record& operator=(const trace_record&) = delete;

    bool opened() const noexcept { return file_ != TRC_NO_FILE; }

    template <typename... Args>
    void line(const char* format, Args... args) const noexcept
    {
        char text[128];
        std::snprintf(text, sizeof text, format, args...);
        com_trc_line(file_, LABEL, text);
    }

    void dump(const void* start, u32 bytes) const noexcept { com_trc_dump(file_, LABEL, start, bytes); }

private:
    // The file, or TRC_NO_FILE while tracing is off or has none.
    static u32 turn() noexcept
    {
        if (trc_api.initialised == 0) {
            sepuapi_init(ptrc);
            trc_api.initialised = 1;
        }
        if (!api_trace_on())
            return TRC_NO_FILE;
        trc_lock_file(&trc_api);
        return trc_api.trace_file;
    }

    u32 file_;
};

const char* name_of_result(u16 primary) noexcept
{
    const auto* found = std::ranges::find(verb_result_names, u32{primary}, &code_name::value);
    return found == std::end(verb_result_names) ? "***UNKNOWN RC***" : found->name;
}

u16 data_bytes(const void* vcb, const trace_rule& rule, const data_buffer& buffer) noexcept
{
    if (buffer.address_at == 0)
        return 0;
    if (rule.entry_bytes != 0)
        return static_cast<u16>(load<u32>(vcb, buffer.length_at) * rule.entry_bytes);
    return load<u16>(vcb, buffer.length_at);
}

void write_headline(const trace_record& record, u16 kind, const block_header& header, const char* name) noexcept
{
    const bool mapped = name != nullptr && (header.opext & APPC_MAPPED_CONVERSATION) != 0;
    const char* prefix = mapped ? "MC_" : "";
    const char* verb = name != nullptr ? name : "***UNKNOWN VERB***";
    if (kind == TRACE_REQUEST)
        record.line("%s%s request", prefix, verb);
    else
        record.line("%s%s response, result = %s", prefix, verb, name_of_result(header.primary_rc));
}

const char* name_of_forget(u16 type, char (&unknown)[24]) noexcept
{
    static constexpr const char* names[] = {"DATA FLOW", "UNBIND", "FAILURE"};
    if (type < std::size(names))
        return names[type];
    std::snprintf(unknown, sizeof unknown, "UNKNOWN : 0x%X", unsigned{type});
    return unknown;
}

void write_record(u16 kind, const void* vcb, u8 format, u16 data_room) noexcept
{
    const trace_record record;
    if (!record.opened())
        return;
    const auto opcode = load<u16>(vcb, 0);
    const verb_row* verb = find_verb(opcode);
    if (verb != nullptr && verb->trace.bytes == 0)
        verb = nullptr;

    write_headline(record, kind, header_of(vcb), verb != nullptr ? verb->name : nullptr);
    record.line("---- Verb Parameter Block at address %p ----", vcb);
    if (verb == nullptr)
        return record.dump(vcb, UNKNOWN_VERB_BYTES);

    record.dump(vcb, verb->trace.block_bytes(header_of(vcb).opext, format));
    if (kind == TRACE_RESPONSE && !verb->trace.in_responses)
        return;
    const data_buffer& buffer = verb->trace.buffer(format);
    if (const u16 bytes = std::min(data_bytes(vcb, verb->trace, buffer), data_room); bytes != 0) {
        const void* data = load<const void*>(vcb, buffer.address_at);
        record.line("---- Data at address %p ----", data);
        record.dump(data, bytes);
    }
}

}  // namespace

u16 traced_data_room(const void* vcb, const verb_row& verb) noexcept
{
    const data_buffer& buffer = verb.trace.buffer(header_of(vcb).format);
    if (!verb.trace.in_responses)
        return 0;
    static_assert(offsetof(appc_receive, max_len) == offsetof(appc_receive_expedited_data, max_len));
    const auto length = load<u16>(vcb, buffer.length_at);
    return verb.received_into == 0 ? length : std::max(length, load<u16>(vcb, offsetof(appc_receive, max_len)));
}

void trace_response(const void* vcb, u8 format, u16 data_room) noexcept
{
    write_record(TRACE_RESPONSE, vcb, format, data_room);
}

}  // namespace tessaly

using namespace tessaly;

extern "C" {

TESSALY_EXPORT void seputrap(u16 kind, void* vcb)
{
    constexpr u16 no_bound = 0xFFFF;
    write_record(kind, vcb, header_of(vcb).format, no_bound);
}

TESSALY_EXPORT void seputrap2(void* vcb, u32 corr, u32 conv_id, const u8* tp_id, u16 type, void* callback)
{
    const trace_record record;
    if (!record.opened())
        return;
    char unknown[24];
    record.line("%s indication", "IMPLIED_FORGET");
    record.line("deallocate vcb at address:    %p", vcb);
    record.line("correlator:                   %lx", static_cast<unsigned long>(corr));
    record.line("conversation ID:              %lx", static_cast<unsigned long>(conv_id));
    record.line("TP ID:                        %2.2X%2.2X%2.2X%2.2X %2.2X%2.2X%2.2X%2.2X", tp_id[0], tp_id[1], tp_id[2], tp_id[3],
                tp_id[4], tp_id[5], tp_id[6], tp_id[7]);
    record.line("implied forget type:          %s", name_of_forget(type, unknown));
    record.line("application callback address: %p", callback);
}

}  // extern "C"
