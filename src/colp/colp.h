// colp/colp.h - the column printer: tables of typed columns, printed to a stdio stream in one of four styles.
//
// Order of calls: colp_new; the style; for each column colp_begincolumn, its setters, colp_endcolumn; colp_endheader;
// for each row colp_beginrow, one colp_addcell_ call per column in column order, colp_endrow; colp_sort if wanted; then
// colp_print, any number of times; colp_delete. After colp_removerows the table can be filled again under its header.
//
// Calls that return int return COLP_SUCCESS or one of the codes below, which the comments give by number. A call that
// fails changes nothing. Nothing here prints messages; colp_strerror returns the text of a code. One thread at a time
// may use a table.
#pragma once

#include <cstdint>
#include <cstdio>

// ---- codes and constants --------------------------------------------------------------------------------------------

enum : int {
    COLP_SUCCESS = 0,
    COLP_BAD_ARGUMENT = 1,
    COLP_NO_MEMORY = 2,
    COLP_PARSE_ERROR = 3,  // unknown name of a style or of a sort order
    COLP_BAD_STYLE = 4,
    COLP_BAD_TYPE = 5,
    COLP_BAD_HEXCASE = 6,
    COLP_BAD_JUSTIFICATION = 7,
    COLP_TYPE_MISMATCH = 8,  // of a cell with its column
    COLP_NO_HEADER = 9,      // the header is not ended yet
    COLP_HEADER_ENDED = 10,
    COLP_NO_COLUMN_OPEN = 11,
    COLP_COLUMN_OPEN = 12,
    COLP_NO_MORE_COLUMNS = 13,  // the row is full, or no row was begun
    COLP_NO_ROW_OPEN = 14,
    COLP_ROW_OPEN = 15,
    COLP_NO_SUCH_COLUMN = 16,
    COLP_NOT_COMPARABLE = 17,
    COLP_BAD_ORDER = 18,
};

enum : uint32_t {  // types of columns
    COLP_STRING = 1,
    COLP_INT = 2,   // signed 64-bit
    COLP_UINT = 3,  // unsigned 64-bit
    COLP_HEX = 4,   // unsigned 64-bit, shown in hexadecimal after "0x"
};

enum : int {  // justifications
    COLP_JUST_LEFT = 1,
    COLP_JUST_RIGHT = 2,
    COLP_JUST_CENTER = 3,
    COLP_JUST_FIRSTCHAR = 4,  // texts line up on the first occurrence of the column's alignment character
    COLP_JUST_LASTCHAR = 5,   // on the last one
};

enum : int { COLP_HEX_LOWER = 1, COLP_HEX_UPPER = 2 };

enum : uint32_t {  // styles
    COLP_STYLE_SIMPLE = 0,
    COLP_STYLE_RAW = 1,
    COLP_STYLE_FANCY = 2,
    COLP_STYLE_FANCYW = 3,
};

enum : int {  // parts of a table, in the order of printing
    COLP_PRINT_TITLE = 1,
    COLP_PRINT_TITLE_RULE = 2,  // the fancy styles alone have rules
    COLP_PRINT_ROWS = 4,
    COLP_PRINT_SUM_RULE = 8,
    COLP_PRINT_SUM = 16,
    COLP_PRINT_ALL = 31,
};

enum : uint32_t {  // sort orders
    COLP_SORT_UNORD = 0,
    COLP_SORT_ASC = 1,
    COLP_SORT_DESC = 2,
};

enum : uint32_t { COLP_SORTMODE_LENGTH = 2 };  // flag: shorter texts before longer ones

struct colp_table;

// Returns a column's title. Called when the table is printed, and, for a title that lines up on a character, when it is
// measured.
//   argument  as passed with the function
//   width     of the column, in characters; in raw style its minimum width
//   returns   a text that is valid until the next call of the function, or null for none
using colp_title_function = const char *(*)(void *argument, int width);

// ---- tables ---------------------------------------------------------------------------------------------------------

colp_table *colp_new();               // an empty table in simple style, or null where there is no memory
void colp_delete(colp_table *table);  // with all that it owns; not null

// Removes rows and columns, so that another header can be declared. Keeps the style, and does not reuse column ids.
void colp_clean(colp_table *table);  // not null

// Sets the character that the summary line shows for columns without a sum, per style; fancy and fancyw share one.
// Defaults: '-' in raw style, ' ' in the others.
//   1 not printable, or null table; 4 no such style
int colp_setsumreplace(colp_table *table, uint32_t style, char replacement);

// 1 null table, or null name; 4 no such style, 3 no such name.
int colp_setstyle(colp_table *table, uint32_t style);
int colp_setstylestr(colp_table *table, const char *name);

