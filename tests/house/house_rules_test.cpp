// The house rules, held against this source tree; and what each of them finds, and what it lets pass.
#include "rules.h"

#include <gtest/gtest.h>

using namespace house;

namespace {

TEST(HouseRules, hold_in_this_tree)
{
    const source_tree tree = read_source_tree(TESSALY_SOURCE_ROOT);
    EXPECT_TRUE(tree.has("include/tessaly/appc.h") && tree.has("tests/house/house_rules_test.cpp")) << "it is the project";
    EXPECT_EQ(check_include_order(tree), findings{});
    EXPECT_EQ(check_rooms(tree), findings{});
    EXPECT_EQ(check_banned_words(tree), findings{});
    EXPECT_EQ(check_shape(tree), findings{});
    EXPECT_EQ(check_opcode_literals(tree), findings{});
}

TEST(HouseRules, find_what_breaks_them_and_nothing_else)
{
    // clang-format off
    const struct { findings (*rule)(const source_tree&); const char* path; std::string content; std::size_t wrong; } cases[] = {
        {check_include_order, "common/a.cpp", "#include \"list.h\"\n#include <vector>\n// #include \"v6/vav/entry.h\"", 0},
        {check_include_order, "common/a.cpp", "#include \"no_such.h\"\n#include \"verbs/codes.h\"", 2},
        {check_include_order, "common/a.cpp", " #include \"../verbs/codes.h\"\n#include \"common/list.h\" // \"verbs\"", 1},
        {check_include_order, "v6/vav/entry.cpp", "#include \"vtpsrv/dispatch.h\"", 0},
        {check_include_order, "v6/vav/send.cpp", "#include \"vtpsrv/dispatch.h\"", 1},
        {check_include_order, "tools/status.cpp", "#include <verbs/codes.h>\n#include <common/list.h>", 1},
        {check_rooms, "common/a.cpp", "", 0},
        {check_rooms, "v6/vav/a.cpp", "", 0},
        {check_rooms, "v6/records/a.cpp", "", 1},
        {check_rooms, "attic/a.cpp", "", 2},
        {check_banned_words, "v6/vav/a.cpp", "p = std::malloc (4);\n::free(p);\nif (a) free(p);\n strcpy(p, q);", 4},
        {check_banned_words, "v6/vav/a.cpp", "a.free(p);\na->free(p);\nrecords::free(p);\nvav_free(p);\nbool free = 1;", 0},
        {check_banned_words, "v6/vav/a.cpp", "// malloc(4)\n/* throw\n throw */ log(\"\\\"malloc(4)\");", 0},
        {check_banned_words, "v6/vav/a.cpp", "put('\"'); free(p); put('\"');\nn = 1'000; free(p); n = 1'000;", 2},
        {check_banned_words, "v6/vav/a.cpp", "new tpcb;\nnew (std::nothrow) tpcb;\nvoid* operator new(unsigned);", 3},
        {check_banned_words, "v6/vav/a.cpp", "new (p) tpcb;\n#include <new>\na(const a&) = delete;\nstatic_assert(1);", 0},
        {check_banned_words, "v6/vav/a.cpp", "delete t;\nif (bad) throw 1;\ntry {\n__FILE__", 4},
        {check_banned_words, "v6/vav/a.cpp", "#include <vector>\n#include <string_view>\n#include \"vector\"", 1},
        {check_banned_words, "localnode/a.cpp", "throw malloc(4);", 0},
        {check_shape, "verbs/a.h", std::string(130, 'x') + "\n" + std::string(129, 'x') + "\u00e4", 0},
        {check_shape, "verbs/a.h", std::string(131, 'x') + "\n\tint x;", 2},
        {check_shape, "verbs/a.h", std::string(450, '\n'), 0},
        {check_shape, "verbs/a.h", std::string(451, '\n'), 1},
        {check_opcode_literals, "v6/vav/a.cpp", "if (v.opcode == 0x0014)\nif (v.opcode != 0x14)\n{.opcode = 0x0014}", 3},
        {check_opcode_literals, "v6/vav/a.cpp", "if (v.opcode == 0x0102)\nif (v.rc == 0x0014)\nLAST_OPCODE = 0x0014;", 0},
    };
    // clang-format on
    for (const auto& each : cases) {
        source_tree tree;
        tree.readmes = {"common/README.md", "v6/vav/README.md", "include/README.md", "verbs/README.md", "vtpsrv/README.md"};
        for (const char* header : {"common/list.h", "verbs/codes.h", "v6/vav/entry.h", "vtpsrv/dispatch.h"})
            tree.files.push_back(split_source(header, ""));
        tree.files.push_back(split_source("include/tessaly/appc.h", "#define APPC_OP_TP_STARTED 0x0014"));
        tree.files.push_back(split_source(each.path, each.content));
        const findings found = each.rule(tree);
        EXPECT_EQ(found.size(), each.wrong) << each.path << ": " << each.content << testing::PrintToString(found);
    }
}

}  // namespace
