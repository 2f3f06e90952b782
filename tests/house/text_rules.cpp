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
    return static_cast<std::size_t>(std::count_if(utf8.begin(), utf8.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

// The values that the public headers name as opcodes.
std::set<unsigned long> named_opcodes(const source_tree& tree)
{
    static const std::regex definition(R"(^\s*#\s*define\s+\w+_OP_\w+\s+(0[xX][0-9a-fA-F]+))");
    std::set<unsigned long> opcodes;
    for (const source_file& file : tree.files)
        for (const source_line& line : file.lines)
            if (std::smatch match;
                is_within(file.path, "include/tessaly") && std::regex_search(line.code, match, definition))
                opcodes.insert(std::stoul(match[1], nullptr, 16));
    return opcodes;
}

}  // namespace

findings check_shape(const source_tree& tree)
{
    findings found;
    for (const source_file& file : tree.files) {
        if (file.lines.size() > max_lines && file.path != may_be_long)
            found.push_back(
                {file.path, file.lines.size(), "a file has at most " + std::to_string(max_lines) + " lines"});
        for (std::size_t line = 0; line < file.lines.size(); ++line) {
            const std::string& text = file.lines[line].text;
            if (columns(text) > max_columns)
                found.push_back(
                    {file.path, line + 1, "a line has at most " + std::to_string(max_columns) + " columns"});
            if (text.find('\t') != std::string::npos)
                found.push_back({file.path, line + 1, "sources are indented with blanks, not tabs"});
        }
    }
    return found;
}

findings check_opcode_literals(const source_tree& tree)
{
    // Only where the line itself speaks of an opcode; offsets and return codes share the same numbers.
    static const std::regex compared(R"((?:\.opcode\s*=|opcode\w*\s*[=!]=)\s*(0[xX][0-9a-fA-F]+))", std::regex::icase);
    const std::set<unsigned long> opcodes = named_opcodes(tree);

    findings found;
    for (const source_file& file : tree.files) {
        if (is_within(file.path, "include") || is_within(file.path, "tests"))
            continue;
        for (std::size_t line = 0; line < file.lines.size(); ++line) {
            std::smatch match;
            if (std::regex_search(file.lines[line].code, match, compared) &&
                opcodes.contains(std::stoul(match[1], nullptr, 16)))
                found.push_back({file.path, line + 1, match[1].str() + ": an opcode is called by its name"});
        }
    }
    return found;
}

}  // namespace house
