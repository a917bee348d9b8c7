// The log's lines printed in place, against a model that goes character by character.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <random>
#include <string>
#include <thread>

#include "commands/commands.h"

namespace {

bool ends_line(char c) { return c == '\n' || c == '\r'; }

std::string model(const std::string &slice, bool half_lines) {
    const std::string text = slice.substr(0, slice.find('\0'));
    size_t at = 0;
    if (!half_lines) {
        at = text.find('\n');
        if (at == std::string::npos) return "";
    }
    std::string out;
    while (true) {
        while (at < text.size() && ends_line(text[at])) at++;
        if (at == text.size()) return out;
        size_t end = text.find('\n', at);
        if (end == std::string::npos) end = text.find('\r', at);
        if (end == std::string::npos) return half_lines ? out + text.substr(at) + '\n' : out;
        size_t last = end;
        while (ends_line(text[last])) last--;
        out += text.substr(at, last - at + 1) + '\n';
        at = last + 1;
    }
}

// What display prints on descriptor 1.
std::string displayed(const std::string &slice, int mode) {
    std::FILE *file = std::tmpfile();
    const int saved = dup(STDOUT_FILENO);
    std::fflush(stdout);
    dup2(fileno(file), STDOUT_FILENO);
    sb_readlog_display(slice.c_str(), static_cast<uint32_t>(slice.size()), mode);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    std::string text(static_cast<size_t>(lseek(fileno(file), 0, SEEK_END)), '\0');
    EXPECT_EQ(pread(fileno(file), text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    std::fclose(file);
    return text;
}

TEST(ReadlogDisplay, AgreesWithAModel) {
    std::string many;  // more pieces than one system call takes
    for (int line = 0; line < 5000; line++) many += std::to_string(line) + (line % 3 == 0 ? "\r\n" : "\n\n");
    for (const std::string &slice : {std::string("abc\ndef\nghi"), std::string("\n\r\n"), many}) {
        for (const int mode : {0, 1}) EXPECT_EQ(displayed(slice, mode), model(slice, mode != 0)) << slice;
    }
    constexpr unsigned seed = 64002;
    std::mt19937 random(seed);
    constexpr char alphabet[] = {'\n', '\n', '\r', 'a', 'b', 'c', '\xE9', '\0'};
    for (int round = 0; round < 3000; round++) {
        std::string slice(random() % 40, 'x');
        const size_t letters = round % 4 == 0 ? sizeof alphabet : sizeof alphabet - 1;
        for (char &c : slice) c = alphabet[random() % letters];
        const int mode = round % 2;
        ASSERT_EQ(displayed(slice, mode), model(slice, mode != 0)) << "seed " << seed << " round " << round;
    }
}

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
