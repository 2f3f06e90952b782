// What the config file may say. config_section has how it is read.
#include "localnode/daemon/config.h"

#include "common/ebcdic.h"
#include "localnode/daemon/config_section.h"

#include <grp.h>
#include <pwd.h>

#include <algorithm>
#include <charconv>
#include <fstream>

namespace tessaly::daemon {

namespace {

constexpr std::size_t SHORT_NAME = 8;  // of networks, LUs and aliases
constexpr std::size_t TP_NAME = 64;

// Characters that turn into EBCDIC and back.
bool is_name(std::string_view text, std::size_t most)
{
    return !text.empty() && text.size() <= most &&
           std::ranges::all_of(text, [](char c) { return c != ' ' && AE_table[static_cast<u8>(c)] != 0; });
}

std::string check_short_name(const std::string& text)
{
    const bool right = is_name(text, SHORT_NAME) && text.find('.') == text.npos;
    return right ? "" : "must be 1 to 8 letters, digits or $ # @ /";
}

std::string check_full_name(const std::string& text)
{
    const std::size_t period = text.find('.');
    const bool right = period != text.npos && check_short_name(text.substr(0, period)).empty() &&
                       check_short_name(text.substr(period + 1)).empty();
    return right ? "" : "must be the network's name, a period and the LU's name, each of 1 to 8 characters";
}

std::string check_tp_name(const std::string& text)
{
    return is_name(text, TP_NAME) ? "" : "must be 1 to 64 letters, digits or $ # @ . /";
}

std::string check_mode(const std::string& text)
{
    const bool right = text.size() == 4 && text[0] == '0' && text.find_first_not_of("01234567") == text.npos;
    return right ? "" : "must be the digits of a file's mode, as \"0660\"";
}

template <typename Id>
std::optional<Id> number_in(const std::string& text)
{
    Id id{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
    return error == std::errc{} && end == text.data() + text.size() ? std::optional{id} : std::nullopt;
}

std::optional<uid_t> user_id(const std::string& text)
{
    const passwd* const known = getpwnam(text.c_str());
    return known != nullptr ? known->pw_uid : number_in<uid_t>(text);
}

std::optional<gid_t> group_id(const std::string& text)
{
    const group* const known = getgrnam(text.c_str());
    return known != nullptr ? known->gr_gid : number_in<gid_t>(text);
}

std::string check_user(const std::string& text)
{
    return user_id(text) ? "" : "there is no user " + text;
}

std::string check_group(const std::string& text)
{
    return group_id(text) ? "" : "there is no group " + text;
}

template <typename Id>
void read_ids(config_section& in, const std::string& key, std::vector<Id>& into, const config_section::text_check& check,
              std::optional<Id> (*id_of)(const std::string&))
{
    std::vector<std::string> texts;
    if (!in.read(key, texts, check))
        return;
    into.clear();
    for (const std::string& text : texts)
        into.push_back(id_of(text).value_or(Id{}));
}

void read_access(config_section& in, settings::access_settings& access)
{
    std::string mode;
    if (in.read("mode", mode, check_mode))
        access.mode = static_cast<u32>(std::stoul(mode, nullptr, 8));
    in.read("group", access.group, [](const std::string& text) { return text.empty() ? "" : check_group(text); });
    read_ids(in, "users", access.users, check_user, user_id);
    read_ids(in, "groups", access.groups, check_group, group_id);
}

void read_log(config_section& in, settings::log_settings& log)
{
    static const std::vector<std::string> levels = {"error", "warning", "info", "debug"};
    in.read("file", log.file, [](const std::string& text) {
        return text.empty() || text.starts_with('/') ? "" : "must be a path from / on, or empty";
    });
    std::string most;
    const auto check = [](const std::string& text) {
        return std::ranges::find(levels, text) != levels.end()
                   ? ""
                   : "must be \"error\", \"warning\", \"info\" or \"debug\"" + suggestion(text, levels);
    };
    if (in.read("level", most, check))
        log.most = static_cast<level>(std::ranges::find(levels, most) - levels.begin());
}

void read_limits(config_section& in, settings::limit_settings& limits)
{
    in.read("clients", limits.clients, 1, 20'000);
    in.read("paths_per_client", limits.paths_per_client, 1, 65'000);
    in.read("queued_mib_per_client", limits.queued_mib_per_client, 1, 1024);
    in.read("waiting_attaches", limits.waiting_attaches, 0, 50'000);
    in.read("programs", limits.programs, 0, 10'000);
}

void read_times(config_section& in, settings::time_settings& times)
{
    in.read("attach_seconds", times.attach_seconds, 1, 86'400);
    in.read("stop_seconds", times.stop_seconds, 0, 3600);
}

template <typename Record>
bool is_defined(const std::vector<Record>& all, const std::string& key, std::string Record::*field)
{
    return std::ranges::find(all, key, field) != all.end();
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

void read_program(config_section& in, std::vector<program_settings>& programs)
{
    program_settings program;
    in.require("tp_name");
    in.require("command");
    if (in.read("tp_name", program.tp_name, check_tp_name) &&
        is_defined(programs, program.tp_name, &program_settings::tp_name))
        in.report("tp_name", "another program has this name");
    if (in.read("command", program.command) && (program.command.empty() || program.command[0].substr(0, 1) != "/"))
        in.report("command", "must begin with the program's path, from / on");
    if (in.read("user", program.user, [](const std::string& text) { return text.empty() ? "" : check_user(text); }) &&
        !program.user.empty() && geteuid() != 0 && user_id(program.user) != geteuid())
        in.report("user", "only a node of root's starts programs as another user");
    in.read("environment", program.environment);
    programs.push_back(program);
}

void read_all(config_section& in, settings& into)
{
    in.read("name", into.name, [](const std::string& text) { return text.empty() ? "must not be empty" : ""; });
    in.read("network", into.network, check_short_name);
    in.read("socket", into.socket, [](const std::string& text) {
        return text.starts_with('/') && text.size() < 108 ? "" : "must be a path from / on, of less than 108 bytes";
    });
    in.in_table("access", [&](config_section& table) { read_access(table, into.access); });
    in.in_table("log", [&](config_section& table) { read_log(table, into.log); });
    in.in_table("limits", [&](config_section& table) { read_limits(table, into.limits); });
    in.in_table("times", [&](config_section& table) { read_times(table, into.times); });
    in.in_tables("lu", [&](config_section& table) { read_lu(table, into.network, into.lus); });
    in.in_tables("partner_lu", [&](config_section& table) { read_partner_lu(table, into.lus, into.partner_lus); });
    in.in_tables("program", [&](config_section& table) { read_program(table, into.programs); });
}

std::string printed(const std::string& file, const config_problem& problem)
{
    std::string line = problem.line;
    std::ranges::replace(line, '\t', ' ');
    const u32 room = static_cast<u32>(line.size()) + 1 > problem.column ? static_cast<u32>(line.size()) + 1 - problem.column : 1;
    return file + ":" + std::to_string(problem.number) + ":" + std::to_string(problem.column) + ": " + problem.text +
           "\n    " + line + "\n    " + std::string(problem.column - 1, ' ') + "^" +
           std::string(std::max(std::min(problem.width, room), 1u) - 1, '~') + "\n";
}

}  // namespace

settings read_config(const std::string& file, settings otherwise)
{
    std::ifstream in(file, std::ios::binary);
    if (!in)
        throw config_error(file + ": " + error_text(errno) + "\n");
    settings read = std::move(otherwise);
    std::vector<config_problem> problems;
    try {
        const toml::value root = toml::parse(in, file);
        problems = read_root(root, [&](config_section& section) { read_all(section, read); });
    } catch (const toml::exception& error) {
        problems = {problem_of(error)};
    } catch (const std::exception& error) {
        throw config_error(file + ": " + error.what() + "\n");
    }
    std::string texts;
    for (const config_problem& problem : problems)
        texts += printed(file, problem);
    if (!texts.empty())
        throw config_error(texts);
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
    to.most_attaches = from.limits.waiting_attaches;
    return to;
}

}  // namespace tessaly::daemon
