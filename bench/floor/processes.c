// bench/floor/processes.c - the floor of a listing of all processes: opens the directory of each and asks for its owner,
// then opens the named files below it and reads them to their end; asks for mappings one by one where the system answers
// such queries. Parses and prints nothing.
//
//   processes FILE...       each process's directory, its owner, and those files
//   processes --flat FILE   one file of each process by its path, no directory of its own
#define _GNU_SOURCE
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

static char text[64 << 10];
static char entries[32 << 10];

// The mapping at or after an address.
static struct {
    uint64_t size, flags, address, begin, end, rest[8];
} query;

static void read_whole(int below, const char *path) {
    const int file = openat(below, path, O_RDONLY | O_CLOEXEC);
    if (file < 0) return;
    // A short read means end of file, except for the list of mappings.
    const int in_pieces = strcmp(path, "maps") == 0;
    for (query.end = 0; in_pieces;) {
        query.size = sizeof query;
        query.flags = 0x10;
        query.address = query.end;
        if (ioctl(file, _IOC(_IOC_READ | _IOC_WRITE, 'f', 17, sizeof query), &query) == 0) continue;
        if (errno == ENOTTY) break;
        close(file);
        return;
    }
    for (ssize_t got; (got = read(file, text, sizeof text)) > 0 && (in_pieces || got == sizeof text);) {
    }
    close(file);
}

static void visit(int proc, const char *name, int flat, char **files, int count) {
    if (flat) {
        char path[300];
        snprintf(path, sizeof path, "%s/%s", name, files[0]);
        read_whole(proc, path);
        return;
    }
    struct stat owner;
    const int directory = openat(proc, name, O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (directory < 0) return;
    fstat(directory, &owner);
    for (int i = 0; i < count; i++) read_whole(directory, files[i]);
    close(directory);
}

int main(int argc, char **argv) {
    const int flat = argc == 3 && strcmp(argv[1], "--flat") == 0;
    const int proc = open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (ssize_t got; (got = getdents64(proc, entries, sizeof entries)) > 0;) {
        for (ssize_t at = 0; at < got;) {
            const struct dirent64 *entry = (const struct dirent64 *)(entries + at);
            at += entry->d_reclen;
            if (entry->d_name[0] < '1' || entry->d_name[0] > '9') continue;
            visit(proc, entry->d_name, flat, argv + 1 + flat, argc - 1 - flat);
        }
    }
    return 0;
}
