// commands/uptime.cpp - how long the system has been running.
#include <cinttypes>
#include <cstdint>
#include <cstdio>

#include "commands/commands.h"
#include "common/commandline.h"
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

constexpr sb_option<options> option_table[] = {
    sets<&options::compact>('c'),
    sets<&options::milliseconds>('m'),
    sets<&options::ticks_only>('t'),
};
constexpr sb_commandline command_line = {
    .command = "uptime",
    .usage = usage,
    .operands = {.max = 0, .extra = SB_SHOW_USAGE},
    .speech = sb_speech::on_stdout,
};
}  // namespace

constexpr sb_description sb_uptime_line = sb_describe(command_line, option_table);

int sb_uptime(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;

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
