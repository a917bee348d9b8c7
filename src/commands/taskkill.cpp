// commands/taskkill.cpp - deletes tasks, announcing each one's end as it would have done itself.
#include <cinttypes>
#include <cstdint>
#include <cstdio>

#include "commands/commands.h"
#include "common/commandline.h"
#include "common/tasks.h"
#include "platform/device.h"
#include "platform/kernel.h"
#include "platform/protocol/task.h"

namespace {
constexpr char usage[] = R"(Usage: taskkill [OPTION]... TASKNAME...
  or:  taskkill -P [OPTION]... TASKHANDLE...
Kill a task (aka. process) by handle or name.

    -a    kill all process with the given name
    -P    use task handles instead of task names (use C prefixes)
)";

struct options {
    bool all = false;
    sb_taskoperand operands = sb_taskoperand::name;
};

constexpr sb_option<options> option_table[] = {
    sets<&options::all>('a'),
    sets<&options::operands, sb_taskoperand::number>('P'),
};
constexpr sb_commandline command_line = {
    .command = "taskkill",
    .usage = usage,
    .operands = {.min = 1, .words = {sb_word::task}, .missing = SB_SHOW_USAGE},
};

void kill(uint64_t handle, uint64_t notice_port) {
    constexpr uint64_t notice_word = 6;  // Deliberate: not an exit code shifted by 8, as in a task's own notice
    std::printf("Deleting task 0x%0*" PRIx64 " ... ", 16, handle);
    std::fflush(stdout);  // the task may be this one
    // Whether the notice arrives changes nothing here: the task goes either way.
    static_cast<void>(_SL_SendMsg(notice_port, sb_get_master(handle), MSG_TASK_EXIT, notice_word, WAIT_FOREVER));
    if (const uint64_t code = DeleteTask(handle))
        std::printf("fail (0x%04X).\n", static_cast<unsigned>(code));
    else
        std::puts("done.");
}
}  // namespace

constexpr sb_description sb_taskkill_line = sb_describe(command_line, option_table);

// The status is 0 whatever failed: only the output reports failures.
int sb_taskkill(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;
    const bool all = opts.all && opts.operands == sb_taskoperand::name;

    const uint64_t notice_port = _SL_GetState(KSTATE_EXIT_NOTICE_PORT);
    for (int i = 0; i < argc; ++i) {
        uint64_t handle = 0;
        if (!sb_resolvetask(argv[i], opts.operands, &handle)) {
            sb_say(command_line, "%s: process not found", argv[i]);
            continue;
        }
        // With -a a task that cannot be deleted is tried again for as long as its name is found.
        do kill(handle, notice_port);
        while (all && sb_resolvetask(argv[i], opts.operands, &handle));
    }
    return SB_DONE;
}
