// commands/tprop.cpp - shows or sets a property of tasks.
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "commands/commands.h"
#include "common/commandline.h"
#include "common/tasks.h"
#include "platform/device.h"
#include "platform/kernel.h"

namespace {
constexpr struct {
    const char *name;
    const char *description;
    uint64_t item;      // of the task, to read
    uint64_t property;  // of the task, to write
} priority = {"prior", "Task priority", TASKINFO_PRIORITY, TASKPROP_PRIORITY};

void print_usage() {
    std::printf(R"(Usage: tprop PROPERTY [-s VALUE] [OPTION]... TASKNAME...
  or:  tprop PROPERTY [-s VALUE] -P [OPTION]... TASKHANDLE...
Get or set property of a task (aka. process) by handle or name.

PROPERTY:
  %-10s %s

VALUE can be a single value, or a relative change with "+" or "-".

    -d    print property values in decimal (default)
    -P    use task handles instead of task names (use C prefixes)
    -s    set task property instead of show them
    -x    print property values in hexadecimal
)",
                priority.name, priority.description);
}

// Each sets a property from its current value and the user's operand, wrapping. Returns the kernel's result.
uint64_t _sb_tprop_set_set(uint64_t task, uint64_t property, uint64_t, uint64_t operand) {
    return _SL_ControlObject(task, CTRL_SET_PROPERTY, property, operand, 0, 0);
}

uint64_t _sb_tprop_set_add(uint64_t task, uint64_t property, uint64_t current, uint64_t operand) {
    return _sb_tprop_set_set(task, property, current, current + operand);
}

uint64_t _sb_tprop_set_sub(uint64_t task, uint64_t property, uint64_t current, uint64_t operand) {
    return _sb_tprop_set_set(task, property, current, current - operand);
}

struct options {
    bool hexadecimal = false;
    sb_taskoperand operands = sb_taskoperand::name;
    const char *value = nullptr;  // null: show
    uint64_t (*setter)(uint64_t, uint64_t, uint64_t, uint64_t) = nullptr;
    uint64_t operand = 0;  // of the setter
};

// VALUE: a number, or a sign and the number to change the current value by.
bool parse_value(options &opts) {
    const char *number = opts.value;
    opts.setter = *number == '+' ? _sb_tprop_set_add : *number == '-' ? _sb_tprop_set_sub : _sb_tprop_set_set;
    if (opts.setter != _sb_tprop_set_set) ++number;
    char *end = nullptr;
    opts.operand = std::strtoul(number, &end, 0);
    return *number != '\0' && *end == '\0';
}

constexpr sb_option<options> option_table[] = {
    sets<&options::hexadecimal, false>('d'),
    sets<&options::hexadecimal>('x'),
    sets<&options::operands, sb_taskoperand::number>('P'),
    takes_text<&options::value>('s', sb_word::text),
};
constexpr sb_commandline command_line = {
    .command = "tprop",
    .print_usage = print_usage,
    .operands = {.min = 2, .words = {sb_word::property, sb_word::task}},
    .bad_argument = {"missing or invalid argument of -%", SB_FAILED},
};

// Shows or sets the property of one task; false after a message.
bool handle_target(const char *target, const options &opts) {
    uint64_t task = 0, current = 0;
    if (!sb_resolvetask(target, opts.operands, &task)) {
        sb_say(command_line, "%s: process not found", target);
        return false;
    }
    if (const uint64_t code = _SL_GetObjectInfo(task, priority.item, &current)) {
        sb_say(command_line, "%s: failed to get property (result: 0x%" PRIx64 ")", target, code);
        return false;
    }
    if (opts.value == nullptr) {
        std::printf(opts.hexadecimal ? "%s (0x%" PRIx64 ") -> 0x%" PRIx64 "\n" : "%s (0x%" PRIx64 ") -> %" PRIu64 "\n",
                    target, task, current);
        return true;
    }
    if (opts.setter(task, priority.property, current, opts.operand) == RESULT_SUCCESS) return true;
    sb_say(command_line, "%s: failed to set property (result: 0x0)", target);  // Deliberate: never the kernel's code
    return false;
}
}  // namespace

constexpr sb_description sb_tprop_line = sb_describe(command_line, option_table);

int sb_tprop(int argc, char **argv) {
    if (!IsCurrentTaskSuper()) return sb_fail(command_line, SB_FAILED, "only root can do that");

    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;
    if (std::strcmp(argv[0], priority.name) != 0)
        return sb_fail(command_line, SB_FAILED, "invalid property name: %s", argv[0]);
    if (opts.value != nullptr && !parse_value(opts)) return sb_fail(command_line, SB_FAILED, "invalid set operand");

    if (opts.value == nullptr) std::printf("%s:\n", priority.description);
    int status = SB_DONE;
    for (int i = 1; i < argc; ++i) {
        if (!handle_target(argv[i], opts)) status = SB_FAILED;
    }
    return status;
}
