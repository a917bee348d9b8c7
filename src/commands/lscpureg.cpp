// commands/lscpureg.cpp - the processor registers that the kernel knows.
#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "colp/colp.h"
#include "commands/commands.h"
#include "common/commandline.h"
#include "common/registers.h"
#include "common/tables.h"
#include "common/text.h"
#include "platform/kernel.h"

namespace {
constexpr char table_name[] = "lsreg";  // Deliberate: names this command in messages about its table

constexpr char usage[] = R"(Usage: lscpureg [OPTION]...
List registers known by the kernel.

    -S    set output table style

)";

struct options {
    const char *style = nullptr;
};

void print_styles() { sb_print_colp_styles(stdout); }

constexpr sb_option<options> option_table[] = {takes_style<&options::style>()};
constexpr sb_commandline command_line = {
    .command = "lscpureg", .usage = usage, .print_usage = print_styles, .operands = SB_NO_OPERANDS};

constexpr sb_column columns[] = {
    {COLP_STRING, "Name", COLP_JUST_LEFT, COLP_JUST_LEFT},
    {COLP_STRING, "Flags", COLP_JUST_LEFT, COLP_JUST_LEFT},
    {COLP_UINT, "Width", COLP_JUST_RIGHT, COLP_JUST_RIGHT},
    {COLP_HEX, "Tag", COLP_JUST_LEFT, COLP_JUST_LEFT, SB_COLUMN_HANDLE, nullptr, 16},
};

int report(const sb_registerfault &fault, uint64_t number) {
    const auto code = static_cast<unsigned>(fault.code);
    const auto failed = [code](const char *what) {
        std::fprintf(stderr, "ERROR (0x%04X): failed to %s\n", code, what);
    };
    switch (fault.step) {
    case sb_registerstep::done: return SB_DONE;
    case sb_registerstep::count: failed("read KSYSIDX_REGISTERINFO_COUNT"); break;
    case sb_registerstep::stride: failed("read KSYSIDX_REGISTERINFO_STRIDE"); break;
    case sb_registerstep::max_name: failed("read KSYSIDX_REGISTERINFO_MAXNAMELEN"); break;
    case sb_registerstep::id:
        std::fprintf(stderr, "ERROR (0x%04X): failed to get tag of register #%" PRIu64 "\n", code, number);
        break;
    case sb_registerstep::type:
        std::fprintf(stderr, "ERROR (0x%04X): failed to get type of register #%" PRIu64 "\n", code, number);
        break;
    case sb_registerstep::name:
        std::fprintf(stderr, "ERROR (0x%04X): failed to get name @%" PRIu64 " of register #%" PRIu64 "\n", code,
                     fault.offset, number);
        break;
    }
    return SB_FAILED;
}

void add_row(colp_table *table, const sb_register &reg, const char *name) {
    char flags[24] = {reg.type & CPUREG_READABLE ? 'r' : '-', reg.type & CPUREG_WRITABLE ? 'w' : '-'};
    const uint64_t unnamed = reg.type & ~uint64_t{CPUREG_WIDTH | CPUREG_READABLE | CPUREG_WRITABLE};
    if (unnamed != 0) std::snprintf(flags + 2, sizeof flags - 2, " (0x%" PRIx64 ")", unnamed);
    colp_beginrow(table);
    colp_addcell_string(table, name);
    colp_addcell_string(table, flags);
    colp_addcell_uint(table, reg.type & CPUREG_WIDTH);
    colp_addcell_hex(table, reg.id);
    colp_endrow(table);
}

int add_rows(colp_table *table) {
    sb_registerinfo info;
    if (const auto fault = sb_getregisterinfo(&info); fault.step != sb_registerstep::done) return report(fault, 0);
    if (info.max_name == UINT64_MAX) {
        std::fprintf(stderr, "The retrieved maximal register name length is too long: %" PRIu64 "\n", info.max_name);
        return SB_FAILED;
    }
    const sb_text name = sb_newregistername(info);
    if (!name) {
        std::fprintf(stderr, "Could not allocate %" PRIu64 " character long register name buffer: %s\n", info.max_name,
                     std::strerror(ENOMEM));
        return SB_FAILED;
    }
    for (uint64_t i = 0; i < info.count; ++i) {
        sb_register reg;
        if (const auto fault = sb_getregister(info, i, &reg, name.get()); fault.step != sb_registerstep::done)
            return report(fault, i);
        add_row(table, reg, name.get());
    }
    return SB_DONE;
}
}  // namespace

constexpr sb_description sb_lscpureg_line = sb_describe(command_line, option_table);

int sb_lscpureg(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;

    const sb_table table = sb_newtable(table_name, opts.style, columns);
    if (!table) return SB_FAILED;
    const int status = add_rows(table.get());
    if (status == SB_DONE) colp_print(table.get(), COLP_PRINT_TITLE | COLP_PRINT_TITLE_RULE | COLP_PRINT_ROWS, stdout);
    return status;
}
