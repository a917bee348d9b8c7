// hosted/output.cpp - the stream of standard output.
#include "hosted/output.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace hosted {

namespace {

char output_buffer[64 << 10];
int first_error = 0;  // of the writes; a stream remembers that one failed, but not why
void (*on_reader_gone)() = nullptr;

ssize_t write_output(void *, const char *bytes, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t written = write(STDOUT_FILENO, bytes + done, size - done);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0 && first_error == 0) first_error = errno;
        if (written < 0 && errno == EPIPE && on_reader_gone != nullptr) on_reader_gone();
        if (written <= 0) break;
        done += static_cast<size_t>(written);
    }
    return static_cast<ssize_t>(done);
}

}  // namespace

void prepare_output(void (*reader_gone)()) {
    on_reader_gone = reader_gone;
    if (FILE *stream = fopencookie(nullptr, "w", {nullptr, write_output, nullptr, nullptr})) stdout = stream;
    // A terminal keeps the line buffering that people expect of it.
    const int mode = isatty(STDOUT_FILENO) != 0 ? _IOLBF : _IOFBF;
    std::setvbuf(stdout, output_buffer, mode, sizeof output_buffer);
}

int check_output(int status) {
    static bool reported = false;
    const bool failed = std::fflush(stdout) != 0 || std::ferror(stdout) != 0;
    if (!failed || first_error == EPIPE) return status;
    if (!std::exchange(reported, true)) {
        std::fprintf(stderr, "%s: write error: %s\n", program_name,
                     std::strerror(first_error != 0 ? first_error : EIO));
    }
    return status != 0 ? status : 1;
}

}  // namespace hosted
