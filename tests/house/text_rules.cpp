// Rules on the text itself: how long, how wide, and opcodes by their names.
#include "rules.h"

#include <algorithm>
#include <regex>
#include <set>

namespace house {

namespace {

constexpr std::size_t max_lines = 450;
constexpr std::size_t max_columns = 130;

// A struct per verb; who writes a program looks for all of them in one place.
constexpr std::string_view may_be_long = "include/tessaly/appc.h";

std::size_t columns(std::string_view utf8)
{
    return static_cast<std::size_t>(std::ranges::count_if(utf8, [](char c) { return (c & 0xC0) != 0x80; }));
}

struct number_in_code {
    const source_file* file;
    std::size_t line;
    unsigned long value;
};

// The numbers that a pattern finds, its first group.
std::vector<number_in_code> numbers_in(const source_tree& tree, const std::regex& pattern)
{
    std::vector<number_in_code> numbers;
    std::smatch match;
    for (const source_file& file : tree.files)
        for (std::size_t line = 0; line < file.code.size(); ++line)
            if (file.code[line].find("0x") != std::string::npos && std::regex_search(file.code[line], match, pattern))
                numbers.push_back({&file, line, std::stoul(match[1], nullptr, 16)});
    return numbers;
}

}  // namespace

findings check_shape(const source_tree& tree)
{
    findings found;
    for (const source_file& file : tree.files) {
        if (file.text.size() > max_lines && file.path != may_be_long)
            found.push_back(finding(file, max_lines, "a file has at most 450 lines"));
        for (std::size_t line = 0; line < file.text.size(); ++line) {
            if (columns(file.text[line]) > max_columns)
                found.push_back(finding(file, line, "a line has at most 130 columns"));
            if (file.text[line].find('\t') != std::string::npos)
                found.push_back(finding(file, line, "sources are indented with blanks, not tabs"));
        }
    }
    return found;
}

findings check_opcode_literals(const source_tree& tree)
{
    // Only where the line itself speaks of an opcode; offsets and return codes share the same numbers.
    static const std::regex definition(R"(^\s*#\s*define\s+\w+_OP_\w+\s+(0x[0-9a-fA-F]+))");
    static const std::regex compared(R"((?:\.opcode\s*=|opcode\w*\s*[=!]=)\s*(0x[0-9a-f]+))", std::regex::icase);
    std::set<unsigned long> named;
    for (const number_in_code& each : numbers_in(tree, definition))
        if (is_within(each.file->path, "include/tessaly"))
            named.insert(each.value);
    findings found;
    for (const number_in_code& each : numbers_in(tree, compared))
        if (named.contains(each.value) && !is_within(each.file->path, "include") && !is_within(each.file->path, "tests"))
            found.push_back(finding(*each.file, each.line, "an opcode is called by its name"));
    return found;
}

}  // namespace house
