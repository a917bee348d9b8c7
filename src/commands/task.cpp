// commands/task.cpp - the tasks of the system, one row each, with sums and a footer.
#include <array>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <optional>
#include <span>
#include <string_view>

#include "colp/colp.h"
#include "commands/commands.h"
#include "common/commandline.h"
#include "common/iterators.h"
#include "common/tables.h"
#include "common/tasks.h"
#include "platform/device.h"
#include "platform/kernel.h"
#include "platform/protocol/task.h"
#include "platform/sysvc.h"

namespace {
constexpr char usage[] = R"(Usage: task [OPTION]...
Print process/task list.

    -a, --all-common    show all commonly used columns
    -A, --all           show all columns
    -c, --crtick        show task creation tick
    -C, --ctxsw         show context switch counters
    -d, --sid           show SID
    -f, --flags         show task flags
    -g, --group         show group handles
    -G, --pgid          show PGID
    -h, --handles       show number of handles in the footer
    -i, --pid           show PID
    -I, --ppid          show PPID (parent PID)
    -l, --slabstat      show per-task slab statistics
    -L, --legend        show task state/flag legend in the footer
    -n, --name          show symbolic names (process names)
    -m, --mainmem       show main memory chunk info
    -p, --pfnum         show page fault counts
    -P, --parent        show parent (or creator) task handle
    -R, --isrtime       show isr execution time
    -s, --state         show task states
    -S, --style STYLE   specify table style
    --sort SORTSPEC     sort the displayed table, see below
    -t, --exetime       show execution time
    -T, --accumtime     show accumulated time (includes all 3 times)
    -u, --uptime        show uptime in the footer
    -U, --giduid        show user and group IDs
    -v, --virt          show total virtual allocation
    -w, --hwid          show hardware process IDs
    -y, --syscall       show number of system calls initiated
    -Y, --systime       show time spent in the kernel (aka. system time)
)";

// A set of options by their letters: those that show columns, then those that show parts of the footer.
constexpr uint64_t option_set(std::string_view letters) {
    uint64_t set = 0;
    for (const char letter : letters) set |= uint64_t{1} << (letter - 'A');
    return set;
}
constexpr uint64_t bit(char letter) { return option_set({&letter, 1}); }
constexpr char ALWAYS = '_';  // not an option: always in the set

constexpr uint64_t COMMON = option_set("gPwUslvTypn");
constexpr uint64_t ALL = COMMON | option_set("iIGdtRYfcC");

struct options {
    uint64_t shown = bit(ALWAYS);
    const char *style = nullptr;
    const char *sort = nullptr;
};

void print_lists() {
    std::putchar('\n');
    sb_print_colp_styles(stdout);
    std::putchar('\n');
    sb_print_colp_sort(stdout, "SORTSPEC");
}

bool show(void *opts, e_optstate *, const sb_optionrow &row) {
    const auto letter = static_cast<char>(row.code);
    static_cast<options *>(opts)->shown |= letter == 'a' ? COMMON : letter == 'A' ? ALL : bit(letter);
    return true;
}

constexpr sb_option<options> shows(char letter, const char *long_name = nullptr) {
    return takes<options>(letter, sb_word::none, show, long_name);
}

// Deliberate: "--stlegent" and "--mainmam" are accepted, "--flags" is not; the usage says otherwise.
constexpr sb_option<options> option_table[] = {
    shows('a', "--all-common"),   shows('A', "--all"),
    shows('c', "--crtick"),       shows('C', "--ctxsw"),
    shows('d', "--sid"),          shows('f'),
    shows('g', "--group"),        shows('G', "--pgid"),
    shows('h', "--handles"),      shows('i', "--pid"),
    shows('I', "--ppid"),         shows('l', "--slabstat"),
    shows('L', "--stlegent"),     shows('m', "--mainmam"),
    shows('n', "--name"),         shows('p', "--pfnum"),
    shows('P', "--parent"),       shows('R', "--isrtime"),
    shows('s', "--state"),        shows('t', "--exetime"),
    shows('T', "--accumtime"),    shows('u', "--uptime"),
    shows('U', "--giduid"),       shows('v', "--virt"),
    shows('w', "--hwid"),         shows('y', "--syscall"),
    shows('Y', "--systime"),      takes_style<&options::style>("--style"),
    takes_sort<&options::sort>(),
};
constexpr auto long_opts = sb_longoptions(option_table);
constexpr sb_commandline command_line = {
    .command = "task",
    .usage = usage,
    .print_usage = print_lists,
    .long_options = long_opts.data(),
    .operands = SB_NO_OPERANDS,
};

// ---- states and flags -----------------------------------------------------------------------------------------------

