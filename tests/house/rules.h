// The house rules. Each takes the sources of the project as text and returns what breaks it, as "path:line: rule"; an empty
// answer is a tidy house.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace house {

struct source_file {
    std::string path;               // from the root, with slashes
    std::vector<std::string> text;  // lines as written
    std::vector<std::string> code;  // the same lines, comments gone, literals emptied; an #include keeps its target
};

struct source_tree {
    std::vector<source_file> files;
    std::vector<std::string> readmes;  // paths of all README.md

    bool has(std::string_view path) const;
};

source_file split_source(const std::string& path, const std::string& content);
source_tree read_source_tree(const std::filesystem::path& root);

bool is_include(std::string_view code);
// Whether path is the file or folder named, lies in it, or is that name with an extension.
bool is_within(std::string_view path, std::string_view place);

using findings = std::vector<std::string>;
std::string finding(const source_file& file, std::size_t line, const std::string& rule);  // line: from 0

findings check_include_order(const source_tree& tree);    // rooms.cpp
findings check_rooms(const source_tree& tree);            // every file in a room, every room with a README.md
findings check_banned_words(const source_tree& tree);     // banned_words.cpp: what the verb library never does
findings check_shape(const source_tree& tree);            // text_rules.cpp: length of files and lines, tabs
findings check_opcode_literals(const source_tree& tree);  // opcodes have names, given in include/tessaly

}  // namespace house
