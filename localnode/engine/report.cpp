#include "localnode/engine/report.h"

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
    for (const auto& [id, client] : n.clients)
        report.registered_names += static_cast<u32>(client.names.size());
    n.announced_table.for_each([&](const announced_tp&) { ++report.tps_waiting; });
    report.attaches_waiting = n.waiting_attaches;
    return report;
}

}  // namespace tessaly::node
