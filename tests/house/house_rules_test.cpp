// The house rules, held against this source tree, and the rules themselves, held against small trees that break them.
#include "rules.h"

#include <gtest/gtest.h>

using namespace house;

namespace {

const source_tree& project()
{
    static const source_tree tree = read_source_tree(TESSALY_SOURCE_ROOT);
    return tree;
}

void expect_none(const findings& found)
{
    for (const finding& each : found)
        ADD_FAILURE_AT(each.path.c_str(), static_cast<int>(each.line)) << each.rule;
}

TEST(ThisTree, is_the_project)
{
    EXPECT_TRUE(project().has("include/tessaly/appc.h"));
    EXPECT_TRUE(project().has("tests/house/house_rules_test.cpp"));
}

TEST(ThisTree, includes_only_rooms_above)
{
    expect_none(check_include_order(project()));
}

TEST(ThisTree, has_every_file_in_a_room_with_a_readme)
{
    expect_none(check_rooms(project()));
}

TEST(ThisTree, uses_no_banned_word_in_the_verb_library)
{
    expect_none(check_banned_words(project()));
}

TEST(ThisTree, keeps_files_and_lines_short)
{
    expect_none(check_shape(project()));
}

TEST(ThisTree, calls_opcodes_by_name)
{
    expect_none(check_opcode_literals(project()));
}

source_tree tree_of(std::initializer_list<std::pair<const char*, std::string>> files)
{
    source_tree tree;
    for (const auto& [path, content] : files)
        tree.files.push_back(split_source(path, content));
    return tree;
}

struct include_case {
    const char* from;
    const char* line;
    bool allowed;
};

class IncludeOrder : public testing::TestWithParam<include_case> {};

TEST_P(IncludeOrder, is_that_of_the_house_plan)
{
    source_tree tree = tree_of({{GetParam().from, GetParam().line}});
    for (const char* header :
         {"include/tessaly/appc.h", "runtime/node_runtime.h", "common/list.h", "verbs/codes.h", "vsvig/trace.h",
          "vtpsrv/dispatch.h", "v6/records/tpcb.h", "v6/vav3264/convert.h", "v6/vav/entry.h", "v6/vavsub/answers.h",
          "localnode/engine/tps.h", "localnode/runtime/lock.h", "localnode/daemon/status_protocol.h",
          "localnode/daemon/config.h", "tests/support/node.h"})
        tree.files.push_back(split_source(header, ""));
    EXPECT_EQ(check_include_order(tree).empty(), GetParam().allowed);
}

// clang-format off
constexpr include_case include_cases[] = {
    {"common/list.cpp",             "#include \"list.h\"",                              true},
    {"common/list.cpp",             "#include <vector>",                                true},
    {"common/list.cpp",             "#include <tessaly/appc.h>",                        true},
    {"common/list.cpp",             "#include \"no_such.h\"",                           false},
    {"common/list.cpp",             "// #include \"vtpsrv/dispatch.h\"",                true},
    {"common/list.cpp",             "#include \"verbs/codes.h\"",                       false},
    {"common/list.cpp",             "  #include \"../verbs/codes.h\"",                  false},
    {"common/list.cpp",             "#include \"common/list.h\" // and \"verbs/x.h\"",  true},
    {"include/tessaly/names.h",     "#include \"appc.h\"",                              true},
    {"include/tessaly/names.h",     "#include \"runtime/node_runtime.h\"",              false},
    {"vsvig/trace.cpp",             "#include \"v6/records/tpcb.h\"",                   false},
    {"names/check.cpp",             "#include \"vtpsrv/dispatch.h\"",                   false},
    {"v6/records/tpcb.cpp",         "#include \"v6/vav/entry.h\"",                      false},
    {"v6/vav3264/convert.cpp",      "#include \"v6/records/tpcb.h\"",                   true},
    {"v6/vav3264/convert.cpp",      "#include \"v6/vavsub/answers.h\"",                 false},
    {"v6/vavsub/answers.cpp",       "#include \"v6/vav/entry.h\"",                      true},
    {"v6/vav/send.cpp",             "#include \"v6/vavsub/answers.h\"",                 true},
    {"v6/vav/send.cpp",             "#include \"vtpsrv/dispatch.h\"",                   false},
    {"v6/vav/entry.cpp",            "#include \"vtpsrv/dispatch.h\"",                   true},
    {"localnode/engine/tps.cpp",    "#include \"verbs/codes.h\"",                       true},
    {"localnode/engine/tps.cpp",    "#include \"localnode/runtime/lock.h\"",            false},
    {"localnode/runtime/lock.cpp",  "#include \"localnode/engine/tps.h\"",              true},
    {"localnode/runtime/lock.cpp",  "#include \"v6/records/tpcb.h\"",                   false},
    {"localnode/daemon/main.cpp",   "#include \"localnode/runtime/lock.h\"",            true},
    {"tools/tessaly/status.cpp",    "#include \"localnode/daemon/status_protocol.h\"",  true},
    {"tools/tessaly/status.cpp",    "#include \"localnode/daemon/config.h\"",           false},
    {"tools/tessaly/status.cpp",    "#include \"common/list.h\"",                       false},
    {"examples/ping.c",             "#include <tessaly/appc.h>",                        true},
    {"examples/ping.c",             "#include \"verbs/codes.h\"",                       false},
    {"verbs/codes.cpp",             "#include \"tests/support/node.h\"",                false},
    {"tests/verbs/a_test.cpp",      "#include \"v6/vavsub/answers.h\"",                 true},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(, IncludeOrder, testing::ValuesIn(include_cases));

struct word_case {
    const char* code;
    bool allowed;
};

class BannedWord : public testing::TestWithParam<word_case> {};

TEST_P(BannedWord, is_found_in_code_only)
{
    EXPECT_EQ(check_banned_words(tree_of({{"v6/vav/send.cpp", GetParam().code}})).empty(), GetParam().allowed);
    EXPECT_TRUE(check_banned_words(tree_of({{"localnode/runtime/memory.cpp", GetParam().code}})).empty());
}

// clang-format off
constexpr word_case word_cases[] = {
    {"p = malloc(4);",                         false},
    {"p = std::malloc (4);",                   false},
    {"::free(p);",                             false},
    {"cache.free(p);",                         true},
    {"cache->free(p);",                        true},
    {"records::free(p);",                      true},
    {"vav_free(p);",                           true},
    {"bool free = true;",                      true},
    {"// malloc(4)",                           true},
    {"/* malloc(4)\n free(p) */ f();",         true},
    {"/* why */ malloc(4);",                   false},
    {"log(\"malloc(4) failed\");",             true},
    {"log(R\"(\nmalloc(4))\"); g();",          true},
    {"log(R\"(text)\"); free(p);",             false},
    {"put('\"'); free(p); put('\"');",         false},
    {"n = 1'000; free(p); n = 1'000;",         false},
    {"t = new tpcb;",                          false},
    {"t = new (place) tpcb{};",                true},
    {"t = new (std::nothrow) tpcb;",           false},
    {"void* operator new(unsigned);",          false},
    {"#include <new>",                         true},
    {"delete t;",                              false},
    {"list(const list&) = delete;",            true},
    {"if (bad) throw 1;",                      false},
    {"try { f(); } catch (...) {}",            false},
    {"#include <vector>",                      false},
    {"#include <string_view>",                 true},
    {"#include \"vector\"",                    true},
    {"v0_assert(__FILE__, 1, \"\");",          false},
    {"nb_printf(\"x\");",                      true},
    {"printf(\"x\");",                         false},
    {"exit(1);",                               false},
    {"static_assert(sizeof(tpcb) == 4);",      true},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(, BannedWord, testing::ValuesIn(word_cases));

TEST(Shape, is_bounded_in_lines_and_columns)
{
    const auto findings_in = [](const std::string& content) {
        return check_shape(tree_of({{"verbs/a.h", content}})).size();
    };
    const auto lines = [](int count) {
        std::string content;
        while (count-- > 0)
            content += "\n";
        return content;
    };
    EXPECT_EQ(findings_in(std::string(130, 'x')), 0u);
    EXPECT_EQ(findings_in(std::string(131, 'x')), 1u);
    EXPECT_EQ(findings_in(std::string(129, 'x') + "\u00e4"), 0u) << "a letter of two bytes is one column";
    EXPECT_EQ(findings_in(lines(450)), 0u);
    EXPECT_EQ(findings_in(lines(451)), 1u);
    EXPECT_EQ(findings_in("\tint x;"), 1u);
}

TEST(Rooms, are_those_of_the_house_plan_and_have_a_readme)
{
    source_tree tree = tree_of({{"common/a.h", ""}, {"common/a.cpp", ""}, {"v6/vav/b.h", ""}});
    EXPECT_EQ(check_rooms(tree).size(), 2u) << "one finding a room, not one a file";
    tree.readmes = {"common/README.md", "v6/vav/README.md"};
    EXPECT_TRUE(check_rooms(tree).empty());
    tree.readmes = {"common/README.md", "v6/README.md"};
    EXPECT_TRUE(check_rooms(tree).empty());
    tree.files.push_back(split_source("v6/vav/deeper/c.h", ""));
    tree.readmes = {"common/README.md", "v6/vav/deeper/README.md"};
    EXPECT_EQ(check_rooms(tree).size(), 1u) << "a README.md further in describes less than the room";
    tree.readmes = {"common/README.md", "v6/README.md", "attic/README.md"};
    tree.files.push_back(split_source("attic/d.h", ""));
    EXPECT_EQ(check_rooms(tree).size(), 1u);
}

TEST(OpcodeLiterals, are_found_where_the_line_speaks_of_an_opcode)
{
    const auto found = [](const char* path, const char* code) {
        const char* header = "#define APPC_OP_TP_STARTED 0x0014";
        return check_opcode_literals(tree_of({{"include/tessaly/appc.h", header}, {path, code}})).size();
    };
    EXPECT_EQ(found("v6/vav/send.cpp", "if (vcb.opcode == 0x0014)"), 1u);
    EXPECT_EQ(found("v6/vav/send.cpp", "if (vcb.opcode != 0x14)"), 1u);
    EXPECT_EQ(found("verbs/catalogue.h", "{ .opcode = 0x0014 }"), 1u);
    EXPECT_EQ(found("v6/vav/send.cpp", "if (vcb.opcode == 0x0102)"), 0u) << "no header names this number";
    EXPECT_EQ(found("v6/vav/send.cpp", "if (vcb.primary_rc == 0x0014)"), 0u);
    EXPECT_EQ(found("verbs/catalogue.h", "constexpr u16 LAST_OPCODE = 0x0014;"), 0u)
        << "a name for the bound of a range";
    EXPECT_EQ(found("tests/verbs/refusals.cpp", "if (vcb.opcode == 0x0014)"), 0u);
}

}  // namespace
