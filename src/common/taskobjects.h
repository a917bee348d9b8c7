// taskobjects.h - the run of a command that lists the objects that belong to tasks, one table per task. The command
// brings its columns, its rows and its own switches; options, operands, headings, walks and sorting are the same for
// all.
#pragma once

#include <cstdint>
#include <span>

#include "common/helpers.h"

struct colp_table;

// A switch of the command's own beside -P, -S and --sort.
struct sb_switch {
    int letter;
    bool *set;
};

struct sb_taskobjects {
    const char *command;  // its name, in messages
    const char *plural;   // what the objects are called, in headings
    uint64_t selection;   // ITERSEL_ of one task's objects
    std::span<const sb_column> columns;
    std::span<const sb_switch> switches;
    void (*print_usage)();
    void *context;  // handed to the two functions below

    void (*begin_task)(void *context, uint64_t task);  // before a task's walk; may be null
    // Adds one row for the object that the iterator stands on. An item that cannot be read shows as 0.
    void (*add_row)(void *context, colp_table *table, uint64_t iterator);
};

// Runs the command: parses its line, prints its tables on standard output and its messages on standard error.
//   returns  the exit status
int sb_listtaskobjects(int argc, char **argv, const sb_taskobjects &what);
