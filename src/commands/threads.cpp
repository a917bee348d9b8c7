// commands/threads.cpp - the threads of tasks, one line each, and their registers.
#include <algorithm>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <span>
#include <utility>

#include "commands/commands.h"
#include "common/commandline.h"
#include "common/iterators.h"
#include "common/registers.h"
#include "common/tasks.h"
#include "common/text.h"
#include "platform/kernel.h"

namespace {
constexpr char usage[] = R"(Usage: threads [OPTION]... TASKNAME...
  or:  threads -P [OPTION]... TASKHANDLE...
Print thread info of a task (aka. process) by handle or name.

    -C    display context switch counters
    -D    display context depth
    -p    show thread PC
    -P    use task handles instead of task names (use C prefixes)
    -r    dump registers of the top exception node
    -R    dump registers of all exception nodes
    -s    display stack pointers
    -S    show thread state legend
    -w    show the object handle of the thread is waiting on
    -W    same as -w, but always displays master handles
    -x    show thread execution time
)";

constexpr struct {
    char letter;
    const char *meaning;
} states[] = {{'r', "running"}, {'R', "ready"}, {'W', "wait"}, {'B', "blocked"}, {'N', "nowhere"}};

struct options {
    bool switches = false;
    bool depth = false;
    bool pc = false;
    bool stack = false;
    bool time = false;
    bool waiting = false;
    bool waiting_master = false;  // shown instead of the handle
    bool registers = false;
    bool all_nodes = false;  // the registers of each
    bool legend = false;
    sb_taskoperand operands = sb_taskoperand::name;
};

constexpr sb_option<options> option_table[] = {
    sets<&options::switches>('C'),  sets<&options::depth>('D'),
    sets<&options::pc>('p'),        sets<&options::operands, sb_taskoperand::hex>('P'),
    sets<&options::registers>('r'), sets<&options::all_nodes>('R'),
    sets<&options::stack>('s'),     sets<&options::legend>('S'),
    sets<&options::waiting>('w'),   sets<&options::waiting_master>('W'),
    sets<&options::time>('x'),
};
constexpr sb_commandline command_line = {
    .command = "threads",
    .usage = usage,
    .operands = {.min = 1, .words = {sb_word::task}, .missing = SB_SHOW_USAGE},
};

// ---- registers ------------------------------------------------------------------------------------------------------

struct register_entry {
    uint64_t id;  // 0 ends the table
    uint64_t size;
    const char *name;
};

// The registers that the kernel knows, in one block: the entries, then their names.
struct register_table {
    std::unique_ptr<register_entry, sb_freer> entries;  // null: no registers
    int name_width = 0;
};

// False, and an empty table, where the kernel has no register information, or more than a kernel can have.
bool build_register_table(register_table &table) {
    constexpr uint64_t most_bytes = uint64_t{64} << 20;
    sb_registerinfo info;
    if (sb_getregisterinfo(&info).step != sb_registerstep::done) return false;
    if (info.count > SB_MAX_REGISTERS || info.max_name > SB_MAX_REGISTER_NAME) return false;
    // An entry, its name and NUL, and the eight bytes by which the name's last piece may pass it.
    const uint64_t bytes = (info.count + 1) * (info.max_name + sizeof(register_entry) + sizeof(uint64_t) + 1);
    if (bytes > most_bytes) return false;
    decltype(table.entries) block(static_cast<register_entry *>(std::calloc(1, bytes)));
    if (!block) return false;

    char *name = reinterpret_cast<char *>(block.get() + info.count + 1);
    for (uint64_t i = 0; i < info.count; ++i) {
        sb_register reg;
        if (sb_getregister(info, i, &reg, name).step != sb_registerstep::done) return false;
        name[info.max_name] = '\0';
        block.get()[i] = {reg.id, reg.type & CPUREG_WIDTH, name};
        name += (std::strlen(name) + sizeof(uint64_t)) & ~(sizeof(uint64_t) - 1);
    }
    table.entries = std::move(block);
    table.name_width = static_cast<int>(info.max_name);
    return true;
}

// Fetches a register of a thread at an exception node; the kernel stores it in an item of the calling thread.
uint64_t read_register(uint64_t thread, const register_entry &entry, uint64_t node, uint64_t self, uint64_t &value) {
    const uint64_t size = std::min<uint64_t>(entry.size, sizeof value);
    if (const uint64_t code = _SL_ControlObject(thread, CTRL_FETCH_REGISTER, entry.id, node, 0, size)) return code;
    return _SL_GetObjectInfo(self, THREADINFO_FETCHED_REGISTER, &value);
}

void dump_registers(uint64_t thread, uint64_t node, uint64_t self, const register_table &table) {
    if (node == 0)
        std::puts("    Registers:");
    else
        std::printf("    Registers on node #%" PRIu64 ":\n", node);
    const register_entry *entry = table.entries.get();
    if (entry == nullptr || entry->id == 0) {
        std::puts("        (no registers)");
        return;
    }
    for (; entry->id != 0; ++entry) {
        uint64_t value = 0;
        if (const uint64_t code = read_register(thread, *entry, node, self, value))
            sb_say(command_line, "failed to read register of \"%s\" (0x%" PRIx64 "): error 0x%" PRIx64, entry->name,
                   entry->id, code);
        else
            std::printf("        %-*s 0x%0*" PRIX64 "\n", table.name_width, entry->name, 16, value);
    }
}

// ---- listing --------------------------------------------------------------------------------------------------------

