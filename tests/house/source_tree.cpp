#include "rules.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>

namespace house {

namespace {

// How much of text is a comment or a literal that starts there; code: what stands before it.
std::size_t comment_or_literal(std::string_view text, std::string_view code)
{
    const std::string_view line = code.substr(code.rfind('\n') + 1);
    const bool follows_identifier = !line.empty() && (std::isalnum(line.back()) || line.back() == '_');
    if (text.starts_with("//"))
        return std::min(text.find('\n'), text.size());
    if (text.starts_with("/*"))
        return std::min(text.find("*/", 2), text.size() - 2) + 2;
    const bool is_literal = text[0] == '"' ? !is_include(line) : text[0] == '\'' && !follows_identifier;  // 1'000 is a number
    std::size_t end = 1;
    while (end < text.size() && text[end] != text[0] && text[end] != '\n')
        end += text[end] == '\\' ? 2 : 1;
    return is_literal ? std::min(end + 1, text.size()) : 0;
}

std::string code_of(std::string_view text)
{
    std::string code;
    while (!text.empty()) {
        const std::size_t skipped = comment_or_literal(text, code);
        if (skipped == 0)
            code += text.front();
        else if (text.front() != '/')
            code += "\"\"";
        code.append(static_cast<std::size_t>(std::ranges::count(text.substr(0, skipped), '\n')), '\n');
        text.remove_prefix(std::max<std::size_t>(skipped, 1));
    }
    return code;
}

std::vector<std::string> lines_of(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

}  // namespace

bool source_tree::has(std::string_view path) const
{
    return std::ranges::find(files, path, &source_file::path) != files.end();
}

source_file split_source(const std::string& path, const std::string& content)
{
    return {path, lines_of(content), lines_of(code_of(content))};
}

source_tree read_source_tree(const std::filesystem::path& root)
{
    source_tree tree;
    for (auto entry = std::filesystem::recursive_directory_iterator(root); entry != end(entry); ++entry) {
        const std::string path = entry->path().lexically_relative(root).generic_string();
        const std::string name = entry->path().filename().string();
        const std::string extension = entry->path().extension().string();
        if (entry->is_directory() && (name.starts_with(".") || name.starts_with("build") || name == "out"))
            entry.disable_recursion_pending();
        else if (name == "README.md")
            tree.readmes.push_back(path);
        else if (extension == ".h" || extension == ".hpp" || extension == ".c" || extension == ".cpp") {
            std::ifstream in(entry->path(), std::ios::binary);
            tree.files.push_back(split_source(path, {std::istreambuf_iterator<char>(in), {}}));
        }
    }
    return tree;
}

bool is_include(std::string_view code)
{
    const std::size_t start = code.find_first_not_of(" \t");
    return start != std::string_view::npos && code.substr(start).starts_with("#include");
}

bool is_within(std::string_view path, std::string_view place)
{
    return path.starts_with(place) && (path.size() == place.size() || path[place.size()] == '/' || path[place.size()] == '.');
}

std::string finding(const source_file& file, std::size_t line, const std::string& rule)
{
    return file.path + ":" + std::to_string(line + 1) + ": " + rule;
}

}  // namespace house
