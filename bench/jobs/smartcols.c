// The same table as table.cpp makes, by libsmartcols.
//
//   smartcols ROWS
#include <inttypes.h>
#include <libsmartcols.h>
#include <stdio.h>
#include <stdlib.h>

#include "rows.h"

static int set_number(struct libscols_line *line, size_t column, const char *format, uint64_t number) {
    char text[32];
    snprintf(text, sizeof text, format, number);
    return scols_line_set_data(line, column, text);
}

int main(int argc, char **argv) {
    const unsigned long count = argc > 1 ? strtoul(argv[1], NULL, 10) : 0;
    struct libscols_table *table = scols_new_table();
    if (!table) return 1;
    for (size_t i = 0; i < sizeof titles / sizeof *titles; i++) {
        const int text = i == 1 || i == 4;
        if (!scols_table_new_column(table, titles[i], 0, text ? 0 : SCOLS_FL_RIGHT)) return 1;
    }
    struct row row;
    row_source source = first_row;
    for (unsigned long i = 0; i < count; i++) {
        next_row(&source, &row);
        struct libscols_line *line = scols_table_new_line(table, NULL);
        if (!line || set_number(line, 0, "0x%" PRIx64, row.handle) || scols_line_set_data(line, 1, row.name) ||
            set_number(line, 2, "%" PRIu64, row.size) || set_number(line, 3, "%" PRId64, (uint64_t)row.balance) ||
            scols_line_set_data(line, 4, row.state) || set_number(line, 5, "%" PRIu64, row.number))
            return 1;
    }
    struct libscols_column *name = scols_table_get_column(table, 1);
    scols_column_set_cmpfunc(name, scols_cmpstr_cells, NULL);
    scols_sort_table(table, name);
    scols_print_table(table);
    scols_unref_table(table);
    return 0;
}
