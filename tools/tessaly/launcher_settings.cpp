#include "tools/tessaly/launcher_settings.h"

#include "service/config_file.h"
#include "tools/tessaly/names.h"

#include <algorithm>

namespace tessaly::tool {

namespace {

using service::config_section;

constexpr std::size_t LONGEST_PARTNER = sizeof(appc_register_tp::fqplu_name);

bool is_class_8(std::string_view text)
{
    return text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789$#@") == text.npos;
}

// As the library wants it: NET.LU, or NET.LU* or LU* where what stands before the * may be missing.
std::string check_partner(const std::string& text)
{
    const std::size_t period = text.find('.');
    const bool has_star = text.ends_with('*');
    const std::string network = period == text.npos ? "" : text.substr(0, period);
    std::string lu = period == text.npos ? text : text.substr(period + 1);
    if (has_star)
        lu.pop_back();
    const bool right = is_class_8(network) && is_class_8(lu) && text.size() <= LONGEST_PARTNER &&
                       (has_star || service::check_full_name(text).empty());
    return right || text.empty()
               ? ""
               : "must be NET.LU, or the beginning of such a name and a *, in capital letters, digits, $ # @";
}

std::string check_lu(const std::string& text)
{
    return text.empty() || is_name(text, sizeof(appc_register_tp::lu_alias))
               ? ""
               : "must be an LU alias of 1 to 8 characters, or empty";
}

void read_type(config_section& in, appc_u8& type)
{
    static const std::vector<std::string> types = {"queued", "manual", "nonqueued"};
    static_assert(APPC_TP_QUEUED == 1 && APPC_TP_QUEUED_MANUAL == 2 && APPC_TP_NONQUEUED == 3);
    std::string text;
    const auto check = [](const std::string& word) {
        return std::ranges::find(types, word) != types.end()
                   ? ""
                   : "must be \"queued\", \"manual\" or \"nonqueued\"" + service::suggestion(word, types);
    };
    if (in.read("type", text, check))
        type = static_cast<appc_u8>(std::ranges::find(types, text) - types.begin() + 1);
}

void read_tp(config_section& in, std::vector<launched_tp>& tps)
{
    launched_tp tp;
    service::read_program(in, tp.program);
    in.read("lu", tp.lu, check_lu);
    in.read("partner", tp.partner, check_partner);
    read_type(in, tp.type);
    in.read("most", tp.most, 1, 10'000);
    if (std::ranges::any_of(tps, [&](const launched_tp& other) { return other.is_same_tp(tp); }))
        in.report("tp_name", "another [[tp]] has the same name, LU and partner");
    tps.push_back(tp);
}

}  // namespace

launcher_settings read_launcher_settings(const std::string& file)
{
    launcher_settings read;
    service::read_config_file(
        file,
        [&](config_section& in) {
            in.read("socket", read.socket,
                    [](const std::string& text) { return text.empty() ? "" : service::check_socket(text); });
            in.in_table("log", [&](config_section& table) { service::read_log(table, read.log); });
            in.in_table("limits",
                        [&](config_section& table) { table.read("programs", read.most_programs, 1, 10'000); });
            in.in_table("times",
                        [&](config_section& table) { table.read("retry_seconds", read.retry_seconds, 1, 3600); });
            in.in_tables("tp", [&](config_section& table) { read_tp(table, read.tps); });
        },
        service::writers::owner);
    return read;
}

}  // namespace tessaly::tool