constexpr struct {
    char letter;
    const char *meaning;
} states[] = {{'r', "running"}, {'R', "ready"}, {'B', "blocked"}, {'D', "deleted"}, {'Z', "zombie"}};

struct flag {
    uint64_t bit;
    char letter;
    const char *meaning;
};
constexpr flag super_flag = {TASKFLAG_SUPER, '^', "super task"};
constexpr flag sid_flag = {TASKFLAG_SID_AT_CREATE, 'S', "SID set when task was created"};
constexpr flag sealed_flag = {TASKFLAG_PGID_SEALED, 'P', "PGID is sealed"};
constexpr flag kernel_flag = {TASKFLAG_KERNEL, 'K', "kernel task"};
constexpr flag idle_flag = {TASKFLAG_IDLE, 'i', "idle task"};
constexpr const flag *cell_flags[] = {&kernel_flag, &idle_flag, &sid_flag, &sealed_flag, &super_flag};
constexpr const flag *legend_flags[] = {&super_flag, &sid_flag, &sealed_flag, &kernel_flag, &idle_flag};

// ---- rows -----------------------------------------------------------------------------------------------------------

struct listing {
    colp_table *table;
    uint64_t iterator;
    uint64_t page_size;
    device_record *service;
    uint64_t shown;  // options

    bool shows(char option) const { return (shown & bit(option)) != 0; }
    uint64_t kilobytes(uint64_t pages) const { return pages * page_size >> 10; }
    uint64_t item(uint64_t number, uint64_t fallback = 0) const { return sb_iteratoritem(iterator, number, fallback); }
    uint64_t counter(uint64_t low, uint64_t high) const { return sb_iteratorcounter(iterator, low, high); }
    void add_hex(uint64_t value) const { colp_addcell_hex(table, value); }
    void add(uint64_t value) const { colp_addcell_uint(table, value); }
    void add(const char *text) const { colp_addcell_string(table, text); }
};

struct task_times {
    uint64_t exe, isr, sys;
};

struct task_row : sb_taskbasics {
    // Shared by several columns; read for the first of them that is shown.
    std::optional<uint64_t> pid;
    std::optional<task_times> times;
    uint64_t ids;  // group and user
};

// False after a message: a task of which one item cannot be read has no row.
bool read_basics(uint64_t iterator, task_row &task) {
    for (const auto &[item, value] : SB_TASK_BASICS) {
        if (const uint64_t code = _SL_GetIteratorInfo(iterator, item, &(task.*value))) {
            sb_say(command_line, "could not stat task (ec=0x%" PRIx64 ", master=0x%" PRIX64 ")", code, task.handle);
            return false;
        }
    }
    return true;
}

uint64_t pid_of(const listing &list, task_row &task) {
    if (!task.pid) {
        uint64_t pid = 0;  // stays 0 where the service has no answer
        SysvcGetPid(list.service, task.handle, &pid);
        task.pid = pid;
    }
    return *task.pid;
}

const task_times &times_of(const listing &list, task_row &task) {
    if (!task.times) {
        const uint64_t exe = list.counter(TASKINFO_EXETIME_LO, TASKINFO_EXETIME_HI);
        const uint64_t isr = list.counter(TASKINFO_ISRTIME_LO, TASKINFO_ISRTIME_HI);
        const uint64_t sys = list.counter(TASKINFO_SYSTIME_LO, TASKINFO_SYSTIME_HI);
        task.times = {exe, isr, sys};
    }
    return *task.times;
}

// ---- cells ----------------------------------------------------------------------------------------------------------

void add_handle(const listing &list, task_row &task) {
    std::array<char, 3 + TASK_KEY_SIZE + 2> text = {' ', '0', 'x'};
    char *end = write_task_key(text.data() + 3, task.handle);
    *end = task.flags & TASKFLAG_SUPER ? '^' : ' ';
    list.add(text.data());
}

void add_pid(const listing &list, task_row &task) { list.add(pid_of(list, task)); }

// An id that the system service derives from the process id.
template <int (*Get)(device_record *, uint64_t, uint64_t *)> void add_derived(const listing &list, task_row &task) {
    uint64_t id = 0;
    Get(list.service, pid_of(list, task), &id);
    list.add(id);
}

void add_gid(const listing &list, task_row &task) {
    task.ids = list.item(TASKINFO_IDS);
    list.add(task.ids >> 16 & 0xFFFF);
}

void add_uid(const listing &list, task_row &task) { list.add(task.ids & 0xFFFF); }  // shown with the group alone

void add_state(const listing &list, task_row &) {
    const uint64_t state = list.item(OBJINFO_STATE, UINT64_MAX);
    const char text[] = {state < std::size(states) ? states[state].letter : '?', '\0'};
    list.add(text);
}

