// commands/raiseexc.cpp - raises a user exception in tasks.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "commands/commands.h"
#include "common/commandline.h"
#include "common/tasks.h"
#include "platform/kernel.h"

namespace {
constexpr struct {
    const char *name;
    uint64_t id;
    const char *description;
} _sb_raiseexc_exspecs[] = {
    {"USR1", EXC_USR1, "user exception #1"},
    {"USR2", EXC_USR2, "user exception #2"},
    {"USR3", EXC_USR3, "user exception #3"},
    {"USR4", EXC_USR4, "user exception #4"},
    {"SIGNAL", EXC_SIGNAL, "signal carrier exception"},
    {"DEBUGCONSOLE", EXC_DEBUGCONSOLE, "opens debug console in target if enabled"},
};

void print_usage() {
    std::printf(R"(Usage: raiseexc [OPTION]... EXID/EXSPEC PROCNAME...
  or:  raiseexc -P [OPTION]... EXID/EXSPEC TASKHANDLE...
Raise a user exception to a process/task by handle or name.
EXID is a number, and must be less than %u
EXSPECs:
)",
                static_cast<unsigned>(EXC_LIMIT));
    for (const auto &row : _sb_raiseexc_exspecs) std::printf("    %-*s   %s\n", 13, row.name, row.description);
    std::fputs(R"(
    -p    specify exception parameter (zero by default)
    -P    use task IDs instead of task names (use C prefixes)
)",
               stdout);
}

struct options {
    uint64_t parameter = 0;
    sb_taskoperand operands = sb_taskoperand::name;
};

constexpr sb_option<options> option_table[] = {
    takes_number<&options::parameter>('p'),
    sets<&options::operands, sb_taskoperand::number>('P'),
};
constexpr sb_commandline command_line = {
    .command = "raiseexc",
    .print_usage = print_usage,
    .operands = {.min = 1, .words = {sb_word::exception, sb_word::task}},
    .bad_argument = {"missing or invalid argument of -%", SB_FAILED},
};

// An exception by its name or its number; false after a message.
bool parse_exception(const char *text, uint64_t &id) {
    for (const auto &row : _sb_raiseexc_exspecs) {
        if (std::strcmp(text, row.name) == 0) {
            id = row.id;
            return true;
        }
    }
    char *end = nullptr;
    id = std::strtoul(text, &end, 0);
    const char *wrong = *end != '\0'      ? "invalid exception ID"
                        : id >= EXC_LIMIT ? "exception ID number is too high"
                                          : nullptr;
    if (wrong != nullptr) sb_say(command_line, "%s: %s", text, wrong);
    return wrong == nullptr;
}
}  // namespace

constexpr sb_description sb_raiseexc_line = sb_describe(command_line, option_table);

int sb_raiseexc(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;
    uint64_t exception = 0;
    if (!parse_exception(argv[0], exception)) return SB_FAILED;

    int status = SB_DONE;
    for (int i = 1; i < argc; ++i) {
        uint64_t task = 0;
        if (!sb_resolvetask(argv[i], opts.operands, &task)) {
            status = sb_fail(command_line, SB_FAILED, "%s: process not found", argv[i]);
        } else if (const uint64_t code = _SL_RaiseException(task, 0, exception, opts.parameter, 0)) {
            status = sb_fail(command_line, SB_FAILED, "%s: failed to raise exception (0x%04X).", argv[i],
                             static_cast<unsigned>(code));
        }
    }
    return status;
}
