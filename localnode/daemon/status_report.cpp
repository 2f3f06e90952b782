#include "localnode/daemon/status_report.h"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace tessaly::daemon {

namespace {

using nlohmann::json;

void add_tp_servers(json& status, const node::node_report& report)
{
    for (const node::node_report::tp_server& each : report.tp_servers)
        status["tp_servers"].push_back({{"client", each.client},
                                        {"servers", each.servers},
                                        {"definitions", each.definitions},
                                        {"starts", each.starts}});
    for (const node::node_report::tp_definition& each : report.tp_definitions)
        status["tp_definitions"].push_back({{"id", each.id},
                                            {"client", each.client},
                                            {"server", each.server},
                                            {"tp_name", each.tp_name},
                                            {"lu", each.lu},
                                            {"partner_lu", each.partner_lu},
                                            {"type", each.type}});
    for (const node::node_report::start& each : report.starts)
        status["starts"].push_back({{"id", each.id},
                                    {"client", each.client},
                                    {"tp_name", each.tp_name},
                                    {"lu", each.lu},
                                    {"partner_lu", each.partner_lu},
                                    {"state", each.state}});
}

}  // namespace

std::string status_document(const settings& of, u64 uptime_ms, const connection_map& clients, const node::node_report& report)
{
    json status = {{"node", of.name},
                   {"pid", getpid()},
                   {"uptime_seconds", uptime_ms / 1000},
                   {"version", TESSALY_VERSION},
                   {"clients", json::array()},
                   {"lus", json::array()},
                   {"tps", json::array()},
                   {"conversations", json::array()},
                   {"tp_servers", json::array()},
                   {"tp_definitions", json::array()},
                   {"starts", json::array()},
                   {"attaches_waiting", report.attaches_waiting},
                   {"tps_waiting", report.tps_waiting},
                   {"registered_names", report.registered_names}};
    for (const auto& [id, client] : clients)
        if (client->now == connection::stage::conversing)
            status["clients"].push_back({{"id", id},
                                         {"pid", client->peer.pid},
                                         {"uid", client->peer.uid},
                                         {"paths", client->paths.size()},
                                         {"queued_bytes", client->queued_bytes()}});
    std::sort(status["clients"].begin(), status["clients"].end(), [](const json& a, const json& b) { return a["id"] < b["id"]; });
    for (const node::lu_definition& lu : report.lus)
        status["lus"].push_back({{"alias", lu.alias}, {"name", lu.name}});
    for (const node::node_report::tp& tp : report.tps)
        status["tps"].push_back({{"id", tp.id},
                                 {"client", tp.client},
                                 {"name", tp.name},
                                 {"lu", tp.lu},
                                 {"conversations", tp.conversations}});
    for (const node::node_report::conversation& each : report.conversations)
        status["conversations"].push_back({{"id", each.id},
                                           {"tp", each.tp},
                                           {"state", each.state},
                                           {"partner_lu", each.partner_lu},
                                           {"tp_name", each.tp_name},
                                           {"mode", each.mode}});
    add_tp_servers(status, report);
    // A name that is no UTF-8 is shown with a substitute, not refused.
    return status.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace tessaly::daemon
