// tests/colp/random_table.h - a table and its model, built and changed by the same random calls.
#pragma once

#include <initializer_list>
#include <utility>

#include "colp/model.h"

// Random returns the next of 2^32 numbers.
template <class Random> class random_table {
public:
    random_table(Random &random, size_t most_rows) : random_(random), most_rows_(most_rows) {
        style_ = below(4);
        model_.style = style_;
        check(colp_setstyle(table_.get(), style_));
        if (one_in(2)) {
            model_.replacements[style_] = pick({'.', '=', '0', '~'});
            check(colp_setsumreplace(table_.get(), style_, model_.replacements[style_]));
        }
        for (uint32_t count = one_in(20) ? 0 : 1 + below(6); count > 0; --count) declare_column();
        check(colp_endheader(table_.get()));
    }

    void step() {
        switch (below(8)) {
        case 0:
            colp_removerows(table_.get());
            model_.remove_rows();
            row_count_ = 0;
            break;
        case 1: add_late_cell(); break;
        case 2:
        case 3: sort(); break;
        case 4:
        case 5:
            for (uint64_t count = below(one_in(4) ? most_rows_ : 20); count > 0; --count) add_row();
            break;
        default: print(static_cast<int>(below(COLP_PRINT_ALL + 1)));
        }
    }

    void print(int parts) {
        const std::string output = printed(table_.get(), parts), expected = model_.print(parts);
        if (output != expected) complaint_ += "printed:\n" + output + "instead of:\n" + expected;
        if (colp_getrowcount(table_.get()) != row_count_) complaint_ += "wrong number of rows\n";
    }

    // What was not as the model has it, so far.
    const std::string &complaint() const { return complaint_; }

    colp_table *table() { return table_.get(); }
    model_table &model() { return model_; }

private:
    void check(int code, int expected = COLP_SUCCESS) {
        if (code != expected) complaint_ += "code " + std::to_string(code) + "\n";
    }

    uint64_t bits() {
        const uint64_t high = random_();
        return high << 32 | random_();
    }
    uint32_t below(size_t limit) { return static_cast<uint32_t>(random_() % limit); }
    bool one_in(uint32_t chances) { return below(chances) == 0; }
    template <typename Choice> Choice pick(std::initializer_list<Choice> choices) {
        return choices.begin()[below(choices.size())];
    }

    void declare_column() {
        const bool flag = one_in(2);
        model_column &column = model_.columns.emplace_back();
        column.type = 1 + below(4);
        column.min_width = pick({0u, 0u, below(12), 30 + below(40), one_in(20) ? 70000u : 3u});
        column.title = pick<const char *>({nullptr, "", "T", "a.b.c", "Title of some length"});
        column.title_just = 1 + static_cast<int>(below(5));
        column.cell_just = 1 + static_cast<int>(below(5));
        column.hex_case = 1 + static_cast<int>(below(2));
        column.sort_mode = below(4);
        column.suffix = pick<const char *>({"", "", "M", ".x e", " of some length"});
        column.leading_zero = column.summarize = flag;
        column.justchar = pick({'.', 'e', '3', '\xE9'});
        check(declare(table_.get(), column));
        column.leading_zero = flag && column.type == COLP_HEX;  // other columns take no notice
        column.summarize = flag && column.type != COLP_STRING;
    }

    model_cell random_cell() {
        std::string text = beginning_ ? beginning_ : pick({"", "x", "process-", "running.", "\xE9t\xE9."});
        for (uint32_t more = one_in(30) ? 240 + below(40) : below(12); more > 0; --more)
            text += pick({'.', 'e', '3', '\xE9', 'B'});
        const uint64_t wide = bits() >> below(64);
        return {text, pick({wide, 0 - wide, uint64_t{below(4)}, uint64_t{1} << 63, ~uint64_t{0},
                            pick<uint64_t>({9, 10, 99, 100, 999999999, 1000000000})})};
    }

    model_cell add_cell_to(const model_column &column) {
        model_cell cell = random_cell();
        check(add_cell(table_.get(), column.type, cell));
        return cell;
    }

    void add_row() {
        std::vector<model_cell> cells;
        const size_t count = one_in(3) ? below(model_.columns.size() + 1) : model_.columns.size();
        check(colp_beginrow(table_.get()));
        while (cells.size() < count) cells.push_back(add_cell_to(model_.columns[cells.size()]));
        check(colp_endrow(table_.get()));
        model_.add_row(std::move(cells));
        ++row_count_;
    }

    // A row that was ended short takes another cell, even when it was printed or sorted meanwhile.
    void add_late_cell() {
        model_row *row = model_.newest();
        if (!row || row->cells.size() == model_.columns.size()) {
            check(colp_addcell_uint(table_.get(), 1), COLP_NO_MORE_COLUMNS);
            return;
        }
        row->cells.push_back(add_cell_to(model_.columns[row->cells.size()]));
    }

    void sort() {
        if (model_.columns.empty()) return;
        const uint32_t position = below(model_.columns.size());
        const uint32_t order = pick<uint32_t>({COLP_SORT_ASC, COLP_SORT_DESC, COLP_SORT_ASC, COLP_SORT_UNORD});
        uint32_t id = 0;
        check(colp_getcolumnid(table_.get(), position, &id));
        check(colp_sort(table_.get(), order, id));
        model_.sort(position, order);
    }

    Random &random_;
    size_t most_rows_;
    const char *beginning_ = one_in(3) ? "process-" : nullptr;  // of all texts of the table
    std::string complaint_;
    uint32_t style_ = 0;
    uint64_t row_count_ = 0;  // rows that a sort let drop out count on
    table_owner table_ = new_table();
    model_table model_;
};
