// tests/commands/treereg_test.cpp - a registry tree that is deeper than the stack is large.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "run_ventix.h"

namespace {

TEST(Treereg, TakesNoStackForALevel) {
    const scratch_directory place;
    place.write("loop.json", R"({"registry": {"a": {"dir": {}}}, "registry_requests": {"0xC0020004":
        {"payload_bytes": {"28": {"hex": "00"}}}}})");  // each directory begins with the root, under an empty name
    rlimit usual = {};
    ASSERT_EQ(getrlimit(RLIMIT_STACK, &usual), 0);
    const rlimit small = {512 << 10, usual.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_STACK, &small), 0);
    const ventix_result result =
        run_ventix({.arguments = {"treereg", "-L", "3000"}, .machine = "loop.json", .directory = place.path()});
    setrlimit(RLIMIT_STACK, &usual);
    EXPECT_EQ(result.status, 0) << result.diagnostics;
    EXPECT_EQ(result.output.compare(0, 6, "|-- \n|"), 0);
}

}  // namespace
