// colp/render.cpp - styles, widths and the printing of tables.
#include <algorithm>
#include <array>
#include <bit>
#include <cctype>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <string_view>

#include "colp/records.h"

namespace {

constexpr uint64_t RUN_LENGTH = 32;
using run = char[RUN_LENGTH + 1];
constexpr run dashes = "--------------------------------";
constexpr run spaces = "                                ";
constexpr run zeros = "00000000000000000000000000000000";

constexpr const char *style_list[] = {"raw", "simple", "fancy", "fancyw", nullptr};
constexpr struct {
    const char *name;
    uint32_t style;
} style_map[] = {
    {"raw", COLP_STYLE_RAW}, {"simple", COLP_STYLE_SIMPLE}, {"fancy", COLP_STYLE_FANCY}, {"fancyw", COLP_STYLE_FANCYW}};

// Buffers the text of one print call and writes it to the stream in large pieces. Does not check the writes: the
// stream's owner does.
class output {
public:
    explicit output(FILE *stream) : stream_(stream) {}

    void put(std::string_view text) {
        if (text.size() > room()) {
            flush();
            if (text.size() > sizeof buffer_) {
                std::fwrite(text.data(), 1, text.size(), stream_);
                return;
            }
        }
        std::memcpy(position_, text.data(), text.size());
        position_ += text.size();
    }

    void put(char character) {
        *reserve(1) = character;
        ++position_;
    }

    // Puts the first count characters of an array. Copies all of it: a fixed size costs less than a variable one.
    template <size_t size> void put_part(const char (&array)[size], uint64_t count) {
        std::memcpy(reserve(size), array, size);
        position_ += count;
    }

    // Puts count equal characters.
    void put_run(const run &characters, uint64_t count) {
        for (; count > RUN_LENGTH; count -= RUN_LENGTH) put_part(characters, RUN_LENGTH);
        put_part(characters, count);
    }

    void flush() {
        std::fwrite(buffer_, 1, static_cast<size_t>(position_ - buffer_), stream_);
        position_ = buffer_;
    }

private:
    uint64_t room() const { return static_cast<uint64_t>(std::end(buffer_) - position_); }

    char *reserve(uint64_t count) {
        if (count > room()) flush();
        return position_;
    }

    FILE *stream_;
    char *position_ = buffer_;
    char buffer_[32 << 10];
};

uint64_t column_width(const colp_column *column) { return column->width_left + column->width_right; }

// ---- numbers --------------------------------------------------------------------------------------------------------

constexpr uint64_t MOST_DIGITS = 20;

uint64_t count_decimal_digits(uint64_t value) {
    static constexpr auto powers_of_ten = [] {
        std::array<uint64_t, MOST_DIGITS> powers = {1};
        for (size_t i = 1; i < MOST_DIGITS; ++i) powers[i] = 10 * powers[i - 1];
        return powers;
    }();
    // 1233 / 4096 is log10(2): the count of bits gives the count of digits, or one less.
    const auto guess = static_cast<uint64_t>(std::bit_width(value | 1)) * 1233 / 4096;
    return guess + ((value | 1) >= powers_of_ten[guess] ? 1 : 0);
}

uint64_t count_hex_digits(uint64_t value) { return (static_cast<uint64_t>(std::bit_width(value | 1)) + 3) / 4; }

// The length of a number with its sign or "0x".
uint64_t number_length(uint32_t type, uint64_t value) {
    if (type == COLP_HEX) return 2 + count_hex_digits(value);
    if (type == COLP_INT && value >> 63) return 1 + count_decimal_digits(0 - value);
    return count_decimal_digits(value);
}

// A number's sign or "0x" and its digits.
struct number_text {
    char text[2 + MOST_DIGITS];
    uint64_t length;
};

void format_number(number_text &number, const colp_column *column, uint64_t value) {
    char *digits = number.text;
    char *end = nullptr;
    if (column->type == COLP_HEX) {
        *digits++ = '0';
        *digits++ = 'x';
        end = digits + count_hex_digits(value);
        const char *const shapes = column->hex_case == COLP_HEX_UPPER ? "0123456789ABCDEF" : "0123456789abcdef";
        for (char *digit = end; digit != digits; value >>= 4) *--digit = shapes[value & 15];
    } else {
        if (column->type == COLP_INT && value >> 63) {
            *digits++ = '-';
            value = 0 - value;
        }
        end = std::to_chars(digits, digits + MOST_DIGITS, value).ptr;
    }
    number.length = static_cast<uint64_t>(end - number.text);
}

// ---- widths ---------------------------------------------------------------------------------------------------------

bool lines_up_on_char(uint32_t just) { return just == COLP_JUST_FIRSTCHAR || just == COLP_JUST_LASTCHAR; }

// The length of a text up to and including the character that it lines up on, or 0 where it has none.
uint64_t split_text(uint32_t just, std::string_view text, char justchar) {
    const void *found = just == COLP_JUST_FIRSTCHAR
                            ? std::memchr(text.data(), justchar, text.size())
                            : colp_memrchr__(text.data(), static_cast<signed char>(justchar), text.size());
    return found != nullptr ? static_cast<uint64_t>(static_cast<const char *>(found) - text.data()) + 1 : 0;
}

// Two widths, raised to what each text or number needs.
struct widths {
    uint64_t &left;
    uint64_t &right;

