// Runs a program and says, on standard error, how many bytes of memory it had at most. A program's peak counts from
// whoever started it, so that has to be small itself.
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
