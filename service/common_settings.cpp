#include "service/common_settings.h"

#include "common/ebcdic.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>

namespace tessaly::service {

namespace {

constexpr std::size_t SHORT_NAME = 8;
constexpr std::size_t TP_NAME = 64;
constexpr std::size_t SOCKET_PATH = 108;

// Characters that turn into EBCDIC and back.
bool is_name(std::string_view text, std::size_t most)
{
    return !text.empty() && text.size() <= most &&
           std::ranges::all_of(text, [](char c) { return c != ' ' && AE_table[static_cast<u8>(c)] != 0; });
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

template <typename Id>
void read_ids(config_section& in, const std::string& key, std::vector<Id>& into,
              const config_section::text_check& check, std::optional<Id> (*id_of)(const std::string&))
{
    std::vector<std::string> texts;
    if (!in.read(key, texts, check))
        return;
    into.clear();
    for (const std::string& text : texts)
        into.push_back(id_of(text).value_or(Id{}));
}

}  // namespace

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

std::string check_group(const std::string& text)
{
    return group_id(text) ? "" : "there is no group " + text;
}

std::string check_socket(const std::string& text)
{
    return text.starts_with('/') && text.size() < SOCKET_PATH ? "" : "must be a path from / on, of less than 108 bytes";
}

void read_log(config_section& in, log_settings& log)
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

void read_users(config_section& in, const std::string& key, std::vector<uid_t>& into)
{
    read_ids(in, key, into, check_user, user_id);
}

void read_groups(config_section& in, const std::string& key, std::vector<gid_t>& into)
{
    read_ids(in, key, into, check_group, group_id);
}

void read_program(config_section& in, program_settings& program)
{
    in.require("tp_name");
    in.require("command");
    in.read("tp_name", program.tp_name, check_tp_name);
    if (in.read("command", program.command) && (program.command.empty() || !program.command[0].starts_with('/')))
        in.report("command", "must begin with the program's path, from / on");
    if (in.read("user", program.user, [](const std::string& text) { return text.empty() ? "" : check_user(text); }) &&
        !program.user.empty() && geteuid() != 0 && user_id(program.user) != geteuid())
        in.report("user", "only root starts programs as another user");
    in.read("environment", program.environment);
}

}  // namespace tessaly::service
