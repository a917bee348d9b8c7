// tests/commands/treereg_test.cpp - registry trees that are deeper than the stack, or longer than a listing may become.
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

TEST(Treereg, EndsAtItsBoundOfPaths) {
    const scratch_directory place;
    std::string text = R"({"registry_limits": {"buffer": 200000}, "registry": {)";
    for (int i = 0; i < 5000; ++i) text += "\"k" + std::to_string(i) + "\": 1, ";
    place.write("wide.json", text + "\"last\": 1}}");
    const std::string path(120'000, '/');
    const ventix_result result =
        run_ventix({.arguments = {"treereg", "-I", path}, .machine = "wide.json", .directory = place.path()});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.output.find("\n|-- k4000\n"), result.output.npos);
    EXPECT_EQ(result.output.find("last"), result.output.npos);
}

}  // namespace
