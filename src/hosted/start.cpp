// start.cpp - around main, by the linker's wrap: standard streams that are what they seem and one large buffer for
// standard output before it, and after it the final check that everything printed has arrived. No layer above knows of
// it.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
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

int output_error = 0;           // of the first write that failed
bool ended_by_readers = false;  // when they go away, by the signal that tells of it

// Ends the run as that signal would have, but with the machine saved.
void end_without_reader() {
    static_cast<void>(hosted::finish(0));
    std::signal(SIGPIPE, SIG_DFL);
    kill(getpid(), SIGPIPE);
}

// What a stream over this function cannot write is lost, but not the reason: the error that a stream keeps does not
// tell it, and commands may flush theirs long before the end.
ssize_t write_output(void *, const char *bytes, size_t size) {
    size_t done = 0;
    while (done < size) {
        const ssize_t put = write(STDOUT_FILENO, bytes + done, size - done);
        if (put < 0 && errno == EINTR) continue;
        if (put < 0 && output_error == 0) output_error = errno;
        if (put < 0 && errno == EPIPE && ended_by_readers) end_without_reader();
        if (put <= 0) break;
        done += static_cast<size_t>(put);
    }
    return static_cast<ssize_t>(done);
}

void prepare_output() {
    if (FILE *stream = fopencookie(nullptr, "w", {nullptr, write_output, nullptr, nullptr})) stdout = stream;
    // A terminal keeps the line buffering that people expect of it.
    const int mode = isatty(STDOUT_FILENO) != 0 ? _IOLBF : _IOFBF;
    std::setvbuf(stdout, output_buffer, mode, sizeof output_buffer);
}

// Flushes standard output; a failure is told once and turns status 0 into 1. A reader that went away knows.
int check_output(int status) {
    const bool failed = std::fflush(stdout) != 0 || std::ferror(stdout) != 0;
    if (!failed || output_error == EPIPE || status != 0) return status;
    std::fprintf(stderr, "ventix: write error: %s\n", std::strerror(output_error != 0 ? output_error : EIO));
    return 1;
}

}  // namespace

extern "C" int __wrap_main(int argc, char **argv) {
    keep_closed_streams_closed();
    // A file that may not grow further is told of like a full disk; its signal would leave a half-written one behind.
    std::signal(SIGXFSZ, SIG_IGN);
    ended_by_readers = std::signal(SIGPIPE, SIG_IGN) == SIG_DFL;
    prepare_output();
    const int status = __real_main(argc, argv);
    return hosted::finish(check_output(status));
}
