// commands/tview.cpp - the views of tasks, one table per task.
#include <cstdint>
#include <cstdio>
#include <iterator>

#include "colp/colp.h"
#include "commands/commands.h"
#include "common/commandline.h"
#include "common/iterators.h"
#include "common/tables.h"
#include "common/taskobjects.h"
#include "common/tasks.h"
#include "platform/kernel.h"

namespace {
constexpr char usage[] = R"(Usage: tview TASKNAME...
  or:  tview -P TASKHANDLE...
Display all views of a task (aka. process) by handle or name.

    -f                decode advanced view flags
    -P                use task handles instead of task names (use C prefixes)
    -n                display task names where possible
    -S STYLE          set output table style
    --sort SORTSPEC   sort the displayed table, see below

)";

// View flags, in the order of the Flags cell.
constexpr struct {
    char letter;
    uint64_t bit;
    bool denies;  // shown when the bit is clear
    const char *meaning;
} flags[] = {
    {'R', VIEWFLAG_DENY_READ, true, "read permission (by default)"},
    {'W', VIEWFLAG_DENY_WRITE, true, "write permission (by default)"},
    {'X', VIEWFLAG_DENY_EXECUTE, true, "execute permission (by default)"},
    {'S', VIEWFLAG_SHARED, false, "view is shared with other tasks"},
    {'F', VIEWFLAG_FORCED, false, "view has forced access (omit constructor)"},
    {'P', VIEWFLAG_MIXED_PAGES, false, "some pages has different protection settings"},
    {'p', VIEWFLAG_EXPLICIT_LIMITS, false, "explicitly set protection constraints"},
    {'r', VIEWFLAG_MAY_READ, false, "read permission can be granted"},
    {'t', VIEWFLAG_MAY_WRITE, false, "write permission can be granted"},  // w is write-through
    {'x', VIEWFLAG_MAY_EXECUTE, false, "execute permission can be granted"},
    {'w', VIEWFLAG_WRITE_THROUGH, false, "write-through (if not set: write-back)"},
    {'i', VIEWFLAG_CACHE_INHIBITED, false, "cache-inhibited (if not set: cacheable)"},
    {'m', VIEWFLAG_COHERENT, false, "cache coherent"},
    {'g', VIEWFLAG_GUARDED, false, "guarded"},
};
constexpr size_t BASIC_FLAGS = 6;  // shown without -f

void print_lists() {
    sb_print_colp_styles(stdout);
    std::putchar('\n');
    sb_print_colp_sort(stdout, "SORTSPEC");
    std::puts("\nView flags:");
    for (const auto &flag : flags) std::printf("  %c - %s\n", flag.letter, flag.meaning);
}

struct options {
    sb_taskoperand operands = sb_taskoperand::name;
    const char *style = nullptr;
    const char *sort = nullptr;
    bool all_flags = false;
    bool names = false;
};

constexpr sb_option<options> option_table[] = {
    sets<&options::all_flags>('f'), sets<&options::operands, sb_taskoperand::hex>('P'),
    sets<&options::names>('n'),     takes_style<&options::style>(),
    takes_sort<&options::sort>(),
};
constexpr auto long_opts = sb_longoptions(option_table);
constexpr sb_commandline command_line = {
    .command = "tview",
    .usage = usage,
    .print_usage = print_lists,
    .long_options = long_opts.data(),
    .operands = {.min = 1, .words = {sb_word::task}, .missing = SB_SHOW_USAGE},
};

constexpr sb_column number(const char *title) {
    return {COLP_HEX, title, COLP_JUST_RIGHT, COLP_JUST_RIGHT, SB_COLUMN_HANDLE};
}
constexpr sb_column columns[] = {
    number("Handle"), number("Begin"), number("End"),
    number("Size"),   number("Offs"),  {COLP_STRING, "Flags", COLP_JUST_RIGHT, COLP_JUST_LEFT},
    number("Memo"),   number("Owner"), {COLP_STRING, "", COLP_JUST_LEFT, COLP_JUST_LEFT}};

struct listing {
    const options &opts;
    uint64_t page_size = 0;
    uint64_t master = 0;  // of the task listed
};

void begin_task(void *context, uint64_t task) {
    auto &list = *static_cast<listing *>(context);
    list.page_size = _SL_GetState(KSTATE_PAGE_SIZE);
    list.master = sb_get_master(task);
}

uint64_t memo_owner(uint64_t memo) {
    uint64_t owner = 0;
    return _SL_GetObjectInfo(memo, OBJINFO_OWNER, &owner) == RESULT_SUCCESS ? sb_get_master(owner) : 0;
}

void add_flags(colp_table *table, uint64_t bits, bool all) {
    char letters[std::size(flags) + 1] = {};
    const size_t shown = all ? std::size(flags) : BASIC_FLAGS;
    for (size_t i = 0; i < shown; ++i) {
        const bool set = (bits & flags[i].bit) != 0;
        letters[i] = set != flags[i].denies ? flags[i].letter : '-';
    }
    colp_addcell_string(table, letters);
}

// A row without a name, or of another task's memo, ends one cell short.
void add_row(void *context, colp_table *table, uint64_t iterator) {
    const auto &list = *static_cast<const listing *>(context);
    const auto item = [iterator](uint64_t number) { return sb_iteratoritem(iterator, number, 0); };
    const uint64_t handle = item(OBJINFO_HANDLE);
    const uint64_t begin = item(VIEWINFO_BEGIN);
    const uint64_t size = item(VIEWINFO_PAGES) * list.page_size;
    const uint64_t offset = item(VIEWINFO_OFFSET) * list.page_size;
    const uint64_t memo = item(VIEWINFO_MEMO);
    const uint64_t bits = item(VIEWINFO_FLAGS);
    const uint64_t owner = memo_owner(memo);

    colp_addcell_hex(table, handle);
    colp_addcell_hex(table, begin);
    colp_addcell_hex(table, begin + size - 1);
    colp_addcell_hex(table, size);
    colp_addcell_hex(table, offset);
    add_flags(table, bits, list.opts.all_flags);
    colp_addcell_hex(table, memo);
    colp_addcell_hex(table, owner);
    if (list.opts.names) {
        char name[64];
        if (sb_gettaskname(owner, name, sizeof name - 1)) colp_addcell_string(table, name);
    } else if (owner == list.master) {
        colp_addcell_string(table, "Self");
    }
}
}  // namespace

constexpr sb_description sb_tview_line = sb_describe(command_line, option_table);

int sb_tview(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;
    listing list = {opts};
    return sb_listtaskobjects({.line = command_line,
                               .plural = "views",
                               .selection = ITERSEL_VIEWS,
                               .columns = columns,
                               .tasks = {argv, static_cast<size_t>(argc)},
                               .operands = opts.operands,
                               .style = opts.style,
                               .sort = opts.sort,
                               .context = &list,
                               .begin_task = begin_task,
                               .add_row = add_row});
}
