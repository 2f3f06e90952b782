// The C and C++ sources of the project as text, for the house rules. Reads files, knows no rule.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace house {

struct source_line {
    std::string text;  // as written
    std::string code;  // comments gone, literals emptied; an #include keeps its target
};

struct source_file {
    std::string path;  // from the root, with slashes
    std::vector<source_line> lines;
};

struct source_tree {
    std::vector<source_file> files;    // sorted by path
    std::vector<std::string> readmes;  // paths of all README.md

    bool has(std::string_view path) const;
};

// Whether a line of code is an #include.
bool is_include(std::string_view code);

source_file split_source(std::string_view path, std::string_view content);
source_tree read_source_tree(const std::filesystem::path& root);

}  // namespace house
