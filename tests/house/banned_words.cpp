// What the verb library never does: allocate by itself, throw, end the process, format without a bound.
#include "rules.h"

#include <algorithm>
#include <regex>

namespace house {

namespace {

constexpr std::string_view library_rooms[] = {"common", "wire", "verbs", "names", "vsvig", "vtpsrv", "v6"};

struct ban {
    std::vector<std::string> words;
    const char* context;  // @: the word
    const char* instead;
};

// The C library's function of that name: std::free and ::free are, log.free, log->free and node::free are not.
constexpr char call[] = R"((^|[^\w.>:]|\bstd::|(^|\W)::)\s*\b@\s*\()";
constexpr char word[] = R"(\b@\b)";
constexpr char header[] = R"(#include\s*<@>)";

constexpr char memory[] = "memory comes from the runtime, records from their room in v6/records";
constexpr char no_end[] = "the library never ends a process; v0_assert reports and the code goes on safely";
constexpr char output[] = "output goes through the runtime's logs or the print engine";

// clang-format off
const ban banned[] = {
    {{"malloc", "calloc", "realloc", "free", "strdup"},                  call,   memory},
    {{"new"}, R"(\boperator\s+@\b|\b@\b(?!\s*[(>])|\b@\s*\(\s*std::nothrow)",    memory},  // not placement, not <new>
    {{"delete"}, R"((^|[^=\s])\s*\b@\b)",                                        memory},  // not a deleted function
    {{"throw", "try", "catch"},                                          word,   "errors are values"},
    {{"dynamic_cast", "typeid"},                                         word,   "there is no RTTI"},
    {{"goto"},                                                           word,   "return early; guards undo"},
    {{"__FILE__"},                                                       word,   "the path that v0_assert gets is a literal"},
    {{"exit", "_exit", "abort", "assert"},                               call,   no_end},
    {{"pthread_create"},                                                 call,   "the library has no thread of its own"},
    {{"sprintf", "vsprintf", "strcpy", "strcat", "gets"},                call,   "use a bounded operation"},
    {{"printf"},                                                         call,   output},
    {{"vector", "map", "unordered_map", "set", "list", "deque"},         header, "use a fixed array or list.h"},
    {{"string"},                                                         header, "use std::string_view or a fixed array"},
    {{"iostream", "sstream"},                                            header, output},
    {{"functional"},                                                     header, "use a function pointer or a template"},
    {{"thread", "future"},                                               header, "the library has no thread of its own"},
    {{"stdexcept"},                                                      header, "errors are values"},
};
// clang-format on

bool is_broken(const std::string& code, const ban& rule, const std::string& banned_word)
{
    return code.find(banned_word) != std::string::npos &&  // which spares most lines the expression
           std::regex_search(code, std::regex(std::regex_replace(rule.context, std::regex("@"), banned_word)));
}

}  // namespace

findings check_banned_words(const source_tree& tree)
{
    findings found;
    for (const source_file& file : tree.files)
        if (std::ranges::any_of(library_rooms, [&](auto room) { return is_within(file.path, room); }))
            for (std::size_t line = 0; line < file.code.size(); ++line)
                for (const ban& rule : banned)
                    for (const std::string& banned_word : rule.words)
                        if (is_broken(file.code[line], rule, banned_word))
                            found.push_back(finding(file, line, banned_word + ": " + rule.instead));
    return found;
}

}  // namespace house
