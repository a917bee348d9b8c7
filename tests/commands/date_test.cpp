// tests/commands/date_test.cpp - the system's own time, which no machine file sets: local time follows TZ, -u does not.
#include <gtest/gtest.h>

#include <ctime>

#include "run_ventix.h"

TEST(Date, LocalTimeFollowsTheZone) {
    const auto seconds = [](std::vector<std::string> arguments) {
        return std::stoll(run_ventix({.arguments = std::move(arguments), .environment = {"TZ=EAST-24"}}).output);
    };
    EXPECT_NEAR(static_cast<double>(seconds({"date", "-e", "-c"}) - time(nullptr)), 86400, 60);
    EXPECT_NEAR(static_cast<double>(seconds({"date", "-u", "-e", "-c"}) - time(nullptr)), 0, 60);
}