const char *const *colp_getstylelist();  // "raw", "simple", "fancy", "fancyw", null
int colp_isfancy(colp_table *table);     // 1 for fancy and fancyw, else 0; table not null

const char *colp_strerror(int code);  // "<unknown error>" for any other number

// ---- the header -----------------------------------------------------------------------------------------------------

// Appends a column and opens it for its setters. Column ids count from 1 and are never reused.
//   1 null table; 10 header ended; 12 another column is open; 5 no such type; 2 out of memory
int colp_begincolumn(colp_table *table, uint32_t type);
int colp_begincolumn_columnid(colp_table *table, uint32_t type, uint32_t *id);  // stores the id; 1 for a null id

int colp_endcolumn(colp_table *table);  // 1 null table; 10 header ended; 11 no column is open
int colp_endheader(colp_table *table);  // 1 null table; 10 ended already; 12 a column is open

// Setters of the open column: 1 null table; 10 header ended; 11 no column is open. The table borrows texts and
// arguments: they must outlive it unchanged.
int colp_setcolumn_titlefunc(colp_table *table, colp_title_function function, void *argument);  // function not null
int colp_setcolumn_title(colp_table *table, const char *title);
int colp_setcolumn_titlejust(colp_table *table, int justification);  // default left; 7 no such justification
int colp_setcolumn_celljust(colp_table *table, int justification);   // default left; 7 no such justification
int colp_setcolumn_minwidth(colp_table *table, int width);           // characters; negative is 0

// Nonzero: the summary line shows the sum of the column, modulo 2^64. Has no effect on a column of texts.
int colp_setcolumn_summarize(colp_table *table, int summarize);

int colp_setcolumn_hexcase(colp_table *table, int hex_case);  // default lower; 6 no such case

// Nonzero: hexadecimal numbers are padded with zeros to the width of the column, but in raw style. Has no effect on
// columns of other types.
int colp_setcolumn_leadingzero(colp_table *table, int leading_zero);

int colp_setcolumn_suffix(colp_table *table, const char *suffix);    // follows every number; null for none
int colp_setcolumn_sortmode(colp_table *table, uint32_t sort_mode);  // COLP_SORTMODE_ flags
int colp_setcolumn_justchar(colp_table *table, char justchar);       // default '.'

// Stores the id of the column at a position, counted from 0 in order of declaration.
//   1 null table or id; 9 header not ended; 16 no such column
int colp_getcolumnid(colp_table *table, uint64_t position, uint32_t *id);

// ---- rows -----------------------------------------------------------------------------------------------------------

// 1 null table; 9 header not ended; 15 a row is open; 2 out of memory
int colp_beginrow(colp_table *table);

// Adds the next cell. Copies texts. A row that was ended short still takes cells until the next row is begun.
//   1 null table or text; 13 the row is full, or none was begun; 8 the next column has another type; 2 out of memory
int colp_addcell_string(colp_table *table, const char *text);
int colp_addcell_int(colp_table *table, int64_t value);
int colp_addcell_uint(colp_table *table, uint64_t value);
int colp_addcell_hex(colp_table *table, uint64_t value);

int colp_endrow(colp_table *table);  // rows may stay short; 1 null table; 14 no row is open

uint64_t colp_getrowcount(colp_table *table);  // rows ended since the last removal; table not null

// Removes all rows, an open one too. Keeps the columns, and their widths and sums until a row is begun. Table not null.
void colp_removerows(colp_table *table);

// ---- printing and sorting -------------------------------------------------------------------------------------------

// Prints the chosen parts (COLP_PRINT_ flags) and flushes the stream. Does not check the writes: the stream's owner
// asks ferror. The first print after the header was ended or a row was begun computes widths and sums.
//   1 null table or stream; 9 header not ended; 15 a row is open; 2 out of memory, nothing printed
int colp_print(colp_table *table, int parts, FILE *stream);
int colp_print_all(colp_table *table, FILE *stream);
int colp_print_except(colp_table *table, int parts, FILE *stream);  // all parts but these

// Sorts the rows by one column, stably and without memory. Rows without a cell there come first when ascending and last
// when descending. Sort after the last row was added and before printing. Deliberate: a row begun after a sort follows
// the row that was first before the sort, and replaces all that follow that one.
//   order  COLP_SORT_; COLP_SORT_UNORD leaves the rows as they are
//   9 header not ended; 15 a row is open; 16 no column with this id; 17 not comparable; 18 no such order
int colp_sort(colp_table *table, uint32_t order, uint32_t column_id);  // table not null

int colp_parse_sortorder(uint32_t *order, const char *name);  // 1 null argument; 3 not the exact name of an order
const char *const *colp_getsortorderlist();                   // "asc", "desc", "unord", null
