#include "common/taskobjects.h"

#include <cstdio>
#include <optional>

#include "colp/colp.h"
#include "common/options.h"
#include "platform/kernel.h"

namespace {
constexpr e_longopt long_opts[] = {{"--sort", SB_SORT_OPTION}, {nullptr, 0}};

struct options {
    sb_taskoperand operands = sb_taskoperand::name;
    const char *style = nullptr;
    const char *sort = nullptr;
};

int fail(const sb_taskobjects &what, int status, const char *message) {
    std::fprintf(stderr, "%s: %s\n", what.command, message);
    return status;
}

bool set_switch(const sb_taskobjects &what, int letter) {
    for (const auto &row : what.switches) {
        if (row.letter == letter) return *row.set = true;
    }
    return false;
}

std::optional<int> parse(int &argc, char **&argv, const sb_taskobjects &what, options &opts) {
    e_optstate state;
    e_initoption(&state, &argc, &argv, true);
    e_setlongoption(&state, long_opts);
    for (int c; (c = e_getoption(&state)) != E_END;) {
        switch (c) {
        case 'P': opts.operands = sb_taskoperand::hex; break;
        case 'S':
        case SB_SORT_OPTION: {
            const char *text = sb_gettableoption(what.command, &state, c);
            if (!text) return SB_FAILED;
            (c == 'S' ? opts.style : opts.sort) = text;
            break;
        }
        case E_HELP: what.print_usage(); return SB_DONE;
        default:
            if (set_switch(what, c)) break;
            std::fprintf(stderr, "%s: unknown switch: -%c\n", what.command, c);
            return SB_BAD_SWITCH;
        }
    }
    if (argc == 0) {
        what.print_usage();
        return SB_DONE;
    }
    return std::nullopt;
}

int list_task(const sb_taskobjects &what, colp_table *table, uint64_t iterator, uint64_t task, const options &opts) {
    if (what.begin_task) what.begin_task(what.context, task);
    colp_removerows(table);
    if (_SL_BeginIterator(iterator, task, what.selection) != RESULT_SUCCESS)
        return fail(what, SB_FAILED, "failed to start iteration");
    while (_SL_StepIterator(iterator) == RESULT_SUCCESS) {
        colp_beginrow(table);
        what.add_row(what.context, table, iterator);
        colp_endrow(table);
    }
    if (sb_parse_colp_sort(table, opts.sort) != 0) return SB_FAILED;
    colp_print(table, COLP_PRINT_TITLE | COLP_PRINT_TITLE_RULE | COLP_PRINT_ROWS, stdout);
    return SB_DONE;
}

int list_tasks(const sb_taskobjects &what, colp_table *table, uint64_t iterator, std::span<char *const> operands,
               const options &opts) {
    int status = SB_DONE;
    bool first = true;
    for (const char *operand : operands) {
        uint64_t task = 0;
        if (!sb_resolvetask(operand, opts.operands, &task)) {
            std::fprintf(stderr, "%s: process \"%s\" not found.\n", what.command, operand);
            status = SB_FAILED;
            continue;
        }
        if (!first) std::putchar('\n');
        first = false;
        const auto low_half = static_cast<unsigned>(task);  // all that headings show; kept
        if (opts.operands == sb_taskoperand::name)
            std::printf("Task 0x%X (%s) %s:\n", low_half, operand, what.plural);
        else if (operands.size() > 1)
            std::printf("Task 0x%X %s:\n", low_half, what.plural);
        if (list_task(what, table, iterator, task, opts) != SB_DONE) status = SB_FAILED;
    }
    return status;
}
}  // namespace

int sb_listtaskobjects(int argc, char **argv, const sb_taskobjects &what) {
    options opts;
    if (const auto status = parse(argc, argv, what, opts)) return *status;

    const sb_table table = sb_newtable(what.command, opts.style, what.columns);
    if (!table) return SB_FAILED;
    const uint64_t iterator = _SL_CreateIterator(0, 0);
    if (iterator == NO_OBJECT) return fail(what, SB_NO_ITERATOR, "failed to create iterator");
    const int status = list_tasks(what, table.get(), iterator, {argv, static_cast<size_t>(argc)}, opts);
    _SL_DeleteObject(iterator, DELETE_HANDLE);
    return status;
}
