// common/tables.cpp - tables by the column printer, with messages on standard error.
#include "common/tables.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "colp/colp.h"

namespace {

int add_column(colp_table *table, const sb_column &column) {
    const auto title_length = static_cast<int>(std::strlen(column.title));
    int err = colp_begincolumn(table, column.type);
    if (!err) err = colp_setcolumn_minwidth(table, std::max(title_length, column.min_width));
    if (!err) err = colp_setcolumn_title(table, column.title);
    if (!err) err = colp_setcolumn_titlejust(table, column.title_just);
    if (!err) err = colp_setcolumn_celljust(table, column.cell_just);
    if (!err && column.extras & SB_COLUMN_UPPER) err = colp_setcolumn_hexcase(table, COLP_HEX_UPPER);
    if (!err && column.extras & SB_COLUMN_ZEROS) err = colp_setcolumn_leadingzero(table, 1);
    if (!err && column.extras & SB_COLUMN_SUMMED) err = colp_setcolumn_summarize(table, 1);
    if (!err && column.suffix != nullptr) err = colp_setcolumn_suffix(table, column.suffix);
    if (!err) err = colp_endcolumn(table);
    return err;
}

}  // namespace

void sb_tabledeleter::operator()(colp_table *table) const noexcept { colp_delete(table); }

sb_table sb_newtable(const char *command, const char *style, std::span<const sb_column> columns) {
    sb_table table(colp_new());
    if (!table) {
        std::fprintf(stderr, "%s: could not allocate colprint\n", command);
        return table;
    }
    int err = style != nullptr ? colp_setstylestr(table.get(), style) : 0;
    for (const sb_column &column : columns) {
        if (!err) err = add_column(table.get(), column);
    }
    if (!err) err = colp_endheader(table.get());
    if (err) {
        table.reset();
        std::fprintf(stderr, "%s: colprint error: %s\n", command, colp_strerror(err));
    }
    return table;
}

void sb_print_summed(colp_table *table, FILE *stream) {
    constexpr int summary = COLP_PRINT_SUM_RULE | COLP_PRINT_SUM;
    colp_print_except(table, summary, stream);
    if (!colp_isfancy(table)) std::fputc('\n', stream);
    colp_print(table, summary, stream);
}

void sb_print_colp_styles(FILE *stream) {
    std::fputs("Available table styles:\n", stream);
    for (const char *const *name = colp_getstylelist(); *name != nullptr; ++name) std::fprintf(stream, "  %s\n", *name);
}

void sb_print_colp_sort(FILE *stream, const char *option_name) {
    std::fprintf(stream,
                 "The format of %s is: COLUMN_INDEX [\",\" MODE]\n"
                 "The COLUMN_INDEX is the zero-based index of the subject column.\n"
                 "The optional MODE is any of the following sort modes:\n",
                 option_name);
    for (const char *const *name = colp_getsortorderlist(); *name != nullptr; ++name)
        std::fprintf(stream, "  %s\n", *name);
}

int sb_parse_colp_sort(colp_table *table, const char *spec) {
    if (spec == nullptr) return 0;
    char *end = nullptr;
    const unsigned long index = std::strtoul(spec, &end, 0);
    if (*end != '\0' && *end != ',') {
        std::fputs("ERROR: syntax error in sort specification\n", stderr);
        return 1;
    }
    uint32_t mode = COLP_SORT_ASC;
    uint32_t column = 0;
    int err = *end == ',' ? colp_parse_sortorder(&mode, end + 1) : 0;
    if (!err) err = colp_getcolumnid(table, index, &column);
    if (!err) err = colp_sort(table, mode, column);
    if (!err) return 0;
    std::fprintf(stderr, "ERROR: %s\n", colp_strerror(err));
    return 1;
}
