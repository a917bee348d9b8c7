// uptime - how long the system has been running.
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <optional>

#include "commands/commands.h"
#include "common/helpers.h"
#include "common/options.h"
#include "platform/device.h"

namespace {
constexpr char usage[] = R"(Usage: uptime [OPTION]...
Print system uptime.

    -c    display tick count in compact mode
    -m    print msec
    -t    print only tick count
)";

struct options {
    bool compact = false;
    bool milliseconds = false;
    bool ticks_only = false;
};

int print_usage() {
    std::fputs(usage, stdout);
    return SB_DONE;
}

// Unlike the other commands, this one complains on standard output and answers an operand with its usage. Kept.
std::optional<int> parse(int argc, char **argv, options &opts) {
    e_optstate state;
    e_initoption(&state, &argc, &argv, true);
    for (int c; (c = e_getoption(&state)) != E_END;) {
        switch (c) {
        case 'c': opts.compact = true; break;
        case 'm': opts.milliseconds = true; break;
        case 't': opts.ticks_only = true; break;
        case E_HELP: return print_usage();
        default: std::printf("Unknown switch: -%c\n", c); return SB_BAD_SWITCH;
        }
    }
    if (argc > 0) return print_usage();
    return std::nullopt;
}
}  // namespace

int sb_uptime(int argc, char **argv) {
    options opts;
    if (const auto status = parse(argc, argv, opts)) return *status;

    const uint64_t milliseconds = TickGetCount();
    if (opts.ticks_only) {
        std::printf("%" PRIu64 "%s\n", milliseconds, opts.compact ? "" : " msec.");
        return SB_DONE;
    }
    const uint64_t seconds = milliseconds / 1000, minutes = seconds / 60, hours = minutes / 60;
    std::printf("%" PRIu64 " days %02" PRIu64 ":%02" PRIu64 ":%02" PRIu64, hours / 24, hours % 24, minutes % 60,
                seconds % 60);
    if (opts.milliseconds) std::printf(".%03" PRIu64, milliseconds % 1000);
    std::putchar('\n');
    return SB_DONE;
}
