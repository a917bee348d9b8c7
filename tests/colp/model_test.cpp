// tests/colp/model_test.cpp - random tables and random calls: the library prints the same bytes as the model.
#include <gtest/gtest.h>

#include <random>

#include "colp/random_table.h"

namespace {

constexpr uint32_t seed = 20240611;

void compare_tables(int tables, size_t most_rows) {
    std::mt19937 random(seed);
    for (int i = 0; i < tables; ++i) {
        SCOPED_TRACE("table " + std::to_string(i) + " of seed " + std::to_string(seed));
        random_table<std::mt19937> table(random, most_rows);
        for (int steps = 0; steps < 25 && table.complaint().empty(); ++steps) table.step();
        table.print(COLP_PRINT_ALL);
        ASSERT_EQ(table.complaint(), "");
    }
}

TEST(ColpModel, PrintsTheSameForSmallTables) { compare_tables(800, 20); }

TEST(ColpModel, PrintsTheSameForLargerTables) { compare_tables(12, 900); }
}  // namespace
