// colp/table.cpp - building, emptying and freeing tables: columns, rows and cells.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>
#include <utility>

#include "colp/records.h"

namespace {

constexpr uint64_t LAST_BLOCK_SIZE = 1 << 20;

// Returns memory, or null where there is none. The alignment is at most 8 bytes.
char *arena_allocate(colp_arena &arena, uint64_t size, uint64_t alignment) {
    const auto room = static_cast<uint64_t>(arena.end - arena.position);
    uint64_t gap = -reinterpret_cast<uintptr_t>(arena.position) & (alignment - 1);
    if (gap + size > room) {
        const uint64_t block_size = std::max(arena.next_size, sizeof(colp_arena::block) + size);
        void *memory = operator new(block_size, std::nothrow);
        if (memory == nullptr) return nullptr;
        arena.blocks = new (memory) colp_arena::block{arena.blocks};
        arena.position = reinterpret_cast<char *>(arena.blocks + 1);
        arena.end = static_cast<char *>(memory) + block_size;
        arena.next_size = std::min(2 * arena.next_size, LAST_BLOCK_SIZE);
        gap = 0;
    }
    char *memory = arena.position + gap;
    arena.position = memory + size;
    return memory;
}

void arena_release(colp_arena &arena) {
    while (arena.blocks != nullptr) operator delete(std::exchange(arena.blocks, arena.blocks->next));
    arena = {};
}

void free_column(colp_column *column) { delete column; }

const char *title_ident(void *argument, int) { return static_cast<const char *>(argument); }

// The check that every call on the open column makes first.
int check_open_column(const colp_table *table) {
    if (table == nullptr) return COLP_BAD_ARGUMENT;
    if (table->header_ended) return COLP_HEADER_ENDED;
    if (table->open_column == nullptr) return COLP_NO_COLUMN_OPEN;
    return COLP_SUCCESS;
}

// Sets one field of the open column.
template <typename Field, typename Value> int set_field(colp_table *table, Field colp_column::*field, Value value) {
    const int err = check_open_column(table);
    if (!err) table->open_column->*field = static_cast<Field>(value);
    return err;
}

// Sets one numbered choice of the open column; choices count from 1.
int set_choice(colp_table *table, uint32_t colp_column::*field, int choice, int last_choice, int refusal) {
    const int err = check_open_column(table);
    if (err) return err;
    if (choice < 1 || choice > last_choice) return refusal;
    return set_field(table, field, choice);
}

int check_cell(const colp_table *table, uint32_t type) {
    if (table == nullptr) return COLP_BAD_ARGUMENT;
    if (table->cell_cursor == nullptr) return COLP_NO_MORE_COLUMNS;
    if (table->cell_cursor->type != type) return COLP_TYPE_MISMATCH;
    return COLP_SUCCESS;
}

// Appends a checked cell to the row being filled, which has room for one cell per column.
void append_cell(colp_table *table, colp_cell cell) {
    colp_row *row = table->cell_row;
    row_cells(row)[row->cell_count++] = cell;
    colp_measure_cell__(table->cell_cursor, &cell);
    table->cell_cursor = table->cell_cursor->next;
}

void forget_measures(colp_table *table) {
    for (colp_column *column = table->first_column; column != nullptr; column = column->next)
        column->cells_left = column->cells_right = column->cells_sum = 0;
}

// Drops the rows after the last row, which a sort left there.
void drop_rows_after_last(colp_table *table) {
    table->last_row->next = nullptr;
    forget_measures(table);
    for (const colp_row *row = table->first_row; row != nullptr; row = row->next) {
        colp_column *column = table->first_column;
        for (uint64_t i = 0; i < row->cell_count; ++i, column = column->next)
            colp_measure_cell__(column, row_cells(row) + i);
    }
}

int add_number(colp_table *table, uint32_t type, uint64_t number) {
    const int err = check_cell(table, type);
    if (!err) append_cell(table, {.number = number});
    return err;
}
}  // namespace

colp_table *colp_new() { return new (std::nothrow) colp_table; }

void colp_clean(colp_table *table) {
    colp_removerows(table);
    while (table->first_column != nullptr) free_column(std::exchange(table->first_column, table->first_column->next));
    table->last_column = nullptr;
    table->open_column = nullptr;
    table->column_count = 0;
    table->header_ended = 0;
}

