// bench/jobs/table.cpp - a table of six columns, filled, sorted by its second column and printed: by the column
// printer, or as bare cells into one buffer, which is the floor.
//
//   table colp|floor ROWS    prints the table
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "colp/colp.h"
#include "rows.h"

namespace {

int print_with_colp(unsigned long count) {
    const std::unique_ptr<colp_table, decltype(&colp_delete)> table(colp_new(), colp_delete);
    if (!table) return 1;
    constexpr uint32_t types[] = {COLP_HEX, COLP_STRING, COLP_UINT, COLP_INT, COLP_STRING, COLP_UINT};
    for (size_t i = 0; i < std::size(types); ++i) {
        colp_begincolumn(table.get(), types[i]);
        colp_setcolumn_title(table.get(), titles[i]);
        colp_setcolumn_celljust(table.get(), types[i] == COLP_STRING ? COLP_JUST_LEFT : COLP_JUST_RIGHT);
        colp_endcolumn(table.get());
    }
    colp_endheader(table.get());
    struct row row;
    row_source source = first_row;
    for (unsigned long i = 0; i < count; ++i) {
        next_row(&source, &row);
        colp_beginrow(table.get());
        colp_addcell_hex(table.get(), row.handle);
        colp_addcell_string(table.get(), row.name);
        colp_addcell_uint(table.get(), row.size);
        colp_addcell_int(table.get(), row.balance);
        colp_addcell_string(table.get(), row.state);
        colp_addcell_uint(table.get(), row.number);
        colp_endrow(table.get());
    }
    uint32_t name_column = 0;
    colp_getcolumnid(table.get(), 1, &name_column);
    return colp_sort(table.get(), COLP_SORT_ASC, name_column) || colp_print_all(table.get(), stdout);
}

// The same cells without a table, neither sorted nor aligned.
int print_bare(unsigned long count) {
    char buffer[64 << 10];
    char *const end = buffer + sizeof buffer;
    char *to = buffer;
    struct row row;
    row_source source = first_row;
    const auto flush = [&] {
        const auto length = static_cast<size_t>(to - buffer);
        to = buffer;
        return write(STDOUT_FILENO, buffer, length) == static_cast<ssize_t>(length);
    };
    const auto put = [&](const char *text) { to = stpcpy(to, text); };
    for (unsigned long i = 0; i < count; ++i) {
        if (end - to < 128 && !flush()) return 1;
        next_row(&source, &row);
        put("0x");
        to = std::to_chars(to, end, row.handle, 16).ptr;
        put(" ");
        put(row.name);
        put(" ");
        to = std::to_chars(to, end, row.size).ptr;
        put(" ");
        to = std::to_chars(to, end, row.balance).ptr;
        put(" ");
        put(row.state);
        put(" ");
        to = std::to_chars(to, end, row.number).ptr;
        put("\n");
    }
    return !flush();
}

}  // namespace

int main(int argc, char **argv) {
    const unsigned long count = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 0;
    return std::string_view(argc > 1 ? argv[1] : "") == "floor" ? print_bare(count) : print_with_colp(count);
}
