// commands/devping.cpp - ping devices: one message to each, and a report of those that do not answer. Everything is
// printed on standard output.
#include <cstdio>

#include "commands/commands.h"
#include "common/commandline.h"
#include "common/devmsg.h"
#include "platform/protocol/device.h"

namespace {

constexpr char usage[] = R"(Usage: devping [OPTION]... [-T timeout] DEVNAME...
Ping a device.

    -T    set ping timeout
    -v    verbose mode
)";

struct options {
    long long timeout = SB_DEVMSG_TIMEOUT;  // milliseconds
    bool verbose = false;
};

constexpr sb_option<options> option_table[] = {
    takes_number<&options::timeout, 0, SB_DEVMSG_MAX_TIMEOUT>('T'),
    sets<&options::verbose>('v'),
};
constexpr sb_commandline command_line = {
    .command = "devping",
    .usage = usage,
    .operands = {.min = 1, .words = {sb_word::device}, .missing = SB_SHOW_USAGE},
    .bad_argument = SB_SHOW_USAGE,
    .speech = sb_speech::on_stdout,
};

}  // namespace

constexpr sb_description sb_devping_line = sb_describe(command_line, option_table);

int sb_devping(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;

    sb_devasker asker{command_line, "pinging", "a ping reply", opts.timeout, opts.verbose};
    if (const int status = sb_devasker_open(asker)) return status;
    int status = SB_DONE;
    for (int i = 0; i < argc; ++i) {
        uint64_t result = 0;
        const int asked = sb_devasker_ask(asker, argv[i], DEVQUERY_PING, 0, &result);
        if (asked == SB_SETUP) return asked;
        if (asked != SB_DONE) {
            status = SB_FAILED;
        } else if (opts.verbose) {
            sb_say(command_line, "%s: ping successful", argv[i]);
        }
    }
    return status;
}
