// The tables of a status document. A member that is missing or of another type shows as "?"; further ones are left out.
#include "tools/tessaly/commands.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <span>

namespace tessaly::tool {

namespace {

using nlohmann::json;

constexpr std::size_t WIDEST = 64;

struct column {
    const char* title;
    const char* member;
    const char* for_empty = "";
};

constexpr column client_columns[] = {
    {"CLIENT", "id"}, {"PID", "pid"}, {"UID", "uid"}, {"PATHS", "paths"}, {"QUEUED", "queued_bytes"}};
constexpr column lu_columns[] = {{"LU", "alias"}, {"FULL NAME", "name"}};
constexpr column tp_columns[] = {
    {"TP", "id"}, {"CLIENT", "client"}, {"NAME", "name"}, {"LU", "lu"}, {"CONVERSATIONS", "conversations"}};
constexpr column conversation_columns[] = {{"CONVERSATION", "id"},       {"TP", "tp"},           {"STATE", "state"},
                                           {"PARTNER LU", "partner_lu"}, {"TP NAME", "tp_name"}, {"MODE", "mode"}};

constexpr column tp_server_columns[] = {
    {"CLIENT", "client"}, {"TP SERVERS", "servers"}, {"DEFINITIONS", "definitions"}, {"STARTS", "starts"}};
constexpr column definition_columns[] = {{"DEFINITION", "id"},    {"CLIENT", "client"},
                                         {"SERVER", "server"},    {"TP NAME", "tp_name"},
                                         {"LU", "lu", "any"},     {"PARTNER LU", "partner_lu", "any"},
                                         {"TYPE", "type"}};
constexpr column start_columns[] = {{"START", "id"}, {"CLIENT", "client"},         {"TP NAME", "tp_name"},
                                    {"LU", "lu"},    {"PARTNER LU", "partner_lu"}, {"STATE", "state"}};

struct table {
    const char* member;
    std::span<const column> columns;
    bool optional = false;  // shown only when it is there and has rows
};

constexpr table tables[] = {{"clients", client_columns},
                            {"lus", lu_columns},
                            {"tps", tp_columns},
                            {"conversations", conversation_columns},
                            {"tp_servers", tp_server_columns, true},
                            {"tp_definitions", definition_columns, true},
                            {"starts", start_columns, true}};

// Printable, whatever the document holds.
std::string cell(const json& object, const char* member, const char* for_empty = "")
{
    const auto found = object.is_object() ? object.find(member) : object.end();
    if (!object.is_object() || found == object.end())
        return "?";
    if (found->is_string() && found->get_ref<const std::string&>().empty())
        return for_empty;
    if (found->is_string())
        return printable(found->get_ref<const std::string&>(), WIDEST);
    if (found->is_number_integer())
        return found->dump();
    return "?";
}

// Columns as wide as their widest cell, two blanks apart.
void add_table(const table& shape, const json& rows, std::string& text)
{
    std::vector<std::vector<std::string>> cells(1);
    for (const column& each : shape.columns)
        cells[0].emplace_back(each.title);
    for (const json& row : rows) {
        cells.emplace_back();
        for (const column& each : shape.columns)
            cells.back().push_back(cell(row, each.member, each.for_empty));
    }
    std::vector<std::size_t> widths(shape.columns.size());
    for (const auto& row : cells)
        for (std::size_t at = 0; at < row.size(); ++at)
            widths[at] = std::max(widths[at], row[at].size());
    text += '\n';
    for (auto& row : cells) {
        for (std::size_t at = 0; at < row.size(); ++at) {
            row[at].resize(widths[at] + 2, ' ');
            text += row[at];
        }
        text.resize(text.find_last_not_of(' ') + 1);
        text += '\n';
    }
}

}  // namespace

bool status_tables(std::string_view document, std::string& text)
{
    const json status = json::parse(document, nullptr, false);
    if (!status.is_object()) {
        text = status.is_discarded() ? "it is no JSON" : "it is no JSON object";
        return false;
    }
    for (const table& each : tables)
        if (const auto rows = status.find(each.member); !each.optional && (rows == status.end() || !rows->is_array())) {
            text = text_of("it has no list \"%s\"", each.member);
            return false;
        }
    text = "node " + cell(status, "node") + ", version " + cell(status, "version") + ", process " +
           cell(status, "pid") + ", up for " + cell(status, "uptime_seconds") + " s\n";
    for (const table& each : tables)
        if (const json rows = status.value(each.member, json::array()); rows.is_array() && !rows.empty())
            add_table(each, rows, text);
        else if (!each.optional)
            text += text_of("\nno %s\n", each.member);
    text += "\nwaiting: attaches " + cell(status, "attaches_waiting") + ", TPs " + cell(status, "tps_waiting") +
            "; registered names " + cell(status, "registered_names") + "\n";
    return true;
}

}  // namespace tessaly::tool
