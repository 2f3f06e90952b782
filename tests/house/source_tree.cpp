#include "source_tree.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <utility>

namespace house {

namespace {

namespace fs = std::filesystem;

bool is_identifier(char c)
{
    return c == '_' || (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Takes a file's text apart, byte by byte; raw strings and comments may span lines.
class scanner {
public:
    explicit scanner(std::string_view content) : rest_(content) {}

    std::vector<source_line> lines()
    {
        while (!rest_.empty()) {
            if (rest_.front() == '\n')
                end_line();
            else
                step();
        }
        if (!line_.text.empty())
            end_line();
        return std::move(lines_);
    }

private:
    void step()
    {
        if (rest_.starts_with("//"))
            skip(std::min(rest_.find('\n'), rest_.size()));
        else if (rest_.starts_with("/*"))
            skip(end_of("*/", 2));
        else if (rest_.starts_with("R\"") && !follows_identifier())
            skip_raw_string();
        else if (rest_.front() == '"' && !is_include(line_.code))
            skip_literal('"');
        else if (rest_.front() == '\'' && !follows_identifier())  // 1'000 is a number
            skip_literal('\'');
        else
            take(true);
    }

    bool follows_identifier() const { return !line_.code.empty() && is_identifier(line_.code.back()); }

    void take(bool is_code)
    {
        if (is_code)
            line_.code += rest_.front();
        line_.text += rest_.front();
        rest_.remove_prefix(1);
    }

    void end_line()
    {
        rest_.remove_prefix(rest_.empty() ? 0 : 1);
        lines_.push_back(std::move(line_));
        line_ = {};
    }

    void skip(std::size_t bytes)
    {
        for (; bytes > 0 && !rest_.empty(); --bytes) {
            if (rest_.front() == '\n')
                end_line();
            else
                take(false);
        }
    }

    std::size_t end_of(std::string_view mark, std::size_t from) const
    {
        const std::size_t at = rest_.find(mark, from);
        return at == std::string_view::npos ? rest_.size() : at + mark.size();
    }

    void skip_raw_string()
    {
        const std::size_t open = rest_.find('(');
        if (open == std::string_view::npos)
            return take(true);
        skip(end_of(")" + std::string(rest_.substr(2, open - 2)) + "\"", open));
        line_.code += "\"\"";
    }

    void skip_literal(char quote)
    {
        take(true);
        while (!rest_.empty() && rest_.front() != quote && rest_.front() != '\n')
            skip(rest_.front() == '\\' ? 2 : 1);
        if (!rest_.empty() && rest_.front() == quote)
            take(true);
    }

    std::string_view rest_;
    source_line line_;
    std::vector<source_line> lines_;
};

bool holds_sources(const fs::path& folder)
{
    const std::string name = folder.filename().string();
    return !name.starts_with(".") && !name.starts_with("build") && name != "out";
}

bool is_source(const fs::path& file)
{
    const std::string extension = file.extension().string();
    return extension == ".h" || extension == ".hpp" || extension == ".c" || extension == ".cpp";
}

std::string read_file(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace

bool source_tree::has(std::string_view path) const
{
    return std::any_of(files.begin(), files.end(), [&](const source_file& file) { return file.path == path; });
}

bool is_include(std::string_view code)
{
    code.remove_prefix(std::min(code.find_first_not_of(" \t"), code.size()));
    return code.starts_with("#include");
}

source_file split_source(std::string_view path, std::string_view content)
{
    return {std::string(path), scanner(content).lines()};
}

source_tree read_source_tree(const fs::path& root)
{
    source_tree tree;
    for (auto entry = fs::recursive_directory_iterator(root); entry != fs::recursive_directory_iterator(); ++entry) {
        const std::string path = entry->path().lexically_relative(root).generic_string();
        if (entry->is_directory() && !holds_sources(entry->path()))
            entry.disable_recursion_pending();
        else if (entry->path().filename() == "README.md")
            tree.readmes.push_back(path);
        else if (entry->is_regular_file() && is_source(entry->path()))
            tree.files.push_back(split_source(path, read_file(entry->path())));
    }
    std::sort(tree.files.begin(), tree.files.end(), [](auto& a, auto& b) { return a.path < b.path; });
    return tree;
}

}  // namespace house
