// What return codes mean and what to do about them. Names and values are those of verbs/codes.h, the texts of code_texts.cpp.
#pragma once

#include "verbs/codes.h"

#include <string>
#include <vector>

namespace tessaly::tool {

struct code_text {
    u32 value;
    const char* meaning;
    const char* next_step;
};

enum class code_kind { primary, secondary };

// A code with its name and its text, which are never null.
struct explained_code {
    code_kind kind;
    u32 value;
    const char* name;
    const char* meaning;
    const char* next_step;
};

// All codes, primary ones first, in the order of appc.h.
const std::vector<explained_code>& all_codes();

// Those with this value: several, where a secondary code has two names; none for a value that is no code.
std::vector<explained_code> codes_of(code_kind kind, u32 value);

// "ALLOCATION_ERROR (0x0300)", "BAD_CONV_ID or NO_ALLOCATE_PENDING (0x02000000)", "0x1234".
std::string name_of(code_kind kind, u32 value);

}  // namespace tessaly::tool
