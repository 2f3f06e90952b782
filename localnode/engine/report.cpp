#include "localnode/engine/report.h"

#include "localnode/engine/tp_definitions.h"

namespace tessaly::node {

namespace {

const char* name_of(conv_state state) noexcept
{
    switch (state) {
    case conv_state::reset: return "RESET";
    case conv_state::send: return "SEND";
    case conv_state::receive: return "RECEIVE";
    case conv_state::send_pending: return "SEND_PENDING";
    case conv_state::confirm: return "CONFIRM";
    case conv_state::confirm_send: return "CONFIRM_SEND";
    case conv_state::confirm_deallocate: return "CONFIRM_DEALLOCATE";
    case conv_state::receiving: return "RECEIVE, waiting";
    case conv_state::asking: return "SEND, waiting";
    }
    return "";
}

std::string alias_text(const lu_alias& alias)
{
    std::string text{alias.begin(), alias.end()};
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

std::string pattern_text(const fq_lu_name& pattern)
{
    std::string text = text_of(pattern);
    for (std::size_t at = 0; at < text.size(); ++at)
        if (pattern[at] == EBCDIC_ASTERISK)
            text[at] = '*';
    return text;
}

const char* name_of(tp_start_type type) noexcept
{
    switch (type) {
    case START_EACH: return "NONQUEUED";
    case START_QUEUED: return "QUEUED";
    case START_NEVER: return "QUEUED_MANUAL";
    }
    return "";
}

const char* name_of(start_phase phase) noexcept
{
    switch (phase) {
    case start_phase::none: break;
    case start_phase::queued: return "QUEUED";
    case start_phase::asked: return "ASKED";
    case start_phase::started: return "STARTED";
    }
    return "";
}

void report_starts(const node& n, node_report& report)
{
    for (const list_head<attach>* const list : {&n.starting, &n.attaches})
        for (const attach* each = list->first(); each != nullptr; each = list->after(*each))
            if (each->start.phase != start_phase::none)
                report.starts.push_back({each->id, each->start.server, text_of(each->side->program),
                                         alias_text(each->side->local_lu), text_of(n.lus.full_name(each->side->partner_lu)),
                                         name_of(each->start.phase)});
}

void report_tp_servers(node& n, node_report& report)
{
    for (const auto& [id, client] : n.clients)
        if (!client.tp_servers.empty()) {
            const auto starts = std::ranges::count(report.starts, id, &node_report::start::client);
            report.tp_servers.push_back(
                {id, static_cast<u32>(client.tp_servers.size()), client.definitions, static_cast<u32>(starts)});
        }
    for (const tp_definition* each = n.definitions.first(); each != nullptr; each = n.definitions.after(*each))
        report.tp_definitions.push_back({each->id, each->client, each->server, text_of(each->starts.program),
                                         alias_text(each->starts.lu), pattern_text(each->starts.partner),
                                         name_of(static_cast<tp_start_type>(each->starts.type))});
}

}  // namespace

node_report report_on(node& n)
{
    node_report report{};
    report.lus = n.lus.list();
    n.tp_table.for_each([&](tp& each) {
        u32 conversations = 0;
        for (conv_side* side = each.sides.first(); side != nullptr; side = each.sides.after(*side))
            ++conversations;
        report.tps.push_back({each.id, each.path->client, text_of(each.name), alias_text(each.lu), conversations});
    });
    n.side_table.for_each([&](const conv_side& side) {
        report.conversations.push_back({side.id, side.owner != nullptr ? side.owner->id : 0, name_of(side.state),
                                        alias_text(side.partner_lu), text_of(side.program), text_of(side.mode)});
    });
    report_starts(n, report);
    report_tp_servers(n, report);
    for (const auto& [id, client] : n.clients)
        report.registered_names += static_cast<u32>(client.names.size());
    n.announced_table.for_each([&](const announced_tp&) { ++report.tps_waiting; });
    report.attaches_waiting = n.waiting_attaches;
    return report;
}

}  // namespace tessaly::node
