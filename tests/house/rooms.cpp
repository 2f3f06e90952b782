// The house plan: which room may include which.
#include "rules.h"

#include <algorithm>
#include <regex>
#include <set>

namespace house {

namespace {

struct room {
    std::string place;
    std::string sees;  // besides itself
};

const std::string ground = "include runtime common wire verbs ";
const std::string below_v6 = ground + "names vsvig ";

// clang-format off
// From the ground up. The innermost place that a file lies in is its room.
const room rooms[] = {
    {"include",           ""},
    {"runtime",           "include"},
    {"common",            "include runtime"},
    {"wire",              "include runtime common"},
    {"verbs",             "include runtime common wire"},
    {"names",             ground},
    {"vsvig",             ground + "names"},
    {"vtpsrv",            below_v6},
    {"v6/records",        below_v6},
    {"v6/vav3264",        below_v6 + "v6/records"},
    {"v6/vav",            below_v6 + "v6/records v6/vav3264 v6/vavsub"},
    {"v6/vavsub",         below_v6 + "v6/records v6/vav3264 v6/vav"},
    // The one door through which the verb library reaches the TP server.
    {"v6/vav/entry",      below_v6 + "v6/records v6/vav3264 v6/vav v6/vavsub vtpsrv"},
    {"service",           "include common"},
    {"localnode/engine",  ground},
    {"localnode/runtime", ground + "localnode/engine"},
    {"localnode/daemon",  ground + "localnode/engine localnode/runtime service"},
    {"tools",             "include common/edit_distance verbs service localnode/daemon/status_protocol"},
    {"tools/docs",        "localnode/engine"},
    {"examples",          "include"},
    // These look into every room, and no room of the product looks into them.
    {"tests", "*"}, {"bench", "*"}, {"fuzz", "*"},
};
// clang-format on

const room* room_of(std::string_view path)
{
    const room* innermost = nullptr;
    for (const room& candidate : rooms)
        if (is_within(path, candidate.place) && (!innermost || candidate.place.size() > innermost->place.size()))
            innermost = &candidate;
    return innermost;
}

bool may_include(const room& from, const std::string& target)
{
    if (from.sees == "*" || is_within(target, from.place))
        return true;
    const std::regex word("\\S+");
    return std::any_of(std::sregex_iterator(from.sees.begin(), from.sees.end(), word), std::sregex_iterator(),
                       [&](const std::smatch& place) { return is_within(target, place.str()); });
}

// The file of the tree that the compiler will find, as a path from the root; empty for a header of the system.
std::string resolve(const source_tree& tree, const source_file& from, const std::string& name, bool quoted)
{
    const auto beside = (std::filesystem::path(from.path).parent_path() / name).lexically_normal().generic_string();
    for (const std::string& candidate : {quoted ? beside : "", name, "include/" + name})
        if (tree.has(candidate))
            return candidate;
    return "";
}

}  // namespace

findings check_include_order(const source_tree& tree)
{
    const std::regex include(R"re(#include\s*(["<])([^">]+)[">])re");
    findings found;
    for (const source_file& file : tree.files) {
        const room* from = room_of(file.path);
        for (std::size_t line = 0; line < file.code.size(); ++line) {
            std::smatch target;
            if (!is_include(file.code[line]) || !std::regex_search(file.code[line], target, include))
                continue;
            const std::string path = resolve(tree, file, target[2], target[1] == "\"");
            if (path.empty() && target[1] == "\"")
                found.push_back(finding(file, line, target[2].str() + " is no file of the tree; <> is for the system's"));
            if (!path.empty() && from && !may_include(*from, path))
                found.push_back(finding(file, line, from->place + " may not include " + path));
        }
    }
    return found;
}

findings check_rooms(const source_tree& tree)
{
    findings found;
    std::set<std::string> undescribed;
    for (const source_file& file : tree.files) {
        // A README.md in the room itself, or one in the folder of it that the file lies in.
        const std::size_t first = file.path.find('/');
        const std::string place = file.path.substr(0, first);
        const std::string folder = file.path.substr(0, file.path.find('/', std::min(first, file.path.size() - 1) + 1));
        const auto has_readme = [&](const std::string& in) { return std::ranges::count(tree.readmes, in + "/README.md") != 0; };
        if (!room_of(file.path))
            found.push_back(finding(file, 0, "lies in no room of the house plan"));
        if (!has_readme(place) && !has_readme(folder) && undescribed.insert(place).second)
            found.push_back(finding(file, 0, "its room has no README.md"));
    }
    return found;
}

}  // namespace house
