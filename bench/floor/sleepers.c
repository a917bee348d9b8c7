// bench/floor/sleepers.c - COUNT sleeping processes, for measuring listings: copies of this one, or a program. Prints their
// count when all exist, and ends them, each by its id, when standard input ends. They end with their parent in any case.
//
//   sleepers COUNT [PROGRAM ARGUMENT...]
#define _GNU_SOURCE
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char **argv) {
    const long count = argc > 1 ? strtol(argv[1], NULL, 10) : 0;
    pid_t *ids = calloc((size_t)count + 1, sizeof *ids);
    const pid_t parent = getpid();
    long made = 0;
    for (; ids && made < count; made++) {
        ids[made] = argc > 2 ? vfork() : fork();  // with vfork(), the program runs when it returns
        if (ids[made] < 0) break;
        if (ids[made] > 0) continue;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (argc > 2) {
            dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
            execvp(argv[2], argv + 2);
            _exit(1);
        }
        while (getppid() == parent) pause();
        _exit(0);
    }
    printf("%ld\n", made);
    fflush(stdout);
    char byte;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
    for (long i = 0; i < made; i++) kill(ids[i], SIGKILL);
    for (long i = 0; i < made; i++) waitpid(ids[i], NULL, 0);
    return made != count;
}
