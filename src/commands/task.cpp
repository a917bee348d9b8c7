// task - the tasks of the system, one row each, with sums and a footer.
#include <array>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <optional>
#include <span>

#include "colp/colp.h"
#include "commands/commands.h"
#include "common/helpers.h"
#include "common/options.h"
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

// "--stlegent" and "--mainmam" are what is accepted, whatever the usage says; kept.
constexpr e_longopt long_opts[] = {
    {"--all-common", 'a'}, {"--all", 'A'},     {"--crtick", 'c'},  {"--group", 'g'},
    {"--pgid", 'G'},       {"--handles", 'h'}, {"--hwid", 'w'},    {"--slabstat", 'l'},
    {"--stlegent", 'L'},   {"--name", 'n'},    {"--mainmam", 'm'}, {"--pfnum", 'p'},
    {"--parent", 'P'},     {"--state", 's'},   {"--style", 'S'},   {"--exetime", 't'},
    {"--accumtime", 'T'},  {"--syscall", 'y'}, {"--systime", 'Y'}, {"--isrtime", 'R'},
    {"--uptime", 'u'},     {"--giduid", 'U'},  {"--virt", 'v'},    {"--pid", 'i'},
    {"--ppid", 'I'},       {"--sid", 'd'},     {"--ctxsw", 'C'},   {"--sort", SB_SORT_OPTION},
    {nullptr, 0}};

// What options switch on: columns, then parts of the footer.
enum : uint32_t {
    SHOW_ALWAYS = 1u << 0,
    SHOW_GROUP = 1u << 1,
    SHOW_PARENT = 1u << 2,
    SHOW_PID = 1u << 3,
    SHOW_PPID = 1u << 4,
    SHOW_PGID = 1u << 5,
    SHOW_SID = 1u << 6,
    SHOW_HWID = 1u << 7,
    SHOW_GID_UID = 1u << 8,
    SHOW_STATE = 1u << 9,
    SHOW_FLAGS = 1u << 10,
    SHOW_SLAB = 1u << 11,
    SHOW_VIRT = 1u << 12,
    SHOW_EXE_TIME = 1u << 13,
    SHOW_ISR_TIME = 1u << 14,
    SHOW_SYS_TIME = 1u << 15,
    SHOW_ACCUM_TIME = 1u << 16,
    SHOW_SYSTEM_CALLS = 1u << 17,
    SHOW_PAGE_FAULTS = 1u << 18,
    SHOW_CREATION_TICK = 1u << 19,
    SHOW_SWITCHES = 1u << 20,
    SHOW_NAME = 1u << 21,
    SHOW_UPTIME = 1u << 22,
    SHOW_HANDLES = 1u << 23,
    SHOW_MAIN_CHUNK = 1u << 24,
    SHOW_LEGEND = 1u << 25,

    SHOW_IDS = SHOW_PID | SHOW_PPID | SHOW_PGID | SHOW_SID,
    SHOW_TIMES = SHOW_EXE_TIME | SHOW_ISR_TIME | SHOW_SYS_TIME | SHOW_ACCUM_TIME,
    SHOW_COMMON = SHOW_GROUP | SHOW_PARENT | SHOW_HWID | SHOW_GID_UID | SHOW_STATE | SHOW_SLAB | SHOW_VIRT |
                  SHOW_ACCUM_TIME | SHOW_SYSTEM_CALLS | SHOW_PAGE_FAULTS | SHOW_NAME,
    SHOW_ALL = SHOW_COMMON | SHOW_IDS | SHOW_FLAGS | SHOW_TIMES | SHOW_CREATION_TICK | SHOW_SWITCHES,
};

constexpr struct {
    int letter;
    uint32_t shows;
} switches[] = {
    {'a', SHOW_COMMON},     {'A', SHOW_ALL},          {'c', SHOW_CREATION_TICK}, {'C', SHOW_SWITCHES},
    {'d', SHOW_SID},        {'f', SHOW_FLAGS},        {'g', SHOW_GROUP},         {'G', SHOW_PGID},
    {'h', SHOW_HANDLES},    {'i', SHOW_PID},          {'I', SHOW_PPID},          {'l', SHOW_SLAB},
    {'L', SHOW_LEGEND},     {'m', SHOW_MAIN_CHUNK},   {'n', SHOW_NAME},          {'p', SHOW_PAGE_FAULTS},
    {'P', SHOW_PARENT},     {'R', SHOW_ISR_TIME},     {'s', SHOW_STATE},         {'t', SHOW_EXE_TIME},
    {'T', SHOW_ACCUM_TIME}, {'u', SHOW_UPTIME},       {'U', SHOW_GID_UID},       {'v', SHOW_VIRT},
    {'w', SHOW_HWID},       {'y', SHOW_SYSTEM_CALLS}, {'Y', SHOW_SYS_TIME},
};

