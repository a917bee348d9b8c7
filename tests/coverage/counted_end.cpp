// tests/coverage/counted_end.cpp - writes the coverage counts of a process that ends by _exit or kill. The linker
// redirects those calls to here.
#include <stdlib.h>
#include <sys/types.h>
#include <unistd.h>

extern "C" void __gcov_dump();
extern "C" [[noreturn]] void __real__exit(int status);
extern "C" int __real_kill(pid_t process, int signal);

// Standard error has the run's messages alone, also where its counts cannot be written.
[[gnu::constructor]] static void count_in_silence() { setenv("GCOV_ERROR_FILE", "/dev/null", 0); }

extern "C" void __wrap__exit(int status);
extern "C" void __wrap__exit(int status) {
    __gcov_dump();
    __real__exit(status);
}

extern "C" int __wrap_kill(pid_t process, int signal);
extern "C" int __wrap_kill(pid_t process, int signal) {
    if (process == getpid()) __gcov_dump();
    return __real_kill(process, signal);
}
