// bench/jobs/log.cpp - the display step of readlog on a file's text, or its floor: one write of the same lines. Prints
// the processor time of the step, without that of reading the file, on standard error, in seconds.
//
//   log display|floor FILE
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "commands/commands.h"
#include "common/log_lines.h"

namespace {

double seconds_used() {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    const auto seconds = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(used.ru_utime) + seconds(used.ru_stime);
}

bool read_whole(const char *path, std::string &text) {
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    struct stat about {};
    if (file < 0 || fstat(file, &about) != 0) return false;
    text.resize(static_cast<size_t>(about.st_size));
    size_t filled = 0;
    for (ssize_t got; (got = read(file, text.data() + filled, text.size() - filled)) > 0;)
        filled += static_cast<size_t>(got);
    close(file);
    return filled == text.size();
}

std::string without_blank_lines(std::string_view text) {
    std::string lines;
    lines.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\n' || (!lines.empty() && lines.back() != '\n')) lines += text[i];
    }
    return lines;
}

bool write_whole(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
        if (written < 0) return false;
        text.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    std::string text;
    if (argc != 3 || !read_whole(argv[2], text)) return 1;
    const bool floor = std::string_view(argv[1]) == "floor";
    const std::string lines = floor ? without_blank_lines(text) : std::string();
    const double before = seconds_used();
    if (floor) {
        if (!write_whole(lines)) return 1;
    } else {
        sb_readlog_display(text.data(), static_cast<uint32_t>(text.size()), 1);
        std::fflush(stdout);
    }
    std::fprintf(stderr, "%.6f\n", seconds_used() - before);
    return 0;
}
