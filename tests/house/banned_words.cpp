// What the verb library never does: allocate by itself, throw, end the process, format without a bound.
#include "rules.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace house {

namespace {

constexpr std::string_view library_rooms[] = {"common", "wire", "verbs", "names", "vsvig", "vtpsrv", "v6"};

enum class word_kind {
    call,     // banned when a ( follows
    keyword,  // banned wherever it stands
    header,   // banned between the brackets of an #include
};

struct banned_word {
    word_kind kind;
    std::string_view word;
    std::string_view instead;
};

constexpr std::string_view node_memory = "memory comes from the runtime, records from their room in v6/records";
constexpr std::string_view no_exceptions = "errors are values";
constexpr std::string_view no_end = "the library never ends a process; v0_assert reports and the code goes on safely";
constexpr std::string_view no_thread = "the library has no thread of its own";
constexpr std::string_view bounded = "use a bounded operation";
constexpr std::string_view fixed = "use a fixed array or list.h";

// clang-format off
constexpr banned_word banned[] = {
    {word_kind::call, "malloc", node_memory},       {word_kind::call, "calloc", node_memory},
    {word_kind::call, "realloc", node_memory},      {word_kind::call, "free", node_memory},
    {word_kind::call, "strdup", node_memory},       {word_kind::keyword, "new", node_memory},
    {word_kind::keyword, "delete", node_memory},    {word_kind::keyword, "throw", no_exceptions},
    {word_kind::keyword, "try", no_exceptions},     {word_kind::keyword, "catch", no_exceptions},
    {word_kind::keyword, "dynamic_cast", "there is no RTTI"},
    {word_kind::keyword, "typeid", "there is no RTTI"},
    {word_kind::keyword, "goto", "return early; guards undo"},
    {word_kind::keyword, "__FILE__", "the path that v0_assert gets is a literal"},
    {word_kind::call, "exit", no_end},              {word_kind::call, "_exit", no_end},
    {word_kind::call, "abort", no_end},             {word_kind::call, "assert", no_end},
    {word_kind::call, "pthread_create", no_thread}, {word_kind::call, "sprintf", bounded},
    {word_kind::call, "vsprintf", bounded},         {word_kind::call, "strcpy", bounded},
    {word_kind::call, "strcat", bounded},           {word_kind::call, "gets", bounded},
    {word_kind::call, "printf", "output goes through the runtime's logs or the print engine"},
    {word_kind::header, "vector", fixed},           {word_kind::header, "map", fixed},
    {word_kind::header, "unordered_map", fixed},    {word_kind::header, "set", fixed},
    {word_kind::header, "list", fixed},             {word_kind::header, "deque", fixed},
    {word_kind::header, "string", "use std::string_view or a fixed array"},
    {word_kind::header, "iostream", "output goes through the runtime's logs or the print engine"},
    {word_kind::header, "sstream", "use the print engine"},
    {word_kind::header, "functional", "use a function pointer or a template parameter"},
    {word_kind::header, "thread", no_thread},       {word_kind::header, "future", no_thread},
    {word_kind::header, "stdexcept", no_exceptions},
};
// clang-format on

// A name in a line of code, and what stands next to it (blanks left out).
struct name_in_line {
    std::string_view name;
    std::string_view before;
    std::string_view after;
};

bool is_identifier(char c)
{
    return c == '_' || (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

std::vector<name_in_line> names_in(std::string_view code)
{
    std::vector<name_in_line> names;
    for (std::size_t start = 0; start < code.size();) {
        std::size_t end = start;
        while (end < code.size() && is_identifier(code[end]))
            ++end;
        if (end > start) {
            std::string_view before = code.substr(0, start);
            before = before.substr(0, before.find_last_not_of(' ') + 1);
            std::string_view after = code.substr(end);
            after.remove_prefix(std::min(after.find_first_not_of(' '), after.size()));
            names.push_back({code.substr(start, end - start), before, after});
        }
        start = end + 1;
    }
    return names;
}

// std::free and ::free are the C library's; log.free, log->free and node::free are not.
bool is_foreign_member(std::string_view before)
{
    if (before.ends_with(".") || before.ends_with("->"))
        return true;
    if (!before.ends_with("::"))
        return false;
    before.remove_suffix(2);
    return !before.empty() && is_identifier(before.back()) && !before.ends_with("std");
}

bool is_banned_keyword(const name_in_line& found)
{
    if (found.name == "delete")
        return !found.before.ends_with("=");  // a function that must not exist
    if (found.name == "new")                  // placement makes an object in memory of the runtime
        return !found.after.starts_with("(") || found.after.starts_with("(std::nothrow") ||
               found.before.ends_with("operator");
    return true;
}

bool is_broken_by(const banned_word& rule, const name_in_line& found, bool in_include)
{
    if (rule.word != found.name || in_include != (rule.kind == word_kind::header))
        return false;
    switch (rule.kind) {
    case word_kind::call: return found.after.starts_with("(") && !is_foreign_member(found.before);
    case word_kind::keyword: return is_banned_keyword(found);
    case word_kind::header: return found.before.ends_with("<");
    }
    return false;
}

}  // namespace

findings check_banned_words(const source_tree& tree)
{
    findings found;
    for (const source_file& file : tree.files) {
        const auto holds = [&](std::string_view room) { return is_within(file.path, room); };
        if (std::none_of(std::begin(library_rooms), std::end(library_rooms), holds))
            continue;
        for (std::size_t line = 0; line < file.lines.size(); ++line) {
            const std::string_view code = file.lines[line].code;
            const bool in_include = is_include(code);
            for (const name_in_line& name : names_in(code))
                for (const banned_word& rule : banned)
                    if (is_broken_by(rule, name, in_include))
                        found.push_back(
                            {file.path, line + 1, std::string(rule.word) + ": " + std::string(rule.instead)});
        }
    }
    return found;
}

}  // namespace house
