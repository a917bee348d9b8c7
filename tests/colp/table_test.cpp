// tests/colp/table_test.cpp - which calls a table accepts in which state, and what a refused call leaves untouched.
#include <gtest/gtest.h>

#include <limits>

#include "colp/colp_fixture.h"
#include "colp/records.h"

namespace {

enum state { null_table, declaring, column_open, header_ended, row_open, state_count };

// One column of numbers, brought to the state wanted.
table_owner table_in(state wanted) {
    if (wanted == null_table) return {nullptr, colp_delete};
    table_owner table = new_table();
    if (wanted >= column_open) colp_begincolumn(table.get(), COLP_UINT);
    if (wanted >= header_ended) {
        colp_endcolumn(table.get());
        colp_endheader(table.get());
    }
    if (wanted >= row_open) colp_beginrow(table.get());
    return table;
}

TEST(ColpTable, CallsAreAcceptedInTheirStatesOnly) {
    using call = int (*)(colp_table *);
    static const struct {
        const char *name;
        call make;
        int codes[state_count];
    } cases[] = {
        {"begincolumn", [](colp_table *t) { return colp_begincolumn(t, COLP_INT); }, {1, 0, 12, 10, 10}},
        {"endcolumn", colp_endcolumn, {1, 11, 0, 10, 10}},
        {"endheader", colp_endheader, {1, 0, 12, 10, 10}},
        {"title", [](colp_table *t) { return colp_setcolumn_title(t, "x"); }, {1, 11, 0, 10, 10}},
        {"wrong justification", [](colp_table *t) { return colp_setcolumn_celljust(t, 0); }, {1, 11, 7, 10, 10}},
        {"wrong hex case", [](colp_table *t) { return colp_setcolumn_hexcase(t, 3); }, {1, 11, 6, 10, 10}},
        {"minwidth", [](colp_table *t) { return colp_setcolumn_minwidth(t, -1); }, {1, 11, 0, 10, 10}},
        {"beginrow", colp_beginrow, {1, 9, 9, 0, 15}},
        {"cell", [](colp_table *t) { return colp_addcell_uint(t, 1); }, {1, 13, 13, 13, 0}},
        {"cell of another type", [](colp_table *t) { return colp_addcell_hex(t, 1); }, {1, 13, 13, 13, 8}},
        {"null text", [](colp_table *t) { return colp_addcell_string(t, nullptr); }, {1, 1, 1, 1, 1}},
        {"endrow", colp_endrow, {1, 14, 14, 14, 0}},
        {"id of no column",
         [](colp_table *t) {
             uint32_t id;
             return colp_getcolumnid(t, 1, &id);
         },
         {1, 9, 9, 16, 16}},
        {"print", [](colp_table *t) { return colp_print(t, 0, stderr); }, {1, 9, 9, 0, 15}},
        {"print to nothing", [](colp_table *t) { return colp_print_all(t, nullptr); }, {1, 1, 1, 1, 1}},
        {"style", [](colp_table *t) { return colp_setstyle(t, 4); }, {1, 4, 4, 4, 4}},
        {"style of no name", [](colp_table *t) { return colp_setstylestr(t, "Raw"); }, {1, 3, 3, 3, 3}},
        {"sum character", [](colp_table *t) { return colp_setsumreplace(t, 4, '-'); }, {1, 4, 4, 4, 4}},
        {"no sum character", [](colp_table *t) { return colp_setsumreplace(t, 4, '\xE9'); }, {1, 1, 1, 1, 1}},
    };
    for (const auto &[name, make, codes] : cases)
        for (int i = null_table; i < state_count; ++i)
            EXPECT_EQ(make(table_in(static_cast<state>(i)).get()), codes[i]) << name << " in state " << i;
    EXPECT_EQ(colp_begincolumn(new_table().get(), 0), COLP_BAD_TYPE);
    EXPECT_EQ(colp_begincolumn(new_table().get(), 5), COLP_BAD_TYPE);
    EXPECT_STREQ(colp_strerror(18), "Invalid sort order");
    for (const int code : {-1, 19, INT_MIN, INT_MAX}) EXPECT_STREQ(colp_strerror(code), "<unknown error>");
}

TEST(ColpTable, SortIsRefusedInOrderOfItsChecks) {
    static const struct {
        state in;
        uint32_t order;
        uint32_t id;
        int code;
    } cases[] = {{declaring, 1, 1, 9},     {row_open, 1, 1, 15},     {header_ended, 7, 2, 16},
                 {header_ended, 0, 2, 16}, {header_ended, 3, 1, 18}, {header_ended, 0, 1, 0}};
    for (const auto &[in, order, id, code] : cases)
        EXPECT_EQ(colp_sort(table_in(in).get(), order, id), code) << in << ' ' << order << ' ' << id;

    const table_owner table = table_in(header_ended);
    table->first_column->type = 5;
    EXPECT_EQ(colp_sort(table.get(), 3, 1), COLP_NOT_COMPARABLE);
    uint32_t order = 9;
    EXPECT_EQ(colp_parse_sortorder(&order, "ASC"), COLP_PARSE_ERROR);
    EXPECT_EQ(order, 9u);
    EXPECT_EQ(colp_parse_sortorder(nullptr, "asc"), COLP_BAD_ARGUMENT);
    for (const char *const *name = colp_getsortorderlist(); *name; ++name)
        EXPECT_EQ(colp_parse_sortorder(&order, *name), COLP_SUCCESS);
    EXPECT_EQ(order, COLP_SORT_UNORD);
}

TEST(ColpTable, IdsCountOnAfterCleaning) {
    const table_owner table = table_in(row_open);
    colp_clean(table.get());
    EXPECT_EQ(colp_addcell_uint(table.get(), 1), COLP_NO_MORE_COLUMNS);
    for (uint32_t expected = 2; expected < 5; ++expected) {
        uint32_t id = 0;
        EXPECT_EQ(colp_begincolumn_columnid(table.get(), COLP_STRING, &id), COLP_SUCCESS);
        EXPECT_EQ(id, expected);
        colp_endcolumn(table.get());
    }
}

TEST(ColpTable, TitlesAreAskedForWithTheWidth) {
    static std::string widths;
    const table_owner table = new_table();
    colp_begincolumn(table.get(), COLP_STRING);
    colp_setcolumn_minwidth(table.get(), 3);
    colp_setcolumn_titlejust(table.get(), COLP_JUST_LASTCHAR);
    const auto title = [](void *argument, int width) -> const char * {
        widths += std::to_string(width) + " ";
        return static_cast<char *>(argument);
    };
    std::string text = std::string(70000, '1') + ".2.34";  // more than is buffered
    colp_setcolumn_titlefunc(table.get(), title, text.data());
    colp_endcolumn(table.get());
    colp_endheader(table.get());
    EXPECT_EQ(printed(table.get(), COLP_PRINT_TITLE), text + '\n');
    EXPECT_EQ(widths, "0 70005 ");  // measured beside no cells, and with what it asked for
    colp_setstyle(table.get(), COLP_STYLE_RAW);
    printed(table.get(), COLP_PRINT_TITLE);
    EXPECT_EQ(widths, "0 70005 3 ");
    colp_beginrow(table.get());
    colp_addcell_string(table.get(), text.c_str());
    colp_endrow(table.get());
    EXPECT_EQ(printed(table.get(), COLP_PRINT_ROWS), text + '\n');
}

}  // namespace
