// tests/hosted/descriptors_test.cpp - reads that end at their bound, and writes that fail.
#include "hosted/descriptors.h"

#include <gtest/gtest.h>

#include "run_ventix.h"

TEST(Descriptors, ReadToTheEndOrToTheBound) {
    const scratch_directory scratch;
    constexpr size_t limit = 20000;  // past what a text has room for at first
    for (const size_t size : {size_t{0}, size_t{1}, limit - 1, limit, limit + 1, 3 * limit}) {
        const std::string content(size, 'x');
        scratch.write("file", content);
        std::string text = "before";
        EXPECT_EQ(hosted::read_all(hosted::open_file(AT_FDCWD, scratch.file("file").c_str()).get(), text, limit), 0);
        EXPECT_EQ(text, content.substr(0, limit)) << size;
    }
    std::string text = "before";
    EXPECT_EQ(hosted::read_all(hosted::open_file(AT_FDCWD, "/").get(), text, limit), EISDIR);
    EXPECT_EQ(text, "");
    EXPECT_EQ(hosted::write_all(hosted::open_file(AT_FDCWD, "/dev/full", O_WRONLY).get(), "x"), ENOSPC);
}
