// tests/commands/sendlog_test.cpp - the longest message, which does not fit a line of a case.
#include <gtest/gtest.h>

#include "run_ventix.h"

TEST(Sendlog, AcceptsTheLongestMessageAndNoLonger) {
    for (const size_t length : {size_t{65535}, size_t{65536}}) {
        const auto run = run_ventix({.arguments = {"sendlog", std::string(length, 'x')}, .machine = "log.json"});
        EXPECT_EQ(run.status, length > 65535 ? 1 : 0);
        EXPECT_EQ(run.output, length > 65535 ? "sendlog: message is too long\n" : "");
    }
}
