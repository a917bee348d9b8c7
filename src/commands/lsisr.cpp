// commands/lsisr.cpp - the interrupt service routines of the system, by number or by owning task.
#include <algorithm>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <span>

#include "commands/commands.h"
#include "common/commandline.h"
#include "common/iterators.h"
#include "common/tasks.h"
#include "common/vector.h"
#include "platform/kernel.h"

namespace {
constexpr char usage[] = R"(Usage: lsisr [OPTION]...
List Interrupt Service Routines.

    -i    organize by ISRs (default)
    -n    resolve task name if possible
    -N    do not resolve task name
    -s    display ISR statistics
    -t    organize by tasks
)";

struct options {
    bool by_task = false;
    bool names = false;
    bool statistics = false;
};

struct isr {
    uint64_t owner;  // task handle
    uint64_t handle;
    uint64_t number;
    uint64_t priority;
    uint64_t scheduled;  // this and the next three: 0 without statistics
    uint64_t isr_time;
    uint64_t system_calls;
    uint64_t page_faults;
    char owner_name[32];  // empty: not known, or not asked for
};

constexpr sb_option<options> option_table[] = {
    sets<&options::by_task, false>('i'), sets<&options::by_task>('t'),    sets<&options::names>('n'),
    sets<&options::names, false>('N'),   sets<&options::statistics>('s'),
};
constexpr sb_commandline command_line = {.command = "lsisr", .usage = usage, .operands = SB_NO_OPERANDS};

isr read_isr(uint64_t iterator, uint64_t owner, const options &opts) {
    isr record = {};
    record.owner = owner;
    record.handle = sb_iteratoritem(iterator, OBJINFO_HANDLE, 0);
    record.number = sb_iteratoritem(iterator, ISRINFO_NUMBER, 0);
    record.priority = sb_iteratoritem(iterator, ISRINFO_PRIORITY, 0);
    if (opts.statistics) {
        record.scheduled = sb_iteratorcounter(iterator, ISRINFO_SCHEDULED_LO, ISRINFO_SCHEDULED_HI);
        record.isr_time = sb_iteratorcounter(iterator, ISRINFO_ISRTIME_LO, ISRINFO_ISRTIME_HI);
        record.system_calls = sb_iteratorcounter(iterator, ISRINFO_SYSCALLS_LO, ISRINFO_SYSCALLS_HI);
        record.page_faults = sb_iteratorcounter(iterator, ISRINFO_PAGEFAULTS_LO, ISRINFO_PAGEFAULTS_HI);
    }
    if (opts.names && !sb_gettaskname(owner, record.owner_name, sizeof record.owner_name)) record.owner_name[0] = '\0';
    return record;
}

int collect(vector *records, uint64_t tasks, uint64_t isrs, const options &opts) {
    if (_SL_BeginIterator(tasks, SYSTEM_WIDE, ITERSEL_TASKS) != RESULT_SUCCESS)
        return sb_fail(command_line, SB_FAILED, "failed to start iteration");
    while (_SL_StepIterator(tasks) == RESULT_SUCCESS) {
        const uint64_t task = sb_iteratoritem(tasks, OBJINFO_HANDLE, 0);
        if (_SL_BeginIterator(isrs, task, ITERSEL_ISRS) != RESULT_SUCCESS) {
            sb_say(command_line, "failed to start ISR iteration, skip task 0x%" PRIx64, task);
            continue;
        }
        while (_SL_StepIterator(isrs) == RESULT_SUCCESS) {
            const isr record = read_isr(isrs, task, opts);
            if (vector_pushback(records, &record) != VECTOR_DONE)
                return sb_fail(command_line, SB_FAILED, "out of memory while collecting data");
        }
    }
    return SB_DONE;
}

// Collects with two iterators of its own.
int collect(vector *records, const options &opts) {
    const uint64_t tasks = _SL_CreateIterator(0, 0);
    if (tasks == NO_OBJECT) return sb_fail(command_line, SB_NO_ITERATOR, "failed to create task iterator");
    const uint64_t isrs = _SL_CreateIterator(0, 0);
    const int status = isrs == NO_OBJECT ? sb_fail(command_line, SB_NO_ITERATOR, "failed to create ISR iterator")
                                         : collect(records, tasks, isrs, opts);
    if (isrs != NO_OBJECT) _SL_DeleteObject(isrs, DELETE_HANDLE);
    _SL_DeleteObject(tasks, DELETE_HANDLE);
    return status;
}

void print_statistics(const isr &record) {
    std::printf(", scheduled: %" PRIu64 ", ISRtime: %" PRIu64 ", syscalls: %" PRIu64 ", PF: %" PRIu64, record.scheduled,
                record.isr_time, record.system_calls, record.page_faults);
}

void print_by_task(std::span<const isr> records, const options &opts) {
    uint64_t owner = NO_OBJECT;
    for (const isr &record : records) {
        if (record.owner != owner) {
            owner = record.owner;
            if (&record != records.data()) std::putchar('\n');
            std::printf("Task 0x%" PRIx64, owner);
            if (record.owner_name[0] != '\0') std::printf(" (%s)", record.owner_name);
            std::puts(":");
        }
        std::printf("\tISR 0x%" PRIx64 ", num: %" PRIu64 ", priority: %" PRIu64, record.handle, record.number,
                    record.priority);
        if (opts.statistics) print_statistics(record);
        std::putchar('\n');
    }
}

// In order of number, then of collection, each under a heading of its own.
void print_by_number(std::span<isr> records, const options &opts) {
    const uint64_t limit = _SL_GetState(KSTATE_ISR_NUMBER_LIMIT);
    std::stable_sort(records.begin(), records.end(), [](const isr &a, const isr &b) { return a.number < b.number; });
    for (const isr &record : records) {
        if (record.number >= limit) break;
        if (&record != records.data()) std::putchar('\n');
        std::printf("ISR num %" PRIu64 "\n\tISR 0x%" PRIx64 ", priority: %" PRIu64 ", owner: 0x%" PRIx64, record.number,
                    record.handle, record.priority, record.owner);
        if (record.owner_name[0] != '\0') std::printf(" (%s)", record.owner_name);
        if (opts.statistics) print_statistics(record);
        std::putchar('\n');
    }
}
}  // namespace

constexpr sb_description sb_lsisr_line = sb_describe(command_line, option_table);

int sb_lsisr(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;

    constexpr size_t first_room = 64;  // records
    const vector_ptr records(vector_new(sizeof(isr), first_room));
    if (!records) return sb_fail(command_line, SB_NO_ITERATOR, "out of memory");
    if (const int status = collect(records.get(), opts)) return status;

    const std::span listed(static_cast<isr *>(records->data), records->count);
    if (opts.by_task)
        print_by_task(listed, opts);
    else
        print_by_number(listed, opts);
    return SB_DONE;
}
