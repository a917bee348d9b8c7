// common/taskobjects.h - the run of a command that lists the objects of tasks, one table per task.
//
// The command parses its line and supplies its columns and rows; operands, headings, walks and sorting are shared.
#pragma once

#include <cstdint>
#include <span>

#include "common/commandline.h"
#include "common/tables.h"
#include "common/tasks.h"

struct colp_table;

struct sb_taskobjects {
    const sb_commandline &line;
    const char *plural;  // what the objects are called, in headings
    uint64_t selection;  // ITERSEL_ of one task's objects
    std::span<const sb_column> columns;

    // Of the command line.
    std::span<char *const> tasks;
    sb_taskoperand operands;
    const char *style;  // null: the default
    const char *sort;   // null: unsorted

    void *context;  // handed to the two functions below

    void (*begin_task)(void *context, uint64_t task);  // before a task's walk; may be null
    // Adds one row for the iterator's current object. An item that cannot be read shows as 0.
    void (*add_row)(void *context, colp_table *table, uint64_t iterator);
};

// Prints the tables on standard output and messages on standard error.
//   returns  the exit status of the command
int sb_listtaskobjects(const sb_taskobjects &what);