void add_flags(const listing &list, task_row &task) {
    std::array<char, std::size(cell_flags) + 1> text = {};
    char *end = text.data();
    for (const flag *row : cell_flags) {
        if (task.flags & row->bit) *end++ = row->letter;
    }
    list.add(text.data());
}

// A task without a name has a row that ends one cell short.
void add_name(const listing &list, task_row &task) {
    if (task.flags & TASKFLAG_IDLE) return list.add("[idle]");
    if (task.flags & TASKFLAG_KERNEL) return list.add("[kernel]");
    std::array<char, 84> name = {};
    if (sb_gettaskname(task.handle, name.data(), name.size() - 1)) list.add(name.data());
}

template <uint64_t task_times::*Time> void add_time(const listing &list, task_row &task) {
    list.add(times_of(list, task).*Time);
}

void add_accumulated(const listing &list, task_row &task) {
    const auto [exe, isr, sys] = times_of(list, task);
    list.add(exe + sys + isr);
}

template <uint64_t Item> void add_item(const listing &list, task_row &) { list.add(list.item(Item)); }
template <uint64_t Item> void add_hex_item(const listing &list, task_row &) {
    list.add_hex(list.item(Item, NO_OBJECT));
}
template <uint64_t Low, uint64_t High> void add_counter(const listing &list, task_row &) {
    list.add(list.counter(Low, High));
}
template <uint64_t sb_taskbasics::*Value> void add_value(const listing &list, task_row &task) { list.add(task.*Value); }
void add_virtual(const listing &list, task_row &) { list.add(list.kilobytes(list.item(TASKINFO_VIRT_PAGES))); }
template <uint64_t sb_taskbasics::*Pages> void add_pages(const listing &list, task_row &task) {
    list.add(list.kilobytes(task.*Pages));
}

// ---- columns --------------------------------------------------------------------------------------------------------

constexpr sb_column left(const char *title) { return {COLP_STRING, title, COLP_JUST_LEFT, COLP_JUST_LEFT}; }
constexpr sb_column right(uint32_t type, const char *title, unsigned extras = 0, const char *suffix = nullptr) {
    return {type, title, COLP_JUST_RIGHT, COLP_JUST_RIGHT, extras, suffix};
}
constexpr sb_column number(const char *title) { return right(COLP_UINT, title); }
constexpr sb_column summed(const char *title, const char *suffix = nullptr) {
    return right(COLP_UINT, title, SB_COLUMN_SUMMED, suffix);
}

// Every column, in order, with the option that shows it and the function that adds its cell.
using cell_adder = void (*)(const listing &, task_row &);
constexpr struct {
    char option;
    sb_column column;
    cell_adder add;
} catalogue[] = {
    {ALWAYS, right(COLP_STRING, "Handle"), add_handle},
    {'g', right(COLP_HEX, "Group", SB_COLUMN_HANDLE), add_hex_item<TASKINFO_GROUP>},
    {'P', right(COLP_HEX, "Parent", SB_COLUMN_HANDLE), add_hex_item<TASKINFO_PARENT>},
    {'i', number("PID"), add_pid},
    {'I', number("PPID"), add_derived<SysvcGetPPid>},
    {'G', number("PGID"), add_derived<SysvcGetPgid>},
    {'d', number("SID"), add_derived<SysvcGetSid>},
    {ALWAYS, number("Pri"), add_value<&task_row::priority>},
    {'w', right(COLP_HEX, "HWID", SB_COLUMN_UPPER), add_hex_item<TASKINFO_HWID>},
    {'U', number("GID"), add_gid},
    {'U', number("UID"), add_uid},
    {'s', right(COLP_STRING, "St"), add_state},
    {'f', left("Flags"), add_flags},
    {ALWAYS, summed("Th"), add_value<&task_row::threads>},
    {'l', summed("Sl_u"), add_item<TASKINFO_SLAB_U>},
    {'l', summed("Sl_p"), add_item<TASKINFO_SLAB_P>},
    {ALWAYS, summed("Mo"), add_value<&task_row::memos>},
    {ALWAYS, summed("Alloc", "k"), add_pages<&task_row::alloc_pages>},
    {ALWAYS, summed("Reserved", "k"), add_pages<&task_row::reserved_pages>},
    {'v', summed("Virt", "k"), add_virtual},
    {'t', summed("ExeTime"), add_time<&task_times::exe>},
    {'R', summed("ISRTime"), add_time<&task_times::isr>},
    {'Y', summed("SysTime"), add_time<&task_times::sys>},
    {'T', summed("AccumTime"), add_accumulated},
    {'y', summed("SysCalls"), add_counter<TASKINFO_SYSCALLS_LO, TASKINFO_SYSCALLS_HI>},
    {'p', summed("PF"), add_counter<TASKINFO_PAGEFAULTS_LO, TASKINFO_PAGEFAULTS_HI>},
    {'c', number("CrTick"), add_counter<TASKINFO_CRTICK_LO, TASKINFO_CRTICK_HI>},
    {'C', number("VolCtxSw"), add_counter<TASKINFO_VOLCTXSW_LO, TASKINFO_VOLCTXSW_HI>},
    {'C', number("InvCtxSw"), add_counter<TASKINFO_INVCTXSW_LO, TASKINFO_INVCTXSW_HI>},
    {'n', left("Name"), add_name},
};

