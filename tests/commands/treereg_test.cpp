// tests/commands/treereg_test.cpp - registry trees that are deeper than the stack, or longer than a listing may become,
// and what fills an entry or a request to its last byte.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "run_ventix.h"

namespace {

TEST(Treereg, NeedsNoStackPerLevel) {
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

TEST(Treereg, ShowsAllBytesOfNamesAndValues) {
    const scratch_directory place;
    const std::string value(1'100'000, 'x');
    place.write("large.json", R"({"registry_limits": {"binary": 1200000, "buffer": 1300000}, "registry": {"k": ")" +
                                  value + R"("}})");
    const auto run = [&](std::vector<std::string> arguments, const char *machine) {
        return run_ventix({.arguments = std::move(arguments), .machine = machine, .directory = place.path()}).output;
    };
    EXPECT_TRUE(run({"readreg", "k"}, "large.json") == value + "\n");
    EXPECT_TRUE(run({"treereg", "-a", "-b", "1100000"}, "large.json").ends_with(" | " + value + " }\n"));
    std::string name;  // in hexadecimal, without a NUL
    for (int i = 0; i < 51; ++i) name += "41";
    place.write("name.json",
                R"({"registry": {"k": 1}, "registry_requests": {"0xC0020004": {"payload_bytes": {"28": {"hex": ")" +
                    name + R"(42"}}}}})");
    EXPECT_TRUE(run({"treereg", "-L", "0"}, "name.json").starts_with("|-- " + std::string(51, 'A') + "B\n"));
}

}  // namespace
