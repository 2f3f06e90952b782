// What the config file may say. The room service has how it is read.
#include "localnode/daemon/config.h"

#include <algorithm>

namespace tessaly::daemon {

namespace {

std::string check_mode(const std::string& text)
{
    const bool right = text.size() == 4 && text[0] == '0' && text.find_first_not_of("01234567") == text.npos;
    return right ? "" : "must be the digits of a file's mode, as \"0660\"";
}

void read_access(config_section& in, settings::access_settings& access)
{
    std::string mode;
    if (in.read("mode", mode, check_mode))
        access.mode = static_cast<u32>(std::stoul(mode, nullptr, 8));
    in.read("group", access.group, [](const std::string& text) { return text.empty() ? "" : check_group(text); });
    read_users(in, "users", access.users);
    read_groups(in, "groups", access.groups);
}

void read_tp_servers(config_section& in, settings::tp_server_settings& tp_servers)
{
    read_users(in, "users", tp_servers.users);
    read_groups(in, "groups", tp_servers.groups);
}

void read_limits(config_section& in, settings::limit_settings& limits)
{
    in.read("clients", limits.clients, 1, 20'000);
    in.read("paths_per_client", limits.paths_per_client, 1, 65'000);
    in.read("queued_mib_per_client", limits.queued_mib_per_client, 1, 1024);
    in.read("unread_kib_per_conversation", limits.unread_kib_per_conversation, 1, node::MOST_UNREAD_BYTES / 1024);
    in.read("waiting_attaches", limits.waiting_attaches, 0, 50'000);
    in.read("programs", limits.programs, 0, 10'000);
}

void read_times(config_section& in, settings::time_settings& times)
{
    in.read("attach_seconds", times.attach_seconds, 1, 86'400);
    in.read("start_seconds", times.start_seconds, 1, 86'400);
    in.read("stop_seconds", times.stop_seconds, 0, 3600);
}

void read_lu(config_section& in, const std::string& network, std::vector<node::lu_definition>& lus)
{
    node::lu_definition lu;
    in.require("alias");
    const bool has_alias = in.read("alias", lu.alias, check_short_name);
    if (!in.read("name", lu.name, check_full_name))
        lu.name = network + "." + lu.alias;
    if (has_alias && is_defined(lus, lu.alias, &node::lu_definition::alias))
        in.report("alias", "another LU has this alias");
    else if (is_defined(lus, lu.name, &node::lu_definition::name))
        in.report("name", "another LU has the name " + lu.name);
    lus.push_back(lu);
}

void read_partner_lu(config_section& in, const std::vector<node::lu_definition>& lus,
                     std::vector<node::lu_definition>& partners)
{
    node::lu_definition partner;
    in.require("alias");
    in.require("name");
    if (in.read("alias", partner.alias, check_short_name) &&
        is_defined(partners, partner.alias, &node::lu_definition::alias))
        in.report("alias", "another partner LU has this alias");
    if (in.read("name", partner.name, check_full_name) && !lus.empty() &&
        !is_defined(lus, partner.name, &node::lu_definition::name))
        in.report("name", "no [[lu]] has this name");
    partners.push_back(partner);
}

void read_programs(config_section& in, std::vector<program_settings>& programs)
{
    program_settings program;
    read_program(in, program);
    if (is_defined(programs, program.tp_name, &program_settings::tp_name))
        in.report("tp_name", "another program has this name");
    programs.push_back(program);
}

void read_all(config_section& in, settings& into)
{
    in.read("name", into.name, [](const std::string& text) { return text.empty() ? "must not be empty" : ""; });
    in.read("network", into.network, check_short_name);
    in.read("socket", into.socket, check_socket);
    in.in_table("access", [&](config_section& table) { read_access(table, into.access); });
    in.in_table("tp_servers", [&](config_section& table) { read_tp_servers(table, into.tp_servers); });
    in.in_table("log", [&](config_section& table) { read_log(table, into.log); });
    in.in_table("limits", [&](config_section& table) { read_limits(table, into.limits); });
    in.in_table("times", [&](config_section& table) { read_times(table, into.times); });
    in.in_tables("lu", [&](config_section& table) { read_lu(table, into.network, into.lus); });
    in.in_tables("partner_lu", [&](config_section& table) { read_partner_lu(table, into.lus, into.partner_lus); });
    in.in_tables("program", [&](config_section& table) { read_programs(table, into.programs); });
}

}  // namespace

settings read_config(const std::string& file, settings otherwise)
{
    settings read = std::move(otherwise);
    read_config_file(file, [&](config_section& section) { read_all(section, read); });
    return read;
}

node::configuration engine_configuration(const settings& from)
{
    node::configuration to;
    to.network = from.network;
    to.local_lus = from.lus;
    to.partner_lus = from.partner_lus;
    for (const program_settings& program : from.programs)
        to.programs.push_back(program.tp_name);
    to.attach_limit_ms = from.times.attach_seconds * 1000;
    to.start_limit_ms = from.times.start_seconds * 1000;
    to.most_attaches = from.limits.waiting_attaches;
    to.unread_bytes = from.limits.unread_kib_per_conversation * 1024;
    return to;
}

}  // namespace tessaly::daemon
