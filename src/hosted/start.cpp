// start.cpp - around main, by the linker's wrap: standard streams that are what they seem and one large buffer for
// standard output before it, and after it the final check that everything printed has arrived. No layer above knows of
// it.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "hosted/kernel/entry.h"

extern "C" int __real_main(int argc, char **argv);

namespace {

char output_buffer[64 << 10];

// A file opened later must not become a standard stream that the caller has closed: what is printed would end up in it.
// What takes its place here is refused for reading and writing, as the closed one was.
void keep_closed_streams_closed() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) < 0) static_cast<void>(open("/", O_PATH | O_CLOEXEC));
    }
}

// Flushes standard output; a failure is told once and turns status 0 into 1. A reader that went away knows.
int check_output(int status) {
    const bool failed_before = std::ferror(stdout) != 0;
    errno = 0;
    if (std::fflush(stdout) == 0 && !failed_before) return status;
    if (errno == EPIPE || status != 0) return status;
    std::fprintf(stderr, "ventix: write error: %s\n", std::strerror(errno != 0 ? errno : EIO));
    return 1;
}

}  // namespace

extern "C" int __wrap_main(int argc, char **argv) {
    keep_closed_streams_closed();
    // A terminal keeps the line buffering that people expect of it.
    if (isatty(STDOUT_FILENO) == 0) std::setvbuf(stdout, output_buffer, _IOFBF, sizeof output_buffer);
    const int status = __real_main(argc, argv);
    return hosted::finish(check_output(status));
}