    void take(uint64_t other_left, uint64_t other_right) {
        left = std::max(left, other_left);
        right = std::max(right, other_right);
    }
    void take_text(const colp_column *column, uint32_t just, std::string_view text) {
        if (!lines_up_on_char(just))
            take(text.size(), 0);
        else if (const uint64_t split = split_text(just, text, column->justchar))
            take(split, text.size() - split);
        else
            take(text.size() + 1, 0);
    }
    void take_number(const colp_column *column, uint64_t value) {
        take(number_length(column->type, value) + column->suffix_length, 0);
    }
};

const char *column_title(const colp_column *column, uint64_t width) {
    return column->title_function(column->title_argument, static_cast<int>(width));
}

// Computes a column's widths and sum from its cells, its title and its settings.
void measure_column(colp_column *column) {
    column->sum = column->summarize ? column->cells_sum : 0;
    column->width_left = column->cells_left;
    column->width_right = column->cells_right;
    widths column_widths{column->width_left, column->width_right};
    if (column->summarize)
        column_widths.take_number(column, column->sum);
    else if (column->type == COLP_STRING && lines_up_on_char(column->cell_just))
        column_widths.take(1, 0);
    if (lines_up_on_char(column->title_just)) {
        const char *title = column_title(column, column_width(column));
        column_widths.take_text(column, column->title_just, title != nullptr ? title : empty_string);
    }
    if (column_width(column) < column->min_width) column->width_left = column->min_width - column->width_right;
}

// Computes widths and sums, and allocates the scratch for numbers.
int measure(colp_table *table) {
    uint64_t widest = 0;
    for (colp_column *column = table->first_column; column != nullptr; column = column->next) {
        measure_column(column);
        widest = std::max(widest, column_width(column));
    }
    table->format_buffer.reset();
    table->format_buffer.reset(new (std::nothrow) char[widest + 5]);
    if (!table->format_buffer) return COLP_NO_MEMORY;
    table->dirty = 0;
    return COLP_SUCCESS;
}

// ---- fields ---------------------------------------------------------------------------------------------------------

// Writes a text justified in its column. Blanks after it are written only with pad_after.
void print_justified(output &out, uint32_t mode, std::string_view text, const colp_column *column, bool pad_after) {
    const uint64_t left = column->width_left;
    const uint64_t right = column->width_right;
    const uint64_t blanks = left + right > text.size() ? left + right - text.size() : 0;
    uint64_t before = 0;
    uint64_t after = 0;
    switch (mode) {
    case COLP_JUST_LEFT: after = blanks; break;
    case COLP_JUST_RIGHT: before = blanks; break;
    case COLP_JUST_CENTER:
        before = blanks / 2;
        after = blanks - before;
        break;
    case COLP_JUST_FIRSTCHAR:
    case COLP_JUST_LASTCHAR:
        if (const uint64_t split = split_text(mode, text, column->justchar)) {
            const uint64_t rest = text.size() - split;
            before = left > split ? left - split : 0;
            after = right > rest ? right - rest : 0;
        } else {
            before = left > text.size() + 1 ? left - text.size() - 1 : 0;
            after = right + 1;  // Deliberate: also after a text that fills the column
        }
        break;
    default: std::abort();  // the setters accept no other mode
    }
    out.put_run(spaces, before);
    out.put(text);
    if (pad_after) out.put_run(spaces, after);
}

// Writes a number as printf does for "%*lli%s", "%*llu%s", "0x%llx%s" and "0x%0*llx%s": a negative field width aligns
// left and pads without zeros, and a result longer than INT_MAX is not written at all.
void render_number(output &out, const colp_table *table, const colp_column *column, uint64_t value, bool pad_after) {
    number_text number;
    format_number(number, column, value);
    const bool raw = table->style == COLP_STYLE_RAW;
    const bool hex = column->type == COLP_HEX;
    const auto room = static_cast<int64_t>(column_width(column)) - static_cast<int64_t>(column->suffix_length);
    int64_t field = 0;
    if (!raw && hex && column->leading_zero) field = room - 2;
    if (!raw && !hex && column->cell_just == COLP_JUST_LEFT) field = -room;
    if (!raw && !hex && column->cell_just == COLP_JUST_RIGHT) field = room;
    const auto filled = static_cast<int64_t>(hex ? number.length - 2 : number.length);
    const auto padding = static_cast<uint64_t>(std::max(std::abs(field) - filled, int64_t{0}));

    const uint64_t length = number.length + padding + column->suffix_length;
    if (length > INT_MAX) return;
    const std::string_view suffix{column->suffix, column->suffix_length};
    if (raw || length >= column_width(column)) {
        if (field > 0 && hex) {
            out.put("0x");
            out.put_run(zeros, padding);
            out.put({number.text + 2, number.length - 2});
        } else {
            if (field > 0) out.put_run(spaces, padding);
            out.put_part(number.text, number.length);
            if (field < 0) out.put_run(spaces, padding);
        }
        if (!suffix.empty()) out.put(suffix);
        return;
    }
    // Shorter than the column: it has no padding of its own, and the scratch has room.
    char *text = table->format_buffer.get();
    char *end = std::copy_n(number.text, number.length, text);
    end = std::copy(suffix.begin(), suffix.end(), end);
    print_justified(out, column->cell_just, {text, end}, column, pad_after);
}

// Writes one cell, or the column's sum where cell is null.
void render(output &out, const colp_table *table, const colp_column *column, const colp_cell *cell, bool pad_after) {
    if (cell == nullptr || column->type != COLP_STRING) {
        render_number(out, table, column, cell != nullptr ? cell->number : column->sum, pad_after);
        return;
    }
    const std::string_view text = cell_text(cell);
    if (table->style == COLP_STYLE_RAW || text.size() >= column_width(column))
        out.put(text);
    else
        print_justified(out, column->cell_just, text, column, pad_after);
}

// ---- lines ----------------------------------------------------------------------------------------------------------

std::string_view separator(const colp_table *table) { return table->fancy ? table->column_separator : " "; }

void print_titles(output &out, const colp_table *table) {
    for (const colp_column *column = table->first_column; column != nullptr; column = column->next) {
        const bool raw = table->style == COLP_STYLE_RAW;
        const char *title = column_title(column, raw ? column->min_width : column_width(column));
        if (raw)
            out.put(title != nullptr ? title : "(null)");
        else if (title == nullptr || !*title)
            out.put_run(spaces, column_width(column));
        else
            print_justified(out, column->title_just, title, column, column->next != nullptr);
        if (column->next != nullptr) out.put(separator(table));
    }
    out.put('\n');
}

void print_rule(output &out, const colp_table *table) {
    if (!table->fancy) return;
    for (const colp_column *column = table->first_column; column != nullptr; column = column->next) {
        out.put_run(dashes, column_width(column));
        if (column->next != nullptr) out.put(table->rule_cross);
    }
    out.put('\n');
}

void print_row(output &out, const colp_table *table, const colp_row *row) {
    const std::string_view between = separator(table);
    const colp_column *column = table->first_column;
    const colp_cell *cell = row_cells(row);
    const colp_cell *const end = cell + row->cell_count;
    for (; column != nullptr && cell != end; ++cell, column = column->next) {
        if (column != table->first_column)
            for (const char character : between) out.put(character);
        render(out, table, column, cell, column->next != nullptr && (table->fancy || cell + 1 != end));
    }
    for (; column != nullptr && table->fancy; column = column->next) {
        if (column != table->first_column) out.put(between);
        if (column->next != nullptr) out.put_run(spaces, column_width(column));
    }
    out.put('\n');
}

void print_sums(output &out, const colp_table *table) {
    for (const colp_column *column = table->first_column; column != nullptr; column = column->next) {
        if (column->summarize)
            render(out, table, column, nullptr, column->next != nullptr);
        else if (table->style == COLP_STYLE_RAW)
            out.put(table->sum_replace_raw);
        else
            print_justified(out, column->cell_just, table->fancy ? table->sum_replace_fancy : table->sum_replace_simple,
                            column, column->next != nullptr);
        if (column->next != nullptr) out.put(separator(table));
    }
    out.put('\n');
}
}  // namespace

