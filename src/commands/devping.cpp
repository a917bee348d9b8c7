// devping - ping devices: one message to each, and a report of those that do not answer. Everything is printed on
// standard output.
#include <cstdio>
#include <optional>

#include "commands/commands.h"
#include "common/devmsg.h"
#include "common/options.h"
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

int show_usage() {
    std::fputs(usage, stdout);
    return SB_DONE;
}

// A bad time-out and a missing device are answered with the usage and status 0.
std::optional<int> parse(int &argc, char **&argv, options &opts) {
    e_optstate state;
    e_initoption(&state, &argc, &argv, true);
    for (int c; (c = e_getoption(&state)) != E_END;) {
        switch (c) {
        case 'T':
            if (e_opt_getrangeint(&state, &opts.timeout, 0, SB_DEVMSG_MAX_TIMEOUT) != E_OPT_DONE) return show_usage();
            break;
        case 'v': opts.verbose = true; break;
        case E_HELP: return show_usage();
        default: std::printf("Unknown switch: -%c\n", c); return SB_BAD_SWITCH;
        }
    }
    if (argc == 0) return show_usage();
    return std::nullopt;
}

}  // namespace

int sb_devping(int argc, char **argv) {
    options opts;
    if (const auto status = parse(argc, argv, opts)) return *status;

    sb_devasker asker{"devping", stdout, "pinging", "a ping reply", opts.timeout, opts.verbose};
    if (const int status = sb_devasker_open(asker)) return status;
    int status = SB_DONE;
    for (int i = 0; i < argc; i++) {
        uint64_t result = 0;
        const int asked = sb_devasker_ask(asker, argv[i], DEVQUERY_PING, 0, &result);
        if (asked == SB_SETUP) return asked;
        if (asked != SB_DONE) {
            status = SB_FAILED;
        } else if (opts.verbose) {
            std::printf("devping: %s: ping successful\n", argv[i]);
        }
    }
    return status;
}
