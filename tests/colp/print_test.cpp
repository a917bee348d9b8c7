// Printed tables, written out.
#include <gtest/gtest.h>

#include "colp/model.h"
#include "colp/records.h"

namespace {

TEST(ColpPrint, TheFourStyles) {
    static const struct {
        const char *style, *output;
    } cases[] = {
        {"simple", "Name Size\na      10\nbcd  2345\n     2355\n"},
        {"fancy", "Name|Size\n----+----\na   |  10\nbcd |2345\n----+----\n    |2355\n"},
        {"fancyw", "Name | Size\n-----+-----\na    |   10\nbcd  | 2345\n-----+-----\n     | 2355\n"},
        {"raw", "Name Size\na 10\nbcd 2345\n- 2355\n"},
    };
    for (const auto &[style, output] : cases) {
        const table_owner table = new_table();
        colp_table *t = table.get();
        EXPECT_EQ(colp_setstylestr(t, style), COLP_SUCCESS);
        EXPECT_EQ(colp_isfancy(t), std::string(style).starts_with("fancy"));
        declare(t, {.min_width = 4, .title = "Name"});
        declare(t, {.type = COLP_UINT, .min_width = 4, .title = "Size", .cell_just = 2, .summarize = true});
        colp_endheader(t);
        for (const model_cell &cell : {model_cell{"a", 10}, model_cell{"bcd", 2345}}) {
            colp_beginrow(t);
            add_cell(t, COLP_STRING, cell);
            add_cell(t, COLP_UINT, cell);
            colp_endrow(t);
        }
        for (int repeat = 0; repeat < 2; ++repeat) EXPECT_EQ(printed(t, COLP_PRINT_ALL), output) << style;
        EXPECT_EQ(printed(t, 0), "");
    }
}

// A cell added behind an ended and printed row was not measured, so it can be wider than its column. Field widths then
// go below zero, which printf takes for the other alignment, and for no zeros.
TEST(ColpPrint, Numbers) {
    static const struct {
        bool late;
        model_column column;
        uint64_t number;
        const char *field;
    } cases[] = {
        {false, {.type = COLP_UINT, .min_width = 6, .suffix = "M"}, 12, "12   M"},
        {false, {.type = COLP_INT, .min_width = 21, .cell_just = 2}, uint64_t{1} << 63, " -9223372036854775808"},
        {false, {.type = COLP_HEX, .min_width = 10, .leading_zero = true}, 31, "0x0000001f"},
        {true, {.type = COLP_UINT, .suffix = "MMMM"}, 12, "  12MMMM"},
        {true, {.type = COLP_INT, .min_width = 1, .cell_just = 2, .suffix = "MMMM"}, ~uint64_t{0}, "-1 MMMM"},
        {true, {.type = COLP_HEX, .suffix = "MMMM", .leading_zero = true}, 31, "0x1f    MMMM"},
    };
    for (const auto &[late, column, number, field] : cases) {
        const table_owner table = new_table();
        declare(table.get(), column);
        colp_endheader(table.get());
        colp_beginrow(table.get());
        if (!late) add_cell(table.get(), column.type, {"", number});
        colp_endrow(table.get());
        if (late) printed(table.get(), 0);
        if (late) add_cell(table.get(), column.type, {"", number});
        EXPECT_EQ(printed(table.get(), COLP_PRINT_ROWS), std::string(field) + "\n");
    }
}

TEST(ColpPrint, TitlesAreAskedForWithTheWidth) {
    static std::string widths;
    const table_owner table = new_table();
    colp_begincolumn(table.get(), COLP_STRING);
    colp_setcolumn_minwidth(table.get(), 3);
    colp_setcolumn_titlejust(table.get(), COLP_JUST_LASTCHAR);
    const auto title = [](void *argument, int width) -> const char * {
        widths += std::to_string(width) + " ";
        return static_cast<char *>(argument);
    };
    char text[] = "1.2.34";
    colp_setcolumn_titlefunc(table.get(), title, text);
    colp_endcolumn(table.get());
    colp_endheader(table.get());
    EXPECT_EQ(printed(table.get(), COLP_PRINT_TITLE), text + std::string("\n"));
    EXPECT_EQ(widths, "0 6 ");  // measured beside no cells, and with what it asked for
    colp_setstyle(table.get(), COLP_STYLE_RAW);
    printed(table.get(), COLP_PRINT_TITLE);
    EXPECT_EQ(widths, "0 6 3 ");
}

TEST(ColpPrint, AnUnknownJustificationAborts) {
    const table_owner table = new_table();
    declare(table.get(), {.min_width = 1});
    colp_endheader(table.get());
    table->first_column->cell_just = 6;
    EXPECT_DEATH(colp_print_all(table.get(), stderr), "");
}
}  // namespace
