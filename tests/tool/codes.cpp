// The texts of the return codes, against the headers that define them.
#include "tools/tessaly/code_texts.h"

#include "tests/tool/support.h"

#include <map>
#include <regex>

namespace tessaly::tool {

using codes_by_name = std::map<std::string, u32>;

// The macros of a header between two of its headings.
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

TEST(codes, of_the_headers_are_explained_each_by_its_own_name_and_value)
{
    const std::string header = content(TESSALY_HEADERS "/appc.h"), tp_server = content(TESSALY_HEADERS "/tp_server.h");
    codes_by_name defined[] = {macros_between(header, "- Primary return codes", "- Secondary return codes", "APPC_"),
                               macros_between(header, "- Secondary return codes", "- Values of fields", "APPC_SEC_")};
    defined[0].merge(macros_between(tp_server, "- Return codes", "With APPC_PARAMETER_CHECK", "APPC_"));
    defined[1].merge(macros_between(tp_server, "With APPC_PARAMETER_CHECK", "- Values of fields", "APPC_SEC_"));
    codes_by_name explained[2];
    for (const explained_code& code : all_codes())
        explained[code.kind == code_kind::primary ? 0 : 1][code.name] = code.value;
    EXPECT_EQ(explained[0], defined[0]);
    EXPECT_EQ(explained[1], defined[1]);
    EXPECT_GT(explained[0].size(), 30u);
    EXPECT_TRUE(explained[0].contains("TPS_SERVER_BUSY") && explained[1].contains("ATTACH_GONE"));
}

}  // namespace tessaly::tool