void colp_delete(colp_table *table) {
    colp_clean(table);
    delete table;
}

int colp_begincolumn(colp_table *table, uint32_t type) {
    if (table == nullptr) return COLP_BAD_ARGUMENT;
    if (table->header_ended) return COLP_HEADER_ENDED;
    if (table->open_column != nullptr) return COLP_COLUMN_OPEN;
    if (type < COLP_STRING || type > COLP_HEX) return COLP_BAD_TYPE;
    auto *column = new (std::nothrow) colp_column;
    if (column == nullptr) return COLP_NO_MEMORY;
    column->type = type;
    column->title_function = title_ident;
    column->title_argument = const_cast<char *>(empty_string);
    column->title_just = table->title_just;
    column->cell_just = table->cell_just;
    column->hex_case = table->hex_case;
    column->sort_mode = table->sort_mode;
    column->suffix = empty_string;
    column->id = table->next_column_id++;
    column->justchar = table->justchar;
    (table->last_column != nullptr ? table->last_column->next : table->first_column) = column;
    table->last_column = column;
    table->open_column = column;
    ++table->column_count;
    return COLP_SUCCESS;
}

int colp_begincolumn_columnid(colp_table *table, uint32_t type, uint32_t *id) {
    if (id == nullptr) return COLP_BAD_ARGUMENT;
    const int err = colp_begincolumn(table, type);
    if (!err) *id = table->open_column->id;
    return err;
}

int colp_endcolumn(colp_table *table) {
    const int err = check_open_column(table);
    if (!err) table->open_column = nullptr;
    return err;
}

int colp_setcolumn_titlefunc(colp_table *table, colp_title_function function, void *argument) {
    const int err = set_field(table, &colp_column::title_function, function);
    return err ? err : set_field(table, &colp_column::title_argument, argument);
}

int colp_setcolumn_title(colp_table *table, const char *title) {
    return colp_setcolumn_titlefunc(table, title_ident, const_cast<char *>(title));  // title_ident only reads it
}

int colp_setcolumn_titlejust(colp_table *table, int justification) {
    return set_choice(table, &colp_column::title_just, justification, COLP_JUST_LASTCHAR, COLP_BAD_JUSTIFICATION);
}

int colp_setcolumn_celljust(colp_table *table, int justification) {
    return set_choice(table, &colp_column::cell_just, justification, COLP_JUST_LASTCHAR, COLP_BAD_JUSTIFICATION);
}

int colp_setcolumn_minwidth(colp_table *table, int width) {
    return set_field(table, &colp_column::min_width, std::max(width, 0));
}

int colp_setcolumn_summarize(colp_table *table, int summarize) {
    const int err = set_field(table, &colp_column::summarize, summarize);
    if (!err && table->open_column->type == COLP_STRING) table->open_column->summarize = 0;
    return err;
}

int colp_setcolumn_hexcase(colp_table *table, int hex_case) {
    return set_choice(table, &colp_column::hex_case, hex_case, COLP_HEX_UPPER, COLP_BAD_HEXCASE);
}

int colp_setcolumn_leadingzero(colp_table *table, int leading_zero) {
    const int err = set_field(table, &colp_column::leading_zero, leading_zero);
    if (!err && table->open_column->type != COLP_HEX) table->open_column->leading_zero = 0;
    return err;
}

int colp_setcolumn_suffix(colp_table *table, const char *suffix) {
    if (suffix == nullptr) suffix = empty_string;
    const int err = set_field(table, &colp_column::suffix, suffix);
    return err ? err : set_field(table, &colp_column::suffix_length, std::strlen(suffix));
}

int colp_setcolumn_sortmode(colp_table *table, uint32_t sort_mode) {
    return set_field(table, &colp_column::sort_mode, sort_mode);
}

int colp_setcolumn_justchar(colp_table *table, char justchar) {
    return set_field(table, &colp_column::justchar, justchar);
}

