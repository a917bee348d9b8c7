// common/tables.h - setting up, sorting and printing the tables of commands.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>

struct colp_table;

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
    const char *suffix = nullptr;  // after every number; null for none
    int min_width = 0;             // characters; the title's length where that is more
};

// Makes a table with its header ended, ready for rows. Prints what failed on standard error, as "COMMAND: ...".
//   command  the name that the messages begin with
//   style    as the user gave it, or null for the default
//   columns  in order; titles and suffixes are borrowed
//   returns  the table, or null after a message
sb_table sb_newtable(const char *command, const char *style, std::span<const sb_column> columns);

// Prints titles and rows, an empty line in a style that is not fancy, and the summary.
void sb_print_summed(colp_table *table, FILE *stream);

// The parts of a usage text that explain the style and the sort option.
void sb_print_colp_styles(FILE *stream);
void sb_print_colp_sort(FILE *stream, const char *option_name);

// Sorts a table, its rows complete, by a user's COLUMN_INDEX [ "," MODE ].
//   spec     null: leave the rows as they are
//   returns  0, or 1 after printing what is wrong with it on standard error
int sb_parse_colp_sort(colp_table *table, const char *spec);
