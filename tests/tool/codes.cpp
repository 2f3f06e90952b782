// The texts of the return codes, against the header that defines them.
#include "tools/tessaly/code_texts.h"

#include "tests/tool/support.h"

#include <map>
#include <regex>

namespace tessaly::tool {

using codes_by_name = std::map<std::string, u32>;

// The macros of appc.h between two of its headings.
codes_by_name macros_between(const std::string& header, const char* from, const char* to, const char* prefix)
{
    const std::size_t start = header.find(from);
    const std::string part = header.substr(start, header.find(to) - start);
    const std::regex macro(std::string("#define ") + prefix + "(\\w+) (0x[0-9A-F]+)\\b");
    codes_by_name codes;
    for (auto each = std::sregex_iterator(part.begin(), part.end(), macro); each != std::sregex_iterator(); ++each)
        codes[(*each)[1]] = static_cast<u32>(std::stoul((*each)[2], nullptr, 16));
    return codes;
}

TEST(codes, of_appc_h_are_explained_each_by_its_own_name_and_value)
{
    const std::string header = content(TESSALY_APPC_HEADER);
    codes_by_name explained[2];
    for (const explained_code& code : all_codes())
        explained[code.kind == code_kind::primary ? 0 : 1][code.name] = code.value;
    EXPECT_EQ(explained[0], macros_between(header, "- Primary return codes", "- Secondary return codes", "APPC_"));
    EXPECT_EQ(explained[1], macros_between(header, "- Secondary return codes", "- Values of fields", "APPC_SEC_"));
    EXPECT_GT(explained[0].size(), 30u);
}

}  // namespace tessaly::tool