int colp_getcolumnid(colp_table *table, uint64_t position, uint32_t *id) {
    if (table == nullptr || id == nullptr) return COLP_BAD_ARGUMENT;
    if (!table->header_ended) return COLP_NO_HEADER;
    const colp_column *column = table->first_column;
    for (; column != nullptr && position > 0; --position) column = column->next;
    if (column == nullptr) return COLP_NO_SUCH_COLUMN;
    *id = column->id;
    return COLP_SUCCESS;
}

int colp_endheader(colp_table *table) {
    if (table == nullptr) return COLP_BAD_ARGUMENT;
    if (table->header_ended) return COLP_HEADER_ENDED;
    if (table->open_column != nullptr) return COLP_COLUMN_OPEN;
    table->header_ended = 1;
    table->dirty = 1;
    return COLP_SUCCESS;
}

int colp_beginrow(colp_table *table) {
    if (table == nullptr) return COLP_BAD_ARGUMENT;
    if (!table->header_ended) return COLP_NO_HEADER;
    if (table->open_row != nullptr) return COLP_ROW_OPEN;
    char *memory =
        arena_allocate(table->arena, sizeof(colp_row) + table->column_count * sizeof(colp_cell), alignof(colp_row));
    if (memory == nullptr) return COLP_NO_MEMORY;
    auto *row = new (memory) colp_row{};
    if (table->first_row == nullptr)
        table->first_row = row;
    else {
        if (table->last_row->next != nullptr) drop_rows_after_last(table);
        table->last_row->next = row;
    }
    table->last_row = row;
    table->open_row = row;
    table->cell_row = row;
    table->cell_cursor = table->first_column;
    table->dirty = 1;
    return COLP_SUCCESS;
}

int colp_addcell_string(colp_table *table, const char *text) {
    if (text == nullptr) return COLP_BAD_ARGUMENT;
    if (const int err = check_cell(table, COLP_STRING)) return err;
    const uint64_t length = std::strlen(text);
    const uint64_t prefix = length < LONG_TEXT ? 1 : 1 + sizeof length;
    char *memory = arena_allocate(table->arena, prefix + length, alignof(char));
    if (memory == nullptr) return COLP_NO_MEMORY;
    *memory = static_cast<char>(std::min<uint64_t>(length, LONG_TEXT));
    if (length >= LONG_TEXT) std::memcpy(memory + 1, &length, sizeof length);
    std::copy_n(text, length, memory + prefix);
    append_cell(table, {.text = memory});
    return COLP_SUCCESS;
}

int colp_addcell_int(colp_table *table, int64_t value) {
    return add_number(table, COLP_INT, static_cast<uint64_t>(value));
}

int colp_addcell_uint(colp_table *table, uint64_t value) { return add_number(table, COLP_UINT, value); }

int colp_addcell_hex(colp_table *table, uint64_t value) { return add_number(table, COLP_HEX, value); }

int colp_endrow(colp_table *table) {
    if (table == nullptr) return COLP_BAD_ARGUMENT;
    if (table->open_row == nullptr) return COLP_NO_ROW_OPEN;
    table->open_row = nullptr;
    ++table->row_count;
    return COLP_SUCCESS;
}

uint64_t colp_getrowcount(colp_table *table) { return table->row_count; }

void colp_removerows(colp_table *table) {
    arena_release(table->arena);
    forget_measures(table);
    table->first_row = nullptr;
    table->last_row = nullptr;
    table->open_row = nullptr;
    table->cell_row = nullptr;
    table->cell_cursor = nullptr;
    table->row_count = 0;
}

const char *colp_strerror(int code) {
    static constexpr const char *texts[] = {
        "Success",
        "Invalid argument",
        "Out of memory",
        "Parse error",
        "Invalid style",
        "Invalid column type",
        "Invalid letter casing",
        "Invalid justification",
        "Cell type mismatch with column type",
        "No header",
        "Header is ended",
        "No column is open",
        "Column is still open",
        "No more columns specified",
        "No row is open",
        "Row is still open",
        "No such column ID",
        "Could not compare values in the specified column",
        "Invalid sort order",
    };
    return code >= 0 && code < std::ssize(texts) ? texts[code] : "<unknown error>";
}

const char *colp_memrchr__(const char *buffer, int character, uint64_t length) {
    while (length-- > 0)
        if (static_cast<unsigned char>(buffer[length]) == character) return buffer + length;
    return nullptr;
}
