// main/tools.h - the command table, the version, and the call that makes links.
#pragma once

#include <cstddef>

// One command: its name, as typed and as links are called, and its entry.
struct tool {
    const char *name;
    int (*entry)(int argc, char **argv);
};
static_assert(offsetof(tool, entry) == sizeof(void *));

// The commands in alphabetical order, in which they are listed and their links made; a null name ends the table.
extern const tool s_tools[];

extern const char ventix_version[];

// Makes a symbolic link to target at link_path. Returns 0, or -1 with errno set.
int symlink_wrap(const char *target, const char *link_path);
