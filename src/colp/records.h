// colp/records.h - the records of the column printer, for its own sources and for tests.
//
// A table owns its columns, each allocated by itself, and the arena that holds its rows and texts. Rows are never freed
// one by one, so a row may leave the list without leaking.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

#include "colp/colp.h"

struct colp_column {
    colp_column *next = nullptr;
    uint32_t type = 0;
    uint64_t min_width = 0;    // characters, as all widths
    uint64_t width_left = 0;   // of texts aligned on a character: up to and with it; otherwise the whole width
    uint64_t width_right = 0;  // of texts aligned on a character: what follows it
    colp_title_function title_function = nullptr;
    void *title_argument = nullptr;  // borrowed
    uint32_t title_just = 0;
    uint32_t cell_just = 0;
    uint32_t hex_case = 0;
    uint32_t sort_mode = 0;
    const char *suffix = nullptr;  // borrowed, never null once begun
    uint64_t suffix_length = 0;
    uint32_t leading_zero = 0;  // nonzero on hexadecimal columns only
    uint32_t summarize = 0;     // nonzero on columns of numbers only
    uint64_t sum = 0;           // modulo 2^64; like the widths, of the rows present when it was computed
    uint64_t cells_left = 0;   // width_left, width_right and sum as far as the cells determine them. Updated with every
    uint64_t cells_right = 0;  // cell, so that printing reads the cells once
    uint64_t cells_sum = 0;
    uint32_t id = 0;
    char justchar = 0;
};

union colp_cell {
    uint64_t number;   // of a signed column: its two's complement
    const char *text;  // the cell's copy of its text, see cell_text
};

// The cells follow the record, with room for one per column.
struct colp_row {
    colp_row *next;
    uint64_t cell_count;  // the cells present are those of the first columns
};

// Memory that is freed all at once.
struct colp_arena {
    struct block {
        block *next;
    };
    block *blocks = nullptr;   // newest first; the newest has the free memory
    char *position = nullptr;  // its free part
    char *end = nullptr;
    uint64_t next_size = 16 << 10;  // bytes of the next block, unless one request needs more
};

struct colp_table {
    uint8_t header_ended = 0;
    uint8_t dirty = 0;  // the next print computes widths and sums
    uint8_t fancy = 0;  // 1 for the styles fancy and fancyw
    uint32_t style = COLP_STYLE_SIMPLE;
    colp_column *first_column = nullptr;
    colp_column *last_column = nullptr;
    colp_column *open_column = nullptr;
    uint64_t column_count = 0;
    colp_row *first_row = nullptr;
    colp_row *last_row = nullptr;  // new rows follow it; a sort sets it to the row that was first
    colp_row *open_row = nullptr;
    colp_column *cell_cursor = nullptr;  // column of the next added cell; null when the row is full or none was begun
    colp_row *cell_row = nullptr;        // row of the next added cell, also after it was ended
    uint32_t next_column_id = 1;
    uint64_t row_count = 0;
    std::unique_ptr<char[]> format_buffer;   // scratch for one number's text
    const char *column_separator = nullptr;  // of the fancy styles
    const char *rule_cross = nullptr;        // of the fancy styles
    char sum_replace_raw[2] = "-";
    char sum_replace_simple[2] = " ";
    char sum_replace_fancy[2] = " ";
    char justchar = '.';  // from here on: defaults of new columns
    uint32_t title_just = COLP_JUST_LEFT;
    uint32_t cell_just = COLP_JUST_LEFT;
    uint32_t hex_case = COLP_HEX_LOWER;
    uint32_t sort_mode = 0;
    colp_arena arena;
};

inline constexpr char empty_string[] = "";

// A text is stored after its length: one byte, or the byte LONG_TEXT and eight more.
inline constexpr unsigned char LONG_TEXT = 255;

inline std::string_view cell_text(const colp_cell *cell) {
    const char *bytes = cell->text;
    uint64_t length = static_cast<unsigned char>(*bytes++);
    if (length == LONG_TEXT) {
        std::memcpy(&length, bytes, sizeof length);
        bytes += sizeof length;
    }
    return {bytes, length};
}

inline colp_cell *row_cells(colp_row *row) { return reinterpret_cast<colp_cell *>(row + 1); }
inline const colp_cell *row_cells(const colp_row *row) { return reinterpret_cast<const colp_cell *>(row + 1); }

// The cell of a row at a column position, or null where the row is too short.
inline const colp_cell *cell_at(const colp_row *row, uint64_t position) {
    return position < row->cell_count ? row_cells(row) + position : nullptr;
}

// Prefetches a row, its cells and, since they mostly follow, its first texts. Sorted rows are scattered, and a cache
// miss for each costs more than the work on it.
inline void fetch_ahead(const colp_row *row, uint64_t column_count) {
    if (row == nullptr) return;
    __builtin_prefetch(row);
    __builtin_prefetch(row_cells(row) + column_count);
}

// The address of the last byte equal to the character, or null. Bytes are compared as unsigned, so a negative character
// is never found.
const char *colp_memrchr__(const char *buffer, int character, uint64_t length);

// Compares two cells of one column: negative, zero or positive.
using colp_cell_cmp = int (*)(const colp_cell *, const colp_cell *);

// The comparison for a column's type and sort mode, or null for an unknown type.
colp_cell_cmp colp_get_cell_cmp__(const colp_column *column);

// Adds a cell to a column's running widths and sum.
void colp_measure_cell__(colp_column *column, const colp_cell *cell);
