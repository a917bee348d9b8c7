#include "common/helpers.h"

#include <gtest/gtest.h>

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

}  // namespace
