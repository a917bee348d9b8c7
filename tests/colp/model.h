// tests/colp/model.h - a slow, plain model of the column printer: printf, strings and an insertion sort.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "colp/colp_fixture.h"

struct model_cell {
    std::string text;
    uint64_t number = 0;
};

struct model_column {
    uint32_t type = COLP_STRING;
    uint64_t min_width = 0;
    const char *title = "";
    int title_just = COLP_JUST_LEFT;
    int cell_just = COLP_JUST_LEFT;
    int hex_case = COLP_HEX_LOWER;
    uint32_t sort_mode = 0;
    const char *suffix = "";
    bool leading_zero = false;
    bool summarize = false;
    char justchar = '.';
    uint64_t left = 0, right = 0, sum = 0;

    uint64_t width() const { return left + right; }
};

struct model_row {
    uint64_t id;
    std::vector<model_cell> cells;
};

// Declares a column of a table like one of the model; the first code that is no success.
inline int declare(colp_table *table, const model_column &column) {
    for (const int code :
         {colp_begincolumn(table, column.type), colp_setcolumn_minwidth(table, static_cast<int>(column.min_width)),
          colp_setcolumn_title(table, column.title), colp_setcolumn_titlejust(table, column.title_just),
          colp_setcolumn_celljust(table, column.cell_just), colp_setcolumn_hexcase(table, column.hex_case),
          colp_setcolumn_sortmode(table, column.sort_mode), colp_setcolumn_suffix(table, column.suffix),
          colp_setcolumn_leadingzero(table, column.leading_zero), colp_setcolumn_summarize(table, column.summarize),
          colp_setcolumn_justchar(table, column.justchar), colp_endcolumn(table)}) {
        if (code != COLP_SUCCESS) return code;
    }
    return COLP_SUCCESS;
}

// Adds a cell to a table, to a column of the type.
inline int add_cell(colp_table *table, uint32_t type, const model_cell &cell) {
    if (type == COLP_STRING) return colp_addcell_string(table, cell.text.c_str());
    if (type == COLP_INT) return colp_addcell_int(table, static_cast<int64_t>(cell.number));
    return type == COLP_UINT ? colp_addcell_uint(table, cell.number) : colp_addcell_hex(table, cell.number);
}

[[gnu::format(printf, 1, 2)]] inline std::string formatted(const char *format, ...) {
    char *text = nullptr;
    va_list arguments;
    va_start(arguments, format);
    const int length = vasprintf(&text, format, arguments);
    va_end(arguments);
    std::string result(text, static_cast<size_t>(length));
    std::free(text);
    return result;
}

class model_table {
public:
    std::vector<model_column> columns;
    std::vector<model_row> rows;
    uint32_t style = COLP_STYLE_SIMPLE;
    char replacements[4] = {' ', '-', ' ', ' '};  // by style number
    bool dirty = true;

    void add_row(std::vector<model_cell> cells) {
        if (!rows.empty()) rows.resize(last_ + 1);
        last_ = rows.size();
        rows.push_back({next_id_++, std::move(cells)});
        dirty = true;
    }

    void remove_rows() {
        rows.clear();
        last_ = 0;
    }

    model_row *newest() {
        for (model_row &row : rows)
            if (row.id + 1 == next_id_) return &row;
        return nullptr;
    }

    void sort(size_t position, uint32_t order) {
        if (rows.size() < 2 || order == COLP_SORT_UNORD) return;
        const uint64_t first = rows[0].id;
        std::vector<model_row> sorted;
        for (model_row &row : rows) {
            size_t place = 0;
            while (place < sorted.size() && compare(row, sorted[place], position, order) >= 0) ++place;
            sorted.insert(sorted.begin() + static_cast<ptrdiff_t>(place), std::move(row));
        }
        rows = std::move(sorted);
        for (last_ = 0; rows[last_].id != first;) ++last_;
    }