struct options {
    uint32_t shows = SHOW_ALWAYS;
    const char *style = nullptr;
    const char *sort = nullptr;
};

int fail(int status, const char *what) {
    std::fprintf(stderr, "task: %s\n", what);
    return status;
}

void print_usage() {
    std::fputs(usage, stdout);
    std::putchar('\n');
    sb_print_colp_styles(stdout);
    std::putchar('\n');
    sb_print_colp_sort(stdout, "SORTSPEC");
}

uint32_t shown_by(int letter) {
    for (const auto &row : switches) {
        if (row.letter == letter) return row.shows;
    }
    return 0;
}

std::optional<int> parse(int argc, char **argv, options &opts) {
    e_optstate state;
    e_initoption(&state, &argc, &argv, true);
    e_setlongoption(&state, long_opts);
    for (int c; (c = e_getoption(&state)) != E_END;) {
        if (c == E_HELP) {
            print_usage();
            return SB_DONE;
        }
        if (c == 'S' || c == SB_SORT_OPTION) {
            const char *text = sb_gettableoption("task", &state, c);
            if (!text) return SB_FAILED;
            (c == 'S' ? opts.style : opts.sort) = text;
            continue;
        }
        const uint32_t shows = shown_by(c);
        if (shows == 0) {
            std::fprintf(stderr, "task: unknown switch: -%c\n", c);
            return SB_BAD_SWITCH;
        }
        opts.shows |= shows;
    }
    if (argc > 0) {
        std::fprintf(stderr, "task: extra operand: '%s'\n", argv[0]);
        return SB_FAILED;
    }
    return std::nullopt;
}

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

// ---- columns and rows -----------------------------------------------------------------------------------------------

constexpr sb_column left(const char *title) { return {COLP_STRING, title, COLP_JUST_LEFT, COLP_JUST_LEFT}; }
constexpr sb_column right(uint32_t type, const char *title, unsigned extras = 0, const char *suffix = nullptr) {
    return {type, title, COLP_JUST_RIGHT, COLP_JUST_RIGHT, extras, suffix};
}
constexpr sb_column number(const char *title) { return right(COLP_UINT, title); }
constexpr sb_column summed(const char *title, const char *suffix = nullptr) {
    return right(COLP_UINT, title, SB_COLUMN_SUMMED, suffix);
}

// Every column, in order; add_row() fills those that are shown in this order.
constexpr struct {
    uint32_t shown_with;
    sb_column column;
} catalogue[] = {
    {SHOW_ALWAYS, right(COLP_STRING, "Handle")},
    {SHOW_GROUP, right(COLP_HEX, "Group", SB_COLUMN_HANDLE)},
    {SHOW_PARENT, right(COLP_HEX, "Parent", SB_COLUMN_HANDLE)},
    {SHOW_PID, number("PID")},
    {SHOW_PPID, number("PPID")},
    {SHOW_PGID, number("PGID")},
    {SHOW_SID, number("SID")},
    {SHOW_ALWAYS, number("Pri")},
    {SHOW_HWID, right(COLP_HEX, "HWID", SB_COLUMN_UPPER)},
    {SHOW_GID_UID, number("GID")},
    {SHOW_GID_UID, number("UID")},
    {SHOW_STATE, right(COLP_STRING, "St")},
    {SHOW_FLAGS, left("Flags")},
    {SHOW_ALWAYS, summed("Th")},
    {SHOW_SLAB, summed("Sl_u")},
    {SHOW_SLAB, summed("Sl_p")},
    {SHOW_ALWAYS, summed("Mo")},
    {SHOW_ALWAYS, summed("Alloc", "k")},
    {SHOW_ALWAYS, summed("Reserved", "k")},
    {SHOW_VIRT, summed("Virt", "k")},
    {SHOW_EXE_TIME, summed("ExeTime")},
    {SHOW_ISR_TIME, summed("ISRTime")},
    {SHOW_SYS_TIME, summed("SysTime")},
    {SHOW_ACCUM_TIME, summed("AccumTime")},
    {SHOW_SYSTEM_CALLS, summed("SysCalls")},
    {SHOW_PAGE_FAULTS, summed("PF")},
    {SHOW_CREATION_TICK, number("CrTick")},
    {SHOW_SWITCHES, number("VolCtxSw")},
    {SHOW_SWITCHES, number("InvCtxSw")},
    {SHOW_NAME, left("Name")},
};

sb_table make_table(const options &opts) {
    std::array<sb_column, std::size(catalogue)> shown = {};
    size_t count = 0;
    for (const auto &[shown_with, column] : catalogue) {
        if (opts.shows & shown_with) shown[count++] = column;
    }
    return sb_newtable("task", opts.style, std::span(shown).first(count));
}