void colp_measure_cell__(colp_column *column, const colp_cell *cell) {
    widths cell_widths{column->cells_left, column->cells_right};
    if (column->type == COLP_STRING)
        cell_widths.take_text(column, column->cell_just, cell_text(cell));
    else {
        cell_widths.take_number(column, cell->number);
        column->cells_sum += cell->number;
    }
}

int colp_setstyle(colp_table *table, uint32_t style) {
    if (table == nullptr) return COLP_BAD_ARGUMENT;
    if (style > COLP_STYLE_FANCYW) return COLP_BAD_STYLE;
    table->style = style;
    table->fancy = style == COLP_STYLE_FANCY || style == COLP_STYLE_FANCYW;
    if (table->fancy) {
        table->column_separator = style == COLP_STYLE_FANCY ? "|" : " | ";
        table->rule_cross = style == COLP_STYLE_FANCY ? "+" : "-+-";
    }
    return COLP_SUCCESS;
}

int colp_setstylestr(colp_table *table, const char *name) {
    if (table == nullptr || name == nullptr) return COLP_BAD_ARGUMENT;
    for (const auto &entry : style_map)
        if (std::strcmp(entry.name, name) == 0) return colp_setstyle(table, entry.style);
    return COLP_PARSE_ERROR;
}

int colp_setsumreplace(colp_table *table, uint32_t style, char replacement) {
    if (!std::isprint(static_cast<unsigned char>(replacement)) || table == nullptr) return COLP_BAD_ARGUMENT;
    switch (style) {
    case COLP_STYLE_RAW: table->sum_replace_raw[0] = replacement; break;
    case COLP_STYLE_SIMPLE: table->sum_replace_simple[0] = replacement; break;
    case COLP_STYLE_FANCY:
    case COLP_STYLE_FANCYW: table->sum_replace_fancy[0] = replacement; break;
    default: return COLP_BAD_STYLE;
    }
    return COLP_SUCCESS;
}