    std::string print(int parts) {
        if (dirty) measure();
        const char *separator = style == COLP_STYLE_FANCY ? "|" : style == COLP_STYLE_FANCYW ? " | " : " ";
        std::string out;
        if (parts & COLP_PRINT_TITLE) out += line(separator, [&](size_t i) { return title(i); });
        if (parts & COLP_PRINT_TITLE_RULE) out += rule();
        for (size_t r = 0; parts & COLP_PRINT_ROWS && r < rows.size(); ++r) {
            const std::vector<model_cell> &cells = rows[r].cells;
            for (size_t i = 0; i < columns.size(); ++i) {
                const bool last = i + 1 == columns.size();
                if (i > 0 && (fancy() || i < cells.size())) out += separator;
                if (i < cells.size())
                    out += render(i, cells[i], fancy() ? !last : !last && i + 1 != cells.size());
                else if (fancy() && !last)
                    out += std::string(columns[i].width(), ' ');
            }
            out += "\n";
        }
        if (parts & COLP_PRINT_SUM_RULE) out += rule();
        if (parts & COLP_PRINT_SUM) out += line(separator, [&](size_t i) { return summary(i); });
        return out;
    }

private:
    size_t last_ = 0;  // the row that new ones follow
    uint64_t next_id_ = 0;

    bool fancy() const { return style >= COLP_STYLE_FANCY; }

    int compare(const model_row &a, const model_row &b, size_t position, uint32_t order) const {
        const bool missing_a = a.cells.size() <= position, missing_b = b.cells.size() <= position;
        const int sign = order == COLP_SORT_ASC ? 1 : -1;
        if (missing_a || missing_b) return missing_a == missing_b ? 0 : missing_a ? -sign : sign;
        const model_column &column = columns[position];
        const model_cell &x = a.cells[position], &y = b.cells[position];
        if (column.type == COLP_INT) {
            const auto m = static_cast<int64_t>(x.number), n = static_cast<int64_t>(y.number);
            return m == n ? 0 : m < n ? -sign : sign;
        }
        if (column.type != COLP_STRING) return x.number == y.number ? 0 : x.number < y.number ? -sign : sign;
        if (column.sort_mode & COLP_SORTMODE_LENGTH && x.text.size() != y.text.size())
            return x.text.size() < y.text.size() ? -sign : sign;
        return sign * std::strcmp(x.text.c_str(), y.text.c_str());
    }

    static std::string measured(uint32_t type, uint64_t number) {
        if (type == COLP_INT) return formatted("%lli", static_cast<long long>(number));
        return formatted(type == COLP_HEX ? "0x%llx" : "%llu", static_cast<unsigned long long>(number));
    }

    // The position after the character that a text is aligned on. A last one above ASCII is never found.
    static std::optional<size_t> split(const std::string &text, int just, char justchar) {
        const size_t found = just == COLP_JUST_FIRSTCHAR              ? text.find(justchar)
                             : static_cast<signed char>(justchar) < 0 ? std::string::npos
                                                                      : text.rfind(justchar);
        return found == std::string::npos ? std::nullopt : std::optional(found + 1);
    }

    static void widen(model_column &column, uint64_t left, uint64_t right) {
        if (left > column.left) column.left = left;
        if (right > column.right) column.right = right;
    }

    static void widen(model_column &column, const std::string &text, int just) {
        if (just < COLP_JUST_FIRSTCHAR) return widen(column, text.size(), 0);
        const auto at = split(text, just, column.justchar);
        widen(column, at ? *at : text.size() + 1, at ? text.size() - *at : 0);
    }