// The columns that a run shows, in order.
struct shown_columns {
    std::array<sb_column, std::size(catalogue)> columns = {};
    std::array<cell_adder, std::size(catalogue)> adders = {};
    size_t count = 0;

    explicit shown_columns(const options &opts) {
        for (const auto &entry : catalogue) {
            if (!(opts.shown & bit(entry.option))) continue;
            columns[count] = entry.column;
            adders[count++] = entry.add;
        }
    }
};

void add_row(const listing &list, std::span<const cell_adder> adders, task_row &task) {
    colp_beginrow(list.table);
    for (const cell_adder add : adders) add(list, task);
    colp_endrow(list.table);
}

// ---- output ---------------------------------------------------------------------------------------------------------

void print_legend() {
    std::puts("  Task states:");
    for (const auto &[letter, meaning] : states) std::printf("     %c - %s\n", letter, meaning);
    std::puts("  Task flags:");
    for (const flag *row : legend_flags) std::printf("     %c - %s\n", row->letter, row->meaning);
}

void print_footer(const listing &list) {
    std::printf("  Total: %" PRIu64 " tasks\n", colp_getrowcount(list.table));
    if (list.shows('u')) std::printf("  Uptime: %" PRIu64 " msec\n", TickGetCount());
    if (list.shows('h')) {
        const bool managed = _SL_GetState(KSTATE_HANDLE_MANAGER) != 0;
        const uint64_t handles = _SL_GetState(KSTATE_HANDLE_COUNT);
        std::printf(managed ? "  Handles: %" PRIu64 "\n" : "  Handles %" PRIu64 " (handle manager is off)\n", handles);
    }
    if (list.shows('m')) {
        const uint64_t free_pages = _SL_GetState(KSTATE_MAIN_CHUNK_FREE_PAGES);
        const uint64_t pages = _SL_GetState(KSTATE_MAIN_CHUNK_PAGES);
        std::printf("  Main chunk: %" PRIu64 "k free of %" PRIu64 "k\n", list.kilobytes(free_pages),
                    list.kilobytes(pages));
    }
    if (list.shows('L')) print_legend();
}

int list_tasks(const listing &list, const shown_columns &shown, const options &opts) {
    const std::span adders = std::span(shown.adders).first(shown.count);
    while (_SL_StepIterator(list.iterator) == RESULT_SUCCESS) {
        task_row task = {};
        if (read_basics(list.iterator, task)) add_row(list, adders, task);
    }
    if (sb_parse_colp_sort(list.table, opts.sort) != 0) return SB_FAILED;
    sb_print_summed(list.table, stdout);
    print_footer(list);
    return SB_DONE;
}
}  // namespace

constexpr sb_description sb_task_line = sb_describe(command_line, option_table);

int sb_task(int argc, char **argv) {
    const uint64_t page_size = _SL_GetState(KSTATE_PAGE_SIZE);
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;

    device_record *service = GetSystemService();  // null: no answers
    const shown_columns shown(opts);
    const sb_table table = sb_newtable("task", opts.style, std::span(shown.columns).first(shown.count));
    if (!table) return SB_FAILED;
    const uint64_t iterator = _SL_CreateIterator(0, 0);
    if (iterator == NO_OBJECT)
        return sb_fail(command_line, SB_NO_ITERATOR, "failed to create iterator (error code: 0x%" PRIX64 ")",
                       _SL_GetLastError());
    int status = SB_FAILED;
    const bool begun = _SL_BeginIterator(iterator, SYSTEM_WIDE, ITERSEL_TASKS) == RESULT_SUCCESS;
    if (begun) status = list_tasks({table.get(), iterator, page_size, service, opts.shown}, shown, opts);
    _SL_DeleteObject(iterator, DELETE_HANDLE);
    return begun ? status : sb_fail(command_line, SB_FAILED, "failed to start iteration");
}
