// The house plan: which room may include which.
#include "rules.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>
#include <set>

namespace house {

namespace {

using place_list = std::array<std::string_view, 12>;

struct room {
    std::string_view place;
    place_list sees;  // besides itself
};

// clang-format off
// From the ground up. The innermost place that a file lies in is its room.
constexpr room rooms[] = {
    {"include",           {}},
    {"runtime",           {"include"}},
    {"common",            {"include", "runtime"}},
    {"wire",              {"include", "runtime", "common"}},
    {"verbs",             {"include", "runtime", "common", "wire"}},
    {"names",             {"include", "runtime", "common", "wire", "verbs"}},
    {"vsvig",             {"include", "runtime", "common", "wire", "verbs", "names"}},
    {"vtpsrv",            {"include", "runtime", "common", "wire", "verbs", "names", "vsvig"}},
    {"v6/records",        {"include", "runtime", "common", "wire", "verbs", "names", "vsvig"}},
    {"v6/vav3264",        {"include", "runtime", "common", "wire", "verbs", "names", "vsvig", "v6/records"}},
    {"v6/vav",            {"include", "runtime", "common", "wire", "verbs", "names", "vsvig", "v6/records", "v6/vav3264",
                           "v6/vavsub"}},
    {"v6/vavsub",         {"include", "runtime", "common", "wire", "verbs", "names", "vsvig", "v6/records", "v6/vav3264",
                           "v6/vav"}},
    // The one door through which the verb library reaches the TP server.
    {"v6/vav/entry",      {"include", "runtime", "common", "wire", "verbs", "names", "vsvig", "v6/records", "v6/vav3264",
                           "v6/vav", "v6/vavsub", "vtpsrv"}},
    {"localnode/engine",  {"include", "runtime", "common", "wire", "verbs"}},
    {"localnode/runtime", {"include", "runtime", "common", "wire", "verbs", "localnode/engine"}},
    {"localnode/daemon",  {"include", "runtime", "common", "wire", "verbs", "localnode/engine", "localnode/runtime"}},
    {"tools",             {"include", "verbs", "localnode/daemon/status_protocol"}},
    {"examples",          {"include"}},
};
// clang-format on

// These look into every room, and no room of the product looks into them.
constexpr std::string_view free_rooms[] = {"tests", "bench", "fuzz"};

const room* room_of(std::string_view path)
{
    const room* innermost = nullptr;
    for (const room& candidate : rooms)
        if (is_within(path, candidate.place) && (!innermost || candidate.place.size() > innermost->place.size()))
            innermost = &candidate;
    return innermost;
}

bool is_free(std::string_view path)
{
    return std::any_of(std::begin(free_rooms), std::end(free_rooms),
                       [&](auto place) { return is_within(path, place); });
}

struct include_target {
    std::string name;
    bool quoted;
};

std::optional<include_target> include_on(std::string_view code)
{
    if (!is_include(code))
        return {};
    const std::size_t open = code.find_first_of("\"<");
    const std::size_t close = code.find_first_of("\">", open + 1);
    if (open == std::string_view::npos || close == std::string_view::npos)
        return {};
    return include_target{std::string(code.substr(open + 1, close - open - 1)), code[open] == '"'};
}

// The file of the tree that the compiler will find, as a path from the root; none for a header of the system.
std::optional<std::string> resolve(const source_tree& tree, const source_file& from, const include_target& target)
{
    const auto folder = std::filesystem::path(from.path).parent_path();
    const std::string candidates[] = {target.quoted ? (folder / target.name).lexically_normal().generic_string() : "",
                                      target.name, "include/" + target.name};
    for (const std::string& candidate : candidates)
        if (tree.has(candidate))
            return candidate;
    return {};
}

bool may_include(const room& from, std::string_view target)
{
    const auto sees = [&](std::string_view place) { return !place.empty() && is_within(target, place); };
    return sees(from.place) || std::any_of(from.sees.begin(), from.sees.end(), sees);
}

std::string_view folder_of(std::string_view path, std::size_t from)
{
    return path.substr(0, path.find('/', from));
}

// A README.md in the room itself, or one in the folder of it that the file lies in.
bool is_described(const source_tree& tree, std::string_view path)
{
    const std::string_view place = folder_of(path, 0);
    const auto describes = [&](const std::string& readme) {
        const std::string_view folder = std::string_view(readme).substr(0, readme.rfind('/'));
        return folder == place || folder == folder_of(path, place.size() + 1);
    };
    return std::any_of(tree.readmes.begin(), tree.readmes.end(), describes);
}

}  // namespace

bool is_within(std::string_view path, std::string_view place)
{
    return path.starts_with(place) &&
           (path.size() == place.size() || path[place.size()] == '/' || path[place.size()] == '.');
}

findings check_include_order(const source_tree& tree)
{
    findings found;
    for (const source_file& file : tree.files) {
        const room* from = room_of(file.path);
        for (std::size_t line = 0; line < file.lines.size(); ++line) {
            const auto target = include_on(file.lines[line].code);
            if (!target)
                continue;
            const auto path = resolve(tree, file, *target);
            if (!path && target->quoted)
                found.push_back(
                    {file.path, line + 1, "\"" + target->name + "\" is no file of the tree; <> is for the system's"});
            if (path && from && !may_include(*from, *path))
                found.push_back({file.path, line + 1, std::string(from->place) + " may not include " + *path});
        }
    }
    return found;
}

findings check_rooms(const source_tree& tree)
{
    findings found;
    std::set<std::string_view> undescribed;
    for (const source_file& file : tree.files) {
        if (!room_of(file.path) && !is_free(file.path))
            found.push_back({file.path, 0, "lies in no room of the house plan"});
        if (!is_described(tree, file.path) && undescribed.insert(folder_of(file.path, 0)).second)
            found.push_back({file.path, 0, "its room has no README.md"});
    }
    return found;
}

}  // namespace house