    void measure() {
        for (size_t i = 0; i < columns.size(); ++i) {
            model_column &column = columns[i];
            column.left = column.right = column.sum = 0;
            for (const model_row &row : rows) {
                if (row.cells.size() <= i) continue;
                const model_cell &cell = row.cells[i];
                if (column.summarize) column.sum += cell.number;
                if (column.type == COLP_STRING)
                    widen(column, cell.text, column.cell_just);
                else
                    widen(column, measured(column.type, cell.number).size() + std::strlen(column.suffix), 0);
            }
            if (column.summarize)
                widen(column, measured(column.type, column.sum).size() + std::strlen(column.suffix), 0);
            else if (column.type == COLP_STRING && column.cell_just >= COLP_JUST_FIRSTCHAR)
                widen(column, 1, 0);
            if (column.title_just >= COLP_JUST_FIRSTCHAR)
                widen(column, column.title ? column.title : "", column.title_just);
            if (column.width() < column.min_width) column.left = column.min_width - column.right;
        }
        dirty = false;
    }

    template <typename Field> std::string line(const char *separator, Field field) {
        std::string out;
        for (size_t i = 0; i < columns.size(); ++i) out += (i > 0 ? separator : "") + field(i);
        return out + "\n";
    }

    std::string rule() {
        const char *cross = style == COLP_STYLE_FANCY ? "+" : "-+-";
        return fancy() ? line(cross, [&](size_t i) { return std::string(columns[i].width(), '-'); }) : "";
    }

    std::string title(size_t i) {
        const model_column &column = columns[i];
        if (style == COLP_STYLE_RAW) return column.title ? column.title : "(null)";
        if (!column.title || !*column.title) return std::string(column.width(), ' ');
        return justified(column, column.title_just, column.title, i + 1 != columns.size());
    }

    std::string summary(size_t i) {
        if (columns[i].summarize) return render(i, {"", columns[i].sum}, i + 1 != columns.size());
        const std::string text(1, replacements[style]);
        if (style == COLP_STYLE_RAW) return text;
        return justified(columns[i], columns[i].cell_just, text, i + 1 != columns.size());
    }

    std::string render(size_t i, const model_cell &cell, bool pad_after) {
        const model_column &column = columns[i];
        const int room = static_cast<int>(column.width()) - static_cast<int>(std::strlen(column.suffix));
        const bool raw = style == COLP_STYLE_RAW;
        const int field = raw                                   ? 0
                          : column.cell_just == COLP_JUST_LEFT  ? -room
                          : column.cell_just == COLP_JUST_RIGHT ? room
                                                                : 0;
        const auto number = static_cast<unsigned long long>(cell.number);
        const bool upper = column.hex_case == COLP_HEX_UPPER;
        std::string text = cell.text;
        if (column.type == COLP_INT) text = formatted("%*lli%s", field, static_cast<long long>(number), column.suffix);
        if (column.type == COLP_UINT) text = formatted("%*llu%s", field, number, column.suffix);
        if (column.type == COLP_HEX && column.leading_zero && !raw)
            text = formatted(upper ? "0x%0*llX%s" : "0x%0*llx%s", room - 2, number, column.suffix);
        else if (column.type == COLP_HEX)
            text = formatted(upper ? "0x%llX%s" : "0x%llx%s", number, column.suffix);
        if (raw || text.size() >= column.width()) return text;
        return justified(column, column.cell_just, text, pad_after);
    }

    static std::string justified(const model_column &column, int mode, const std::string &text, bool pad_after) {
        const auto blanks = [](uint64_t above, uint64_t below) {
            return std::string(above > below ? above - below : 0, ' ');
        };
        const uint64_t width = column.width(), length = text.size();
        if (mode == COLP_JUST_LEFT) return text + (pad_after ? blanks(width, length) : "");
        if (mode == COLP_JUST_RIGHT) return blanks(width, length) + text;
        if (mode == COLP_JUST_CENTER) {
            const uint64_t half = width > length ? (width - length) / 2 : 0;
            return std::string(half, ' ') + text + (pad_after ? blanks(width, length + half) : "");
        }
        if (const auto at = split(text, mode, column.justchar))
            return blanks(column.left, *at) + text + (pad_after ? blanks(column.right, length - *at) : "");
        return blanks(column.left, length + 1) + text + (pad_after ? std::string(column.right + 1, ' ') : "");
    }
};
