// taskkill - deletes tasks, announcing each one's end as it would have done itself.
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <optional>

#include "commands/commands.h"
#include "common/helpers.h"
#include "common/options.h"
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

std::optional<int> parse(int &argc, char **&argv, options &opts) {
    e_optstate state;
    e_initoption(&state, &argc, &argv, true);
    for (int c; (c = e_getoption(&state)) != E_END;) {
        switch (c) {
        case 'a': opts.all = true; break;
        case 'P': opts.operands = sb_taskoperand::number; break;
        case E_HELP: std::fputs(usage, stdout); return SB_DONE;
        default: std::fprintf(stderr, "%s: unknown switch: -%c\n", "taskkill", c); return SB_BAD_SWITCH;
        }
    }
    if (opts.operands == sb_taskoperand::number) opts.all = false;
    if (argc == 0) {
        std::fputs(usage, stdout);
        return SB_DONE;
    }
    return std::nullopt;
}

void kill(uint64_t handle, uint64_t notice_port) {
    constexpr uint64_t notice_word = 6;  // an exit code shifted by 8 in a task's own notice; kept as it is
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

// The status is 0 whatever failed: failures stand in the output.
int sb_taskkill(int argc, char **argv) {
    options opts;
    if (const auto status = parse(argc, argv, opts)) return *status;

    const uint64_t notice_port = _SL_GetState(KSTATE_EXIT_NOTICE_PORT);
    for (int i = 0; i < argc; ++i) {
        uint64_t handle = 0;
        if (!sb_resolvetask(argv[i], opts.operands, &handle)) {
            std::fprintf(stderr, "%s: %s: process not found\n", "taskkill", argv[i]);
            continue;
        }
        // With -a a task that cannot be deleted is tried again for as long as its name is found.
        do kill(handle, notice_port);
        while (opts.all && sb_resolvetask(argv[i], opts.operands, &handle));
    }
    return SB_DONE;
}