// What every row is made of. A task of which one item cannot be read has no row.
struct basics {
    uint64_t handle, flags, priority, threads, memos, alloc_pages, reserved_pages;
};

bool read_basics(uint64_t iterator, basics &task) {
    const struct {
        uint64_t item;
        uint64_t *value;
    } items[] = {{OBJINFO_HANDLE, &task.handle},
                 {TASKINFO_FLAGS, &task.flags},
                 {TASKINFO_PRIORITY, &task.priority},
                 {TASKINFO_THREADS, &task.threads},
                 {TASKINFO_MEMOS, &task.memos},
                 {TASKINFO_ALLOC_PAGES, &task.alloc_pages},
                 {TASKINFO_RESERVED_PAGES, &task.reserved_pages}};
    for (const auto &[item, value] : items) {
        if (const uint64_t code = _SL_GetIteratorInfo(iterator, item, value)) {
            std::fprintf(stderr, "task: could not stat task (ec=0x%" PRIx64 ", master=0x%" PRIX64 ")\n", code,
                         task.handle);
            return false;
        }
    }
    return true;
}

struct listing {
    colp_table *table;
    uint64_t iterator;
    uint64_t page_size;
    device_record *service;
    uint32_t shows;

    uint64_t kilobytes(uint64_t pages) const { return pages * page_size >> 10; }
    uint64_t item(uint64_t number, uint64_t fallback = 0) const { return sb_iteratoritem(iterator, number, fallback); }
    uint64_t counter(uint64_t low, uint64_t high) const { return sb_iteratorcounter(iterator, low, high); }
    void add_hex(uint64_t value) const { colp_addcell_hex(table, value); }
    void add(uint64_t value) const { colp_addcell_uint(table, value); }
    void add(const char *text) const { colp_addcell_string(table, text); }
};

void add_handle(const listing &list, const basics &task) {
    std::array<char, 3 + TASK_KEY_SIZE + 2> text = {' ', '0', 'x'};
    char *end = write_task_key(text.data() + 3, task.handle);
    *end = task.flags & TASKFLAG_SUPER ? '^' : ' ';
    list.add(text.data());
}

void add_ids(const listing &list, uint64_t handle) {
    uint64_t pid = 0, ppid = 0, pgid = 0, sid = 0;  // what the service cannot tell stays 0
    SysvcGetPid(list.service, handle, &pid);
    if (list.shows & SHOW_PID) list.add(pid);
    if (list.shows & SHOW_PPID) {
        SysvcGetPPid(list.service, pid, &ppid);
        list.add(ppid);
    }
    if (list.shows & SHOW_PGID) {
        SysvcGetPgid(list.service, pid, &pgid);
        list.add(pgid);
    }
    if (list.shows & SHOW_SID) {
        SysvcGetSid(list.service, pid, &sid);
        list.add(sid);
    }
}

void add_state(const listing &list) {
    const uint64_t state = list.item(OBJINFO_STATE, UINT64_MAX);
    const char text[] = {state < std::size(states) ? states[state].letter : '?', '\0'};
    list.add(text);
}

void add_flags(const listing &list, uint64_t flags) {
    std::array<char, std::size(cell_flags) + 1> text = {};
    char *end = text.data();
    for (const flag *row : cell_flags) {
        if (flags & row->bit) *end++ = row->letter;
    }
    list.add(text.data());
}

void add_times(const listing &list) {
    const uint64_t exe = list.counter(TASKINFO_EXETIME_LO, TASKINFO_EXETIME_HI);
    const uint64_t isr = list.counter(TASKINFO_ISRTIME_LO, TASKINFO_ISRTIME_HI);
    const uint64_t sys = list.counter(TASKINFO_SYSTIME_LO, TASKINFO_SYSTIME_HI);
    if (list.shows & SHOW_EXE_TIME) list.add(exe);
    if (list.shows & SHOW_ISR_TIME) list.add(isr);
    if (list.shows & SHOW_SYS_TIME) list.add(sys);
    if (list.shows & SHOW_ACCUM_TIME) list.add(exe + sys + isr);
}

// A task without a name has a row that ends one cell short.
void add_name(const listing &list, const basics &task) {
    if (task.flags & TASKFLAG_IDLE) return list.add("[idle]");
    if (task.flags & TASKFLAG_KERNEL) return list.add("[kernel]");
    std::array<char, 84> name = {};
    if (sb_gettaskname(task.handle, name.data(), name.size() - 1)) list.add(name.data());
}

