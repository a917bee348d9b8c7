// helpers.h - what several commands share: exit statuses, tasks by name and handle, registry listings, iterator items,
// and the set-up, sorting and printing of tables.
//
// Look-ups print nothing and leave reporting to the command; the functions that print say so.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <span>
#include <string_view>

#include "common/deque.h"
#include "platform/kernel.h"
#include "platform/protocol/registry.h"

struct colp_table;

// Exit statuses. Commands that promise others keep their promise.
enum : int {
    SB_DONE = 0,
    SB_FAILED = 1,  // bad or missing operand, not found, an item or a table that failed
    SB_SETUP = 2,   // device, port, request or registry set-up
    SB_BAD_SWITCH = 100,
    SB_NO_ITERATOR = 101,  // no iterator, or no memory at set-up
};

// Memory of malloc with an owner.
struct sb_freer {
    void operator()(void *memory) const noexcept { std::free(memory); }
};
using sb_text = std::unique_ptr<char, sb_freer>;

// ---- tasks ----------------------------------------------------------------------------------------------------------

// The handle of the first task, in registry order, of exactly this name; NO_OBJECT when there is none and on any
// failure. One registry read per task that stands before it.
uint64_t sb_gettaskhandle(const char *name);

// The name of a task.
//   buffer, size  room for the name and its NUL; a size of 17 always suffices for the digits
//   returns       true and the name; false and the handle's 16 digits, when the registry has no such task
bool sb_gettaskname(uint64_t handle, char *buffer, size_t size);

// How a command reads the operands that name tasks.
enum class sb_taskoperand {
    name,    // as the registry has it
    hex,     // a handle as parse_task_key reads it: 10 is 0x10
    number,  // a handle as strtoul reads it in base 0: 10 is 10, 010 is 8; text that is no number is 0
};

// The handle that an operand names.
//   returns  false for a name that no task has; a handle is never refused, whatever its value
bool sb_resolvetask(const char *operand, sb_taskoperand how, uint64_t *handle);

uint64_t sb_get_master(uint64_t handle);  // the object's master handle, or the handle itself where it cannot be read

// ---- iterators ------------------------------------------------------------------------------------------------------

// A 64-bit counter that the kernel keeps in two items: (high << 32) | low. The low item is read first.
//   returns  0, or the result code of the read that failed; the output is untouched then
uint64_t sb_GetIteratorInfo64(uint64_t iterator, uint64_t *value, uint64_t low_item, uint64_t high_item);

// The same for a reader that shows something in any case: 0 when either half cannot be read.
uint64_t sb_iteratorcounter(uint64_t iterator, uint64_t low_item, uint64_t high_item);

// One item of the object that the iterator stands on, or the fallback when it cannot be read.
uint64_t sb_iteratoritem(uint64_t iterator, uint64_t item, uint64_t fallback);

// ---- registry and devices -------------------------------------------------------------------------------------------

// The entries of a registry directory, in the registry's order.
//   returns  a deque of whole RegIterator records; empty when the directory cannot be read; null when out of memory
deque_ptr sb_readreg_content(const char *directory);

// The name of an entry: up to its NUL, or the whole field where the server wrote none.
std::string_view sb_entryname(const RegIterator &entry);

// path and name with one '/' between them where path is not empty and does not end in '/' or '\'. Null when out of
// memory.
sb_text sb_joinpath(std::string_view path, std::string_view name);

// Tells whether a device lists a class code.
//   port     reply port, or 0 or NO_OBJECT for a temporary one
//   returns  0 it does, -1 it does not or a query failed, 1 no temporary port could be made
int sb_check_class(const char *device, uint64_t device_class, uint64_t port);

const char *sb_svcls_type(uint64_t code);  // the name of a SVCTYPE_; "??" for any other

// ---- tables ---------------------------------------------------------------------------------------------------------

struct sb_tabledeleter {
    void operator()(colp_table *table) const noexcept;
};
using sb_table = std::unique_ptr<colp_table, sb_tabledeleter>;

// Extras of a column, as bits.
enum : unsigned {
    SB_COLUMN_UPPER = 1,   // upper-case hexadecimal digits
    SB_COLUMN_ZEROS = 2,   // leading zeros
    SB_COLUMN_SUMMED = 4,  // its sum in the summary line
    SB_COLUMN_HANDLE = SB_COLUMN_UPPER | SB_COLUMN_ZEROS,
};

// One column of a table.
struct sb_column {
    uint32_t type;  // COLP_STRING, COLP_INT, COLP_UINT, COLP_HEX
    const char *title;
    int title_just;                // COLP_JUST_
    int cell_just;                 // COLP_JUST_
    unsigned extras = 0;           // SB_COLUMN_
    const char *suffix = nullptr;  // behind every number; null for none
    int min_width = 0;             // characters; the title's length where that is more
};

// Makes a table with its header ended, ready for rows. Prints what failed on standard error, as "COMMAND: ...".
//   command  the name that the messages begin with
//   style    as the user gave it, or null for the default
//   columns  in order; titles and suffixes are borrowed
//   returns  the table, or null after a message
sb_table sb_newtable(const char *command, const char *style, std::span<const sb_column> columns);

// Declares one column of a table whose header is not ended. Returns the column printer's code.
int sb_addcolumn(colp_table *table, const sb_column &column);

// Prints titles and rows, an empty line in a style that is not fancy, and the summary.
void sb_print_summed(colp_table *table, FILE *stream);

// The parts of a usage text that explain the style and the sort option.
void sb_print_colp_styles(FILE *stream);
void sb_print_colp_sort(FILE *stream, const char *option_name);

// The code of the long option "--sort", which has no letter.
inline constexpr int SB_SORT_OPTION = 1000;

// Sorts a table, its rows complete, by a user's COLUMN_INDEX [ "," MODE ].
//   spec     null: leave the rows as they are
//   returns  0, or 1 after printing what is wrong with it on standard error
int sb_parse_colp_sort(colp_table *table, const char *spec);
