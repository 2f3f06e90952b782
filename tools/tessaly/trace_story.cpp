// Requests and responses become verbs; the blocks tell their TPs, conversations and what they carried.
#include "tools/tessaly/trace_story.h"

#include "tools/tessaly/terminal.h"

#include "verbs/block.h"
#include "verbs/catalogue.h"

#include <algorithm>
#include <cstring>

namespace tessaly::tool::trace {

namespace {

constexpr std::size_t PREVIEW = 96;  // bytes of data

// The block as a struct; what the record does not show is zero.
template <typename Block>
Block as(const dumped& block)
{
    Block made{};
    std::memcpy(&made, block.bytes.data(), std::min(block.bytes.size(), sizeof made));
    return made;
}

std::string trimmed(std::string text)
{
    while (!text.empty() && (text.back() == ' ' || text.back() == '.'))
        text.pop_back();
    return text;
}

std::string ebcdic_at(const dumped& block, std::size_t at, std::size_t count)
{
    return at < block.in_ebcdic.size() ? trimmed(block.in_ebcdic.substr(at, count)) : "";
}

std::string ascii_at(const dumped& block, std::size_t at, std::size_t count)
{
    return at < block.bytes.size() ? trimmed(printable(block.bytes.substr(at, count))) : "";
}

std::string bytes_at(const dumped& block, std::size_t at)
{
    const std::string id = at < block.bytes.size() ? block.bytes.substr(at, TP_ID_BYTES) : "";
    return id == std::string(TP_ID_BYTES, '\0') || id.size() != TP_ID_BYTES ? "" : id;
}

}  // namespace

u32 tp::number() const
{
    return id.size() == TP_ID_BYTES ? tp_handle_in(reinterpret_cast<const u8*>(id.data())) : 0;
}

std::string tp::label() const
{
    if (!name.empty())
        return name;
    return id.empty() ? "no TP yet" : text_of("TP %u", number());
}

std::size_t story::tp_of(u32 process, const std::string& id)
{
    const auto [found, added] = known_tps_.try_emplace({process, id}, tps.size());
    if (added)
        tps.push_back({process, id, "", ""});
    return found->second;
}

void story::read_block(verb_run& verb, const record& from)
{
    const dumped& block = from.block;
    const auto header = as<appc_header>(block);
    const verb_row* row = find_verb(header.opcode);
    const bool responds = from.kind == record_kind::response;
    verb.opcode = header.opcode;
    verb.ext = header.opext;
    if (responds)
        verb.secondary = header.secondary_rc;
    verb.tp = tp_of(verb.process, "");
    if (row == nullptr)
        return;
    const bool starts = header.opcode == TP_STARTED;
    const bool accepts = is_receive_allocate(header.opcode);
    const std::size_t id_at = starts    ? offsetof(appc_tp_started, tp_id)
                              : accepts ? offsetof(appc_receive_allocate, tp_id)
                                        : offsetof(appc_header, tp_id);
    const bool has_tp =
        (!starts && !accepts && row->issue != issue_rule::registers) || (responds && verb.result == "OK");
    verb.tp = tp_of(verb.process, has_tp ? bytes_at(block, id_at) : "");
    tp& of = tps[verb.tp];
    if (row->conv_verb)
        verb.conversation = header.conv_id;
    if (starts && has_tp) {
        of.name = ebcdic_at(block, offsetof(appc_tp_started, tp_name), TP_NAME_BYTES);
        of.lu = ascii_at(block, offsetof(appc_tp_started, lu_alias), LU_ALIAS_BYTES);
    } else if (accepts && has_tp) {
        verb.conversation = as<appc_receive_allocate>(block).conv_id;
        verb.asks_tp = of.name = ebcdic_at(block, offsetof(appc_receive_allocate, tp_name), TP_NAME_BYTES);
        verb.asks_lu = of.lu = ascii_at(block, offsetof(appc_receive_allocate, lu_alias), LU_ALIAS_BYTES);
        verb.from_lu = ascii_at(block, offsetof(appc_receive_allocate, plu_alias), LU_ALIAS_BYTES);
    } else if (header.opcode == ALLOCATE || header.opcode == SEND_CONVERSATION) {
        const bool old = header.opcode == ALLOCATE && header.format == 0;
        verb.asks_tp = ebcdic_at(
            block, old ? offsetof(appc_allocate_format_0, tp_name) : offsetof(appc_allocate, tp_name), TP_NAME_BYTES);
        verb.asks_lu =
            ascii_at(block, old ? offsetof(appc_allocate_format_0, plu_alias) : offsetof(appc_allocate, plu_alias),
                     LU_ALIAS_BYTES);
        verb.sync_confirm = header.opcode == ALLOCATE && as<appc_allocate>(block).sync_level == APPC_SYNC_CONFIRM;
        verb.conversation = header.opcode == ALLOCATE ? header.conv_id : 0;
    } else if (header.opcode == SEND_DATA) {
        verb.what = as<appc_send_data>(block).type;
    } else if (header.opcode == DEALLOCATE) {
        verb.what = as<appc_deallocate>(block).dealloc_type;
    } else if (header.opcode == PREPARE_TO_RECEIVE) {
        verb.what = as<appc_prepare_to_receive>(block).ptr_type;
    }

    const bool receives = row->received_into != 0;
    if (receives && responds) {
        verb.what = header.opcode == RECEIVE_EXPEDITED_DATA ? u16{0} : as<appc_receive>(block).what_rcvd;
        verb.data_bytes = verb.result == "OK" ? as<appc_receive>(block).dlen : 0;
    }
    if (receives ? responds && verb.data_bytes != 0 : from.data.count != 0) {
        verb.data_bytes = receives ? verb.data_bytes : from.data.count;
        verb.data = from.data.bytes.substr(0, PREVIEW);
        verb.data_in_ebcdic = from.data.in_ebcdic.substr(0, PREVIEW);
    }
}

void story::take(const record& from)
{
    if (from.kind == record_kind::forget) {
        verb_run& forget = verbs.emplace_back();
        forget.verb = from.verb;
        forget.result = from.result;
        forget.process = from.process;
        forget.thread = from.thread;
        forget.start_us = forget.end_us = from.time_us;
        forget.line = from.line;
        forget.conversation = from.conversation;
        forget.tp = tp_of(from.process, from.tp_id);
        if (on_end)
            on_end(forget);
        return;
    }
    const auto key = std::pair{from.process, from.block.address};
    const auto known = open_.find(key);
    std::size_t place = known != open_.end() && from.kind == record_kind::response ? known->second : verbs.size();
    if (place == verbs.size())
        verbs.emplace_back();
    verb_run& verb = verbs[place];
    if (verb.line == 0) {
        verb.verb = from.verb;
        verb.process = from.process;
        verb.thread = from.thread;
        verb.line = from.line;
        verb.block = from.block.address;
    }
    if (from.kind == record_kind::request) {
        verb.start_us = from.time_us;
        open_[key] = place;
    } else {
        verb.end_us = from.time_us;
        verb.result = from.result;
        if (known != open_.end())
            open_.erase(known);
    }
    read_block(verb, from);
    if (verb.has_ended() && on_end)
        on_end(verb);
}

void story::sort()
{
    std::ranges::stable_sort(verbs, {}, &verb_run::first_us);
}

void story::drop_ended()
{
    std::vector<verb_run> left;
    for (auto& [key, place] : open_) {
        left.push_back(std::move(verbs[place]));
        place = left.size() - 1;
    }
    verbs = std::move(left);
}

bool filter::passes(const story& of, const verb_run& run) const
{
    if ((errors && !run.is_error()) || (conversation != 0 && run.conversation != conversation))
        return false;
    if (!verb.empty() && run.verb != verb && run.verb != "MC_" + verb)
        return false;
    const trace::tp& on = of.tps[run.tp];
    return tp.empty() || on.name == tp || tp == std::to_string(on.process) ||
           (!on.id.empty() && tp == std::to_string(on.number()));
}

}  // namespace tessaly::tool::trace
