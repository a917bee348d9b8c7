// Printed tables, written out.
#include "colp/colp_fixture.h"
#include "colp/records.h"

namespace {

struct number_column {
    uint32_t type;
    uint64_t value;
    int just = COLP_JUST_LEFT;
    int min_width = 0;
    const char *suffix = "";
    bool leading_zero = false;
};

void add_number(colp_table *table, const number_column &number) {
    if (number.type == COLP_INT) colp_addcell_int(table, static_cast<int64_t>(number.value));
    if (number.type == COLP_UINT) colp_addcell_uint(table, number.value);
    if (number.type == COLP_HEX) colp_addcell_hex(table, number.value);
}

// A column of one number, closed to its right by another column.
table_owner number_table(const number_column &number, bool late = false) {
    table_owner table = new_table();
    colp_table *t = table.get();
    colp_setstyle(t, COLP_STYLE_FANCY);
    colp_begincolumn(t, number.type);
    colp_setcolumn_celljust(t, number.just);
    colp_setcolumn_minwidth(t, number.min_width);
    colp_setcolumn_suffix(t, number.suffix);
    colp_setcolumn_leadingzero(t, number.leading_zero);
    colp_endcolumn(t);
    colp_begincolumn(t, COLP_STRING);
    colp_endcolumn(t);
    colp_endheader(t);
    colp_beginrow(t);
    if (!late) add_number(t, number);
    colp_endrow(t);
    if (late) {
        printed(t, 0);
        add_number(t, number);
    }
    return table;
}

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
        colp_begincolumn(t, COLP_STRING);
        colp_setcolumn_title(t, "Name");
        colp_setcolumn_minwidth(t, 4);
        colp_endcolumn(t);
        colp_begincolumn(t, COLP_UINT);
        colp_setcolumn_title(t, "Size");
        colp_setcolumn_celljust(t, COLP_JUST_RIGHT);
        colp_setcolumn_minwidth(t, 4);
        colp_setcolumn_summarize(t, 1);
        colp_endcolumn(t);
        colp_endheader(t);
        for (const auto &[name, size] : {std::pair{"a", 10u}, std::pair{"bcd", 2345u}}) {
            colp_beginrow(t);
            colp_addcell_string(t, std::string(name).c_str());
            colp_addcell_uint(t, size);
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
        number_column number;
        const char *field;
    } cases[] = {
        {false, {COLP_UINT, 12, COLP_JUST_LEFT, 6, "M"}, "12   M"},
        {false, {COLP_UINT, 12, COLP_JUST_FIRSTCHAR, 6}, "   12 "},
        {false, {COLP_INT, uint64_t{1} << 63, COLP_JUST_RIGHT, 21}, " -9223372036854775808"},
        {false, {COLP_HEX, 31, COLP_JUST_RIGHT, 10, "h"}, "     0x1fh"},
        {false, {COLP_HEX, 31, COLP_JUST_LEFT, 10, "h", true}, "0x000001fh"},
        {true, {COLP_UINT, 12, COLP_JUST_LEFT, 0, "MMMM"}, "  12MMMM"},
        {true, {COLP_INT, ~uint64_t{0}, COLP_JUST_RIGHT, 1, "MMMM"}, "-1 MMMM"},
        {true, {COLP_HEX, 31, COLP_JUST_LEFT, 0, "MMMM", true}, "0x1f    MMMM"},
        {true, {COLP_HEX, 31, COLP_JUST_LEFT, 5, "MMMM", true}, "0x1fMMMM"},
    };
    for (const auto &[late, number, field] : cases)
        EXPECT_EQ(printed(number_table(number, late).get(), COLP_PRINT_ROWS), std::string(field) + "|\n");
}

TEST(ColpPrint, TitlesAreAskedForWithTheWidth) {
    static std::string widths;
    const table_owner table = new_table();
    colp_table *t = table.get();
    colp_begincolumn(t, COLP_STRING);
    colp_setcolumn_minwidth(t, 3);
    colp_setcolumn_titlejust(t, COLP_JUST_LASTCHAR);
    const auto title = [](void *argument, int width) -> const char * {
        widths += std::to_string(width) + " ";
        return static_cast<char *>(argument);
    };
    char text[] = "1.2.34";
    colp_setcolumn_titlefunc(t, title, text);
    colp_endcolumn(t);
    colp_endheader(t);
    colp_beginrow(t);
    colp_addcell_string(t, "abcde");
    colp_endrow(t);
    EXPECT_EQ(printed(t, COLP_PRINT_TITLE), " 1.2.34\n");
    EXPECT_EQ(widths, "5 7 ");  // measured beside the cells, and with what it asked for
    colp_setstyle(t, COLP_STYLE_RAW);
    printed(t, COLP_PRINT_TITLE);
    EXPECT_EQ(widths, "5 7 3 ");
}

TEST(ColpPrint, AnUnknownJustificationAborts) {
    const table_owner table = number_table({COLP_HEX, 1, COLP_JUST_LEFT, 10});
    table->first_column->cell_just = 6;
    EXPECT_DEATH(colp_print_all(table.get(), stderr), "");
}
}  // namespace
