// fuzz/readlog.cpp - the display of log slices prints any text, cut anywhere, as a model prints it character by
// character, and reads nothing past the text's NUL.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "commands/commands.h"
#include "common/log_lines.h"
#include "input.h"

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

// What the display prints on descriptor 1.
std::string displayed(const char *text, uint32_t length, int mode) {
    static const int printed = [] {
        const int file = memfd_create("printed", MFD_CLOEXEC);
        if (dup2(file, STDOUT_FILENO) < 0) std::abort();
        return file;
    }();
    if (ftruncate(printed, 0) != 0 || lseek(printed, 0, SEEK_SET) != 0) std::abort();
    sb_readlog_display(text, length, mode);
    std::string got(static_cast<size_t>(lseek(printed, 0, SEEK_END)), '\0');
    if (pread(printed, got.data(), got.size(), 0) != static_cast<ssize_t>(got.size())) std::abort();
    return got;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    fuzz_input input(bytes, size);
    const int mode = input.byte() & 1;
    const size_t cut = input.byte();  // bytes that the slice is said to be shorter, which changes nothing
    const std::string text(input.text(size));
    const size_t length = text.size() - std::min(text.size(), cut);
    const std::string got = displayed(text.c_str(), static_cast<uint32_t>(length), mode);
    if (got == model(text, mode != 0)) return 0;
    std::fprintf(stderr, "printed: %s\n", got.c_str());
    std::abort();
}
