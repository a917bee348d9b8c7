#include "common/helpers.h"

#include <gtest/gtest.h>

#include <string>

#include "colp/colp.h"

namespace {

TEST(Helpers, ReadHandles) {
    const struct {
        const char *text;
        uint64_t hex, number;
    } cases[] = {
        {"1f", 0x1F, 1},
        {"0x1F", 0x1F, 0x1F},
        {"123", 0x123, 123},
        {"010", 0x10, 8},
        {"zz", 0, 0},
        {"a-b", 0xA0B, 0},
        {"", 0, 0},
        {"FEDCBA98765432100", 0xEDCBA98765432100, 0},
        {"-1", 1, ~0ull},
        {"1 ", 0x10, 1},
        {"0xFFFFFFFFFFFFFFFFF", ~0ull, ~0ull},
    };
    for (const auto &[text, hex, number] : cases) {
        uint64_t handle = 7;
        EXPECT_TRUE(sb_resolvetask(text, sb_taskoperand::hex, &handle));
        EXPECT_EQ(handle, hex) << text;
        EXPECT_TRUE(sb_resolvetask(text, sb_taskoperand::number, &handle));
        EXPECT_EQ(handle, number) << text;
    }
}

TEST(Helpers, JoinPaths) {
    const struct {
        const char *path, *name, *joined;
    } cases[] = {{"", "a", "a"},       {"a", "b", "a/b"}, {"a/", "b", "a/b"},
                 {"a\\", "b", "a\\b"}, {"/", "", "/"},    {"a", "", "a/"}};
    for (const auto &[path, name, joined] : cases) EXPECT_STREQ(sb_joinpath(path, name).get(), joined);
}

TEST(Helpers, SortAsTheUserSays) {
    constexpr sb_column columns[] = {{COLP_UINT, "n", COLP_JUST_LEFT, COLP_JUST_LEFT},
                                     {COLP_STRING, "s", COLP_JUST_LEFT, COLP_JUST_LEFT}};
    const struct {
        const char *spec, *rows, *message = "";
        int result = 0;
    } cases[] = {
        {nullptr, "2 b\n1 c\n3 a\n"},
        {"", "1 c\n2 b\n3 a\n"},
        {",desc", "3 a\n2 b\n1 c\n"},
        {"0x1", "3 a\n2 b\n1 c\n"},
        {"01,desc", "1 c\n2 b\n3 a\n"},
        {"1,unord", "2 b\n1 c\n3 a\n"},
        {"1;desc", "2 b\n1 c\n3 a\n", "ERROR: syntax error in sort specification\n", 1},
        {"1,x", "2 b\n1 c\n3 a\n", "ERROR: Parse error\n", 1},
        {"7,", "2 b\n1 c\n3 a\n", "ERROR: Parse error\n", 1},
        {"2", "2 b\n1 c\n3 a\n", "ERROR: No such column ID\n", 1},
        {"4294967296", "2 b\n1 c\n3 a\n", "ERROR: No such column ID\n", 1},
        {"-1", "2 b\n1 c\n3 a\n", "ERROR: No such column ID\n", 1},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.spec ? row.spec : "none");
        const sb_table table = sb_newtable("test", "raw", columns);
        ASSERT_NE(table, nullptr);
        for (const auto &[number, text] : {std::pair(2u, "b"), std::pair(1u, "c"), std::pair(3u, "a")}) {
            colp_beginrow(table.get());
            colp_addcell_uint(table.get(), number);
            colp_addcell_string(table.get(), text);
            colp_endrow(table.get());
        }
        testing::internal::CaptureStderr();
        EXPECT_EQ(sb_parse_colp_sort(table.get(), row.spec), row.result);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), row.message);
        testing::internal::CaptureStdout();
        colp_print(table.get(), COLP_PRINT_ROWS, stdout);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), row.rows);
    }
}

}  // namespace