void print_heading(const options &opts) {
    std::printf("   %*s %*s %*s   %*s", 17, "Thread", 3, "Pri", 2, "St", 4, "Err");
    if (opts.time) std::printf(" %*s", 16, "ExeTime");
    if (opts.pc) std::printf("   %*s", 16, "PC");
    if (opts.stack) std::printf("   %*s", 16, "StackPtr");
    if (opts.depth) std::printf(" %*s", 5, "Depth");
    if (opts.switches) std::printf(" %*s %*s", 9, "VolCtxSw", 9, "InvCtxSw");
    if (opts.waiting || opts.waiting_master) std::printf("   %*s", 16, "Wait on");
    std::putchar('\n');
}

struct thread {
    uint64_t handle, state, priority, error, time, pc, stack, depth, waiting;
};

// Reads what every row needs, shown or not; false at the first item that cannot be read.
bool read_thread(uint64_t iterator, const options &opts, thread &out) {
    const struct {
        uint64_t item;
        uint64_t *value;
    } items[] = {{OBJINFO_HANDLE, &out.handle},
                 {OBJINFO_STATE, &out.state},
                 {THREADINFO_PRIORITY, &out.priority},
                 {THREADINFO_ERROR, &out.error},
                 {THREADINFO_EXETIME, &out.time},
                 {THREADINFO_PC, &out.pc},
                 {THREADINFO_STACKPTR, &out.stack},
                 {THREADINFO_DEPTH, &out.depth},
                 {opts.waiting_master ? THREADINFO_WAITON_MASTER : THREADINFO_WAITON, &out.waiting}};
    for (const auto &[item, value] : items) {
        if (_SL_GetIteratorInfo(iterator, item, value) != RESULT_SUCCESS) return false;
    }
    return true;
}

void print_row(uint64_t iterator, const thread &row, const options &opts) {
    const char letter = row.state < std::size(states) ? states[row.state].letter : '?';
    std::printf(" 0x%0*" PRIX64 " %*u %*c 0x%0*" PRIX64, 17, row.handle, 3, static_cast<unsigned>(row.priority), 2,
                letter, 4, row.error);
    if (opts.time) std::printf(" %*" PRIu64, 16, row.time);
    if (opts.pc) std::printf(" 0x%0*" PRIX64, 16, row.pc);
    if (opts.stack) std::printf(" 0x%0*" PRIX64, 16, row.stack);
    if (opts.depth) std::printf(" %*" PRIu64, 5, row.depth);
    if (opts.switches) {
        const uint64_t voluntary = sb_iteratorcounter(iterator, THREADINFO_VOLCTXSW_LO, THREADINFO_VOLCTXSW_HI);
        const uint64_t involuntary = sb_iteratorcounter(iterator, THREADINFO_INVCTXSW_LO, THREADINFO_INVCTXSW_HI);
        std::printf(" %*" PRIu64 " %*" PRIu64, 9, voluntary, 9, involuntary);
    }
    if (opts.waiting || opts.waiting_master) std::printf(" 0x%0*" PRIX64, 16, row.waiting);
    std::putchar('\n');
}

// Lists one task: 0, 1 after a message when its threads cannot be walked, 2 when one of them could not be read.
int sb_threads_threads(uint64_t iterator, uint64_t task, const options &opts, const register_table &table) {
    constexpr uint64_t most_nodes = 65536;  // no stack of exceptions is deeper
    const uint64_t self = _SL_GetState(KSTATE_CURRENT_THREAD);
    if (_SL_BeginIterator(iterator, task, ITERSEL_THREADS) != RESULT_SUCCESS) {
        sb_say(command_line, "failed to start iteration");
        return 1;
    }
    print_heading(opts);
    while (_SL_StepIterator(iterator) == RESULT_SUCCESS) {
        thread row = {};
        if (!read_thread(iterator, opts, row)) return 2;
        print_row(iterator, row, opts);
        uint64_t nodes = opts.registers ? 1 : 0;
        if (opts.all_nodes) nodes = std::min(row.depth, most_nodes - 1) + 1;
        for (uint64_t node = 0; node < nodes; ++node) dump_registers(row.handle, node, self, table);
    }
    return 0;
}

int list_tasks(uint64_t iterator, std::span<char *const> operands, const options &opts, const register_table &table) {
    int status = SB_DONE;
    for (char *const &operand : operands) {
        uint64_t task = 0;
        if (!sb_resolvetask(operand, opts.operands, &task)) {
            sb_say(command_line, "process \"%s\" not found.", operand);  // the status stays
            continue;
        }
        if (operands.size() > 1) {
            if (&operand != operands.data()) std::putchar('\n');
            std::printf("Task 0x%0*X:\n", 16, static_cast<unsigned>(task));  // Deliberate: its low half
        }
        if (sb_threads_threads(iterator, task, opts, table) != 0) status = SB_FAILED;
    }
    return status;
}
}  // namespace

constexpr sb_description sb_threads_line = sb_describe(command_line, option_table);

int sb_threads(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;

    register_table table;
    if (!build_register_table(table)) sb_say(command_line, "could not build register table");
    const uint64_t iterator = _SL_CreateIterator(0, 0);
    if (iterator == NO_OBJECT) return sb_fail(command_line, SB_NO_ITERATOR, "failed to create iterator");
    const int status = list_tasks(iterator, {argv, static_cast<size_t>(argc)}, opts, table);
    if (opts.legend) {
        std::puts("\n  Thread states:");
        for (const auto &[letter, meaning] : states) std::printf("     %c - %s\n", letter, meaning);
    }
    _SL_DeleteObject(iterator, DELETE_HANDLE);
    return status;
}
