// commands/tmemo.cpp - the memos of tasks, one table per task.
#include <cstdint>
#include <cstdio>

#include "colp/colp.h"
#include "commands/commands.h"
#include "common/commandline.h"
#include "common/iterators.h"
#include "common/tables.h"
#include "common/taskobjects.h"
#include "common/tasks.h"
#include "platform/kernel.h"
#include "platform/protocol/task.h"

namespace {
constexpr char usage[] = R"(Usage: tmemo TASKNAME... 
  or:  tmemo -P TASKHANDLE... 
Display all memos of a task (aka. process) by handle or name.

    -P                use task handles instead of task names (use C prefixes)
    -S STYLE          set output table style
    --sort SORTSPEC   sort the displayed table, see below

Memo flags:
)";

enum { FLAG_DELETED, FLAG_RECLAIMABLE, FLAG_LOCKED, FLAG_RECLAIMED, FLAG_COUNT };  // positions in the Flags cell

constexpr struct {
    char letter;
    const char *meaning;
} flags[FLAG_COUNT] = {{'D', "Deleted"}, {'R', "Reclaimable"}, {'L', "Reclaim lock"}, {'r', "Reclaimed"}};

void print_lists() {
    for (const auto &[letter, meaning] : flags) std::printf("  %c - %s\n", letter, meaning);
    std::putchar('\n');
    sb_print_colp_styles(stdout);
    std::putchar('\n');
    sb_print_colp_sort(stdout, "SORTSPEC");
}

struct options {
    sb_taskoperand operands = sb_taskoperand::name;
    const char *style = nullptr;
    const char *sort = nullptr;
};

constexpr sb_option<options> option_table[] = {
    sets<&options::operands, sb_taskoperand::hex>('P'),
    takes_style<&options::style>(),
    takes_sort<&options::sort>(),
};
constexpr auto long_opts = sb_longoptions(option_table);
constexpr sb_commandline command_line = {
    .command = "tmemo",
    .usage = usage,
    .print_usage = print_lists,
    .long_options = long_opts.data(),
    .operands = {.min = 1, .words = {sb_word::task}, .missing = SB_SHOW_USAGE},
};

constexpr sb_column columns[] = {
    {COLP_HEX, "Handle", COLP_JUST_RIGHT, COLP_JUST_RIGHT, SB_COLUMN_HANDLE},
    {COLP_STRING, "Type", COLP_JUST_LEFT, COLP_JUST_LEFT},
    {COLP_STRING, "Address", COLP_JUST_RIGHT, COLP_JUST_RIGHT},
    {COLP_UINT, "Size", COLP_JUST_RIGHT, COLP_JUST_RIGHT},
    {COLP_UINT, "Alloc", COLP_JUST_RIGHT, COLP_JUST_RIGHT},
    {COLP_UINT, "Views", COLP_JUST_RIGHT, COLP_JUST_RIGHT},
    {COLP_UINT, "Copies", COLP_JUST_RIGHT, COLP_JUST_RIGHT},
    {COLP_STRING, "Flags", COLP_JUST_RIGHT, COLP_JUST_RIGHT},
};

void add_address(colp_table *table, uint64_t address) {
    char text[2 + TASK_KEY_SIZE + 1] = {'0', 'x'};
    write_task_key(text + 2, address);
    colp_addcell_string(table, text);
}

void add_row(void *, colp_table *table, uint64_t iterator) {
    const auto item = [iterator](uint64_t number) { return sb_iteratoritem(iterator, number, 0); };
    const uint64_t handle = item(OBJINFO_HANDLE);
    const uint64_t type = item(MEMOINFO_TYPE);
    const uint64_t size = item(MEMOINFO_SIZE);
    const uint64_t alloc = item(MEMOINFO_ALLOC);
    const uint64_t views = item(MEMOINFO_VIEWS);
    const uint64_t copies = item(MEMOINFO_COPIES);
    const bool deleted = item(MEMOINFO_DELETED) != 0;
    const uint64_t reclaim = item(MEMOINFO_RECLAIM);

    const bool set[FLAG_COUNT] = {deleted, (reclaim & MEMORECLAIM_RECLAIMABLE) != 0,
                                  (reclaim & MEMORECLAIM_LOCKED) != 0, (reclaim & MEMORECLAIM_RECLAIMED) != 0};
    char letters[FLAG_COUNT + 1] = {};
    for (size_t i = 0; i < FLAG_COUNT; ++i) letters[i] = set[i] ? flags[i].letter : '-';

    colp_addcell_hex(table, handle);
    colp_addcell_string(table, type & MEMO_FIX ? "Fix" : type & MEMO_HW ? "HW" : "Norm");
    if (type & MEMO_FIX)
        add_address(table, item(MEMOINFO_FIXADDR));
    else if (type & MEMO_HW)
        add_address(table, item(MEMOINFO_HWADDR));
    else
        colp_addcell_string(table, "-");
    colp_addcell_uint(table, size);
    colp_addcell_uint(table, alloc);
    colp_addcell_uint(table, views);
    colp_addcell_uint(table, copies);
    colp_addcell_string(table, letters);
}
}  // namespace

constexpr sb_description sb_tmemo_line = sb_describe(command_line, option_table);

int sb_tmemo(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;
    return sb_listtaskobjects({.line = command_line,
                               .plural = "memos",
                               .selection = ITERSEL_MEMOS,
                               .columns = columns,
                               .tasks = {argv, static_cast<size_t>(argc)},
                               .operands = opts.operands,
                               .style = opts.style,
                               .sort = opts.sort,
                               .context = nullptr,
                               .begin_task = nullptr,
                               .add_row = add_row});
}