const char *const *colp_getstylelist() { return style_list; }

int colp_isfancy(colp_table *table) { return table->fancy; }

int colp_print(colp_table *table, int parts, FILE *stream) {
    if (stream == nullptr || table == nullptr) return COLP_BAD_ARGUMENT;
    if (!table->header_ended) return COLP_NO_HEADER;
    if (table->open_row != nullptr) return COLP_ROW_OPEN;
    if (table->dirty)
        if (const int err = measure(table)) return err;

    output out(stream);
    if (parts & COLP_PRINT_TITLE) print_titles(out, table);
    if (parts & COLP_PRINT_TITLE_RULE) print_rule(out, table);
    if (parts & COLP_PRINT_ROWS)
        for (const colp_row *row = table->first_row; row != nullptr; row = row->next) {
            fetch_ahead(row->next, table->column_count);
            print_row(out, table, row);
        }
    if (parts & COLP_PRINT_SUM_RULE) print_rule(out, table);
    if (parts & COLP_PRINT_SUM) print_sums(out, table);
    out.flush();
    std::fflush(stream);
    return COLP_SUCCESS;
}

int colp_print_all(colp_table *table, FILE *stream) { return colp_print(table, COLP_PRINT_ALL, stream); }

int colp_print_except(colp_table *table, int parts, FILE *stream) {
    return colp_print(table, COLP_PRINT_ALL & ~parts, stream);
}