// Reads an item only where it is shown.
void add_row(const listing &list, const basics &task) {
    const uint32_t shows = list.shows;
    colp_beginrow(list.table);
    add_handle(list, task);
    if (shows & SHOW_GROUP) list.add_hex(list.item(TASKINFO_GROUP, NO_OBJECT));
    if (shows & SHOW_PARENT) list.add_hex(list.item(TASKINFO_PARENT, NO_OBJECT));
    if (shows & SHOW_IDS) add_ids(list, task.handle);
    list.add(task.priority);
    if (shows & SHOW_HWID) list.add_hex(list.item(TASKINFO_HWID, NO_OBJECT));
    if (shows & SHOW_GID_UID) {
        const uint64_t ids = list.item(TASKINFO_IDS);
        list.add(ids >> 16 & 0xFFFF);
        list.add(ids & 0xFFFF);
    }
    if (shows & SHOW_STATE) add_state(list);
    if (shows & SHOW_FLAGS) add_flags(list, task.flags);
    list.add(task.threads);
    if (shows & SHOW_SLAB) {
        list.add(list.item(TASKINFO_SLAB_U));
        list.add(list.item(TASKINFO_SLAB_P));
    }
    list.add(task.memos);
    list.add(list.kilobytes(task.alloc_pages));
    list.add(list.kilobytes(task.reserved_pages));
    if (shows & SHOW_VIRT) list.add(list.kilobytes(list.item(TASKINFO_VIRT_PAGES)));
    if (shows & SHOW_TIMES) add_times(list);
    if (shows & SHOW_SYSTEM_CALLS) list.add(list.counter(TASKINFO_SYSCALLS_LO, TASKINFO_SYSCALLS_HI));
    if (shows & SHOW_PAGE_FAULTS) list.add(list.counter(TASKINFO_PAGEFAULTS_LO, TASKINFO_PAGEFAULTS_HI));
    if (shows & SHOW_CREATION_TICK) list.add(list.counter(TASKINFO_CRTICK_LO, TASKINFO_CRTICK_HI));
    if (shows & SHOW_SWITCHES) {
        list.add(list.counter(TASKINFO_VOLCTXSW_LO, TASKINFO_VOLCTXSW_HI));
        list.add(list.counter(TASKINFO_INVCTXSW_LO, TASKINFO_INVCTXSW_HI));
    }
    if (shows & SHOW_NAME) add_name(list, task);
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
    if (list.shows & SHOW_UPTIME) std::printf("  Uptime: %" PRIu64 " msec\n", TickGetCount());
    if (list.shows & SHOW_HANDLES) {
        const bool managed = _SL_GetState(KSTATE_HANDLE_MANAGER) != 0;
        const uint64_t handles = _SL_GetState(KSTATE_HANDLE_COUNT);
        std::printf(managed ? "  Handles: %" PRIu64 "\n" : "  Handles %" PRIu64 " (handle manager is off)\n", handles);
    }
    if (list.shows & SHOW_MAIN_CHUNK) {
        const uint64_t free_pages = _SL_GetState(KSTATE_MAIN_CHUNK_FREE_PAGES);
        const uint64_t pages = _SL_GetState(KSTATE_MAIN_CHUNK_PAGES);
        std::printf("  Main chunk: %" PRIu64 "k free of %" PRIu64 "k\n", list.kilobytes(free_pages),
                    list.kilobytes(pages));
    }
    if (list.shows & SHOW_LEGEND) print_legend();
}

int list_tasks(const listing &list, const options &opts) {
    while (_SL_StepIterator(list.iterator) == RESULT_SUCCESS) {
        basics task = {};
        if (read_basics(list.iterator, task)) add_row(list, task);
    }
    if (sb_parse_colp_sort(list.table, opts.sort) != 0) return SB_FAILED;
    sb_print_summed(list.table, stdout);
    print_footer(list);
    return SB_DONE;
}
}  // namespace

int sb_task(int argc, char **argv) {
    const uint64_t page_size = _SL_GetState(KSTATE_PAGE_SIZE);
    options opts;
    if (const auto status = parse(argc, argv, opts)) return *status;

    device_record *service = GetSystemService();  // null is fine: its answers are then missing
    const sb_table table = make_table(opts);
    if (!table) return SB_FAILED;
    const uint64_t iterator = _SL_CreateIterator(0, 0);
    if (iterator == NO_OBJECT) {
        std::fprintf(stderr, "task: failed to create iterator (error code: 0x%" PRIX64 ")\n", _SL_GetLastError());
        return SB_NO_ITERATOR;
    }
    int status = SB_FAILED;
    const bool begun = _SL_BeginIterator(iterator, SYSTEM_WIDE, ITERSEL_TASKS) == RESULT_SUCCESS;
    if (begun) status = list_tasks({table.get(), iterator, page_size, service, opts.shows}, opts);
    _SL_DeleteObject(iterator, DELETE_HANDLE);
    return begun ? status : fail(status, "failed to start iteration");
}
