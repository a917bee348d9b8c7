// hosted/start.cpp - wraps main(), by the linker: makes the standard streams safe before it and ends the run after it.
// No layer above knows of it.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "hosted/kernel/run.h"
#include "hosted/output.h"

extern "C" int __real_main(int argc, char **argv);

namespace {

// A file opened later must not become a standard stream that the caller has closed: what is printed would end up in it.
// The placeholder refuses reads and writes, as the closed stream did.
void keep_closed_streams_closed() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) < 0) static_cast<void>(open("/", O_PATH | O_CLOEXEC));
    }
}

// Ends the run as SIGPIPE would have, but with the machine saved.
void end_without_reader() {
    static_cast<void>(hosted::finish(0));
    std::signal(SIGPIPE, SIG_DFL);
    kill(getpid(), SIGPIPE);
}

}  // namespace

// Takes the place of the C++ library's handler, which prints the exception's type. The demangler that it needs for that
// would be a thirtieth of the executable.
void __gnu_cxx::__verbose_terminate_handler() {
    std::fprintf(stderr, "%s: an exception was not handled\n", hosted::program_name);
    std::abort();
}

extern "C" int __wrap_main(int argc, char **argv) {
    constexpr int highest_status = 255;  // a parent sees the low 8 bits: a count of 256 must not read as success
    keep_closed_streams_closed();
    // A file that may not grow further is reported like a full disk. Its signal would leave a half-written one.
    std::signal(SIGXFSZ, SIG_IGN);
    const bool ends_at_pipe = std::signal(SIGPIPE, SIG_IGN) == SIG_DFL;
    hosted::prepare_output(ends_at_pipe ? end_without_reader : nullptr);
    const int status = __real_main(argc, argv);
    return hosted::finish(hosted::check_output(std::min(status, highest_status)));
}
