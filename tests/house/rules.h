// The house rules. Each takes the whole tree and returns what breaks it; an empty answer is a tidy house.
#pragma once

#include "source_tree.h"

namespace house {

struct finding {
    std::string path;
    std::size_t line;  // 0: the file or folder as a whole
    std::string rule;
};
using findings = std::vector<finding>;

findings check_include_order(const source_tree& tree);  // rooms.cpp
findings check_rooms(const source_tree& tree);          // every file in a room, every room with a README.md

findings check_banned_words(const source_tree& tree);     // banned_words.cpp: what the verb library never does
findings check_shape(const source_tree& tree);            // text_rules.cpp: length of files and lines, tabs
findings check_opcode_literals(const source_tree& tree);  // opcodes have names, given in include/tessaly

// Whether path is the file or folder named, lies in it, or is that name with an extension.
bool is_within(std::string_view path, std::string_view place);

}  // namespace house
