// tests/fuzz_test.cpp - replays the corpus of each fuzz target, so that what fuzzing found stays fixed.
#include <gtest/gtest.h>

#include <filesystem>

#include "run_ventix.h"

namespace {

std::vector<std::string> targets() {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(VENTIX_SOURCE_DIR "/fuzz/corpus")) {
        names.push_back(entry.path().filename());
    }
    return names;
}

class Fuzz : public testing::TestWithParam<std::string> {};

TEST_P(Fuzz, corpus) {
    const auto run = run_ventix({.arguments = {VENTIX_SOURCE_DIR "/fuzz/corpus/" + GetParam()},
                                 .program = VENTIX_PROGRAMS "/replay_" + GetParam()});
    EXPECT_EQ(run.status, 0) << run.diagnostics;
}

INSTANTIATE_TEST_SUITE_P(Targets, Fuzz, testing::ValuesIn(targets()), [](const auto &target) { return target.param; });

}  // namespace
