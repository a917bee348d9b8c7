// tests/commands/readlog_test.cpp - the log display on a descriptor that does not block. fuzz/readlog.cpp compares its
// bytes with a model.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <thread>

#include "commands/commands.h"
#include "common/log_lines.h"

namespace {

// A pipe that does not block takes far less at once.
TEST(ReadlogDisplay, OutputThatDoesNotBlock) {
    const std::string slice(1 << 20, 'x');
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(fcntl(ends[1], F_SETFL, O_NONBLOCK), 0);
    size_t received = 0;
    std::thread reader([&] {
        char bytes[4096];
        for (ssize_t got; (got = read(ends[0], bytes, sizeof bytes)) > 0;) received += static_cast<size_t>(got);
    });
    std::fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    sb_readlog_display(slice.c_str(), static_cast<uint32_t>(slice.size()), 1);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    reader.join();
    close(ends[0]);
    EXPECT_EQ(received, slice.size() + 1);
}

}  // namespace
