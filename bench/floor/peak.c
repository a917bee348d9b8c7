// bench/floor/peak.c - runs a program and prints its peak of resident memory, in bytes, on standard error. The peak
// includes that of the process that started the program, so this one is small.
//
//   peak PROGRAM [ARGUMENT]...
#define _GNU_SOURCE
#include <stdio.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char **argv) {
    const pid_t id = argc > 1 ? fork() : -1;
    if (id < 0) return 1;
    if (id == 0) {
        execvp(argv[1], argv + 1);
        _exit(127);
    }
    struct rusage used;
    int status;
    if (wait4(id, &status, 0, &used) != id) return 1;
    fprintf(stderr, "%ld\n", used.ru_maxrss * 1024);
    return 0;
}
