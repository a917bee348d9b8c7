// bench/floor/mappings.c - a process with many mappings, for measuring what lists them. Prints its id when they exist, and
// ends when standard input ends.
//
//   mappings COUNT
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

int main(int argc, char **argv) {
    const size_t count = argc > 1 ? strtoul(argv[1], NULL, 10) : 0;
    const size_t page = (size_t)sysconf(_SC_PAGESIZE);
    // Every second page differs in what may be done with it, so that no two are one mapping.
    char *all = mmap(NULL, (count + 1) * page, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (all == MAP_FAILED) return 1;
    for (size_t i = 1; i < count; i += 2) {
        if (mprotect(all + i * page, page, PROT_NONE) != 0) return 1;
    }
    printf("%ld\n", (long)getpid());
    fflush(stdout);
    char byte;
    while (read(STDIN_FILENO, &byte, 1) > 0) {
    }
    return 0;
}
