// devquery - send one named query with a numeric parameter to a device and print its answer.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>

#include "commands/commands.h"
#include "common/devmsg.h"
#include "common/options.h"
#include "platform/protocol/device.h"

namespace {

constexpr uint64_t DEFAULT_PARAMETER = 0;

struct query {
    const char *name;
    uint32_t code;
};
constexpr query sb_devquery_queries[] = {
    {"GET_CLASS", DEVQUERY_GET_CLASS},
    {"PING", DEVQUERY_PING},
    {"CHANGE_POWER_LEVEL", DEVQUERY_CHANGE_POWER_LEVEL},
    {"QUERY_POWER_LEVEL", DEVQUERY_POWER_LEVEL},
    {"DEBUG_COMMAND", DEVQUERY_DEBUG_COMMAND},
    {nullptr, 0},
};

constexpr char usage_head[] = R"(Usage: devquery [OPTION]... [-T timeout] DEVNAME QUERY [PARAM]
Query a device. PARAM must be a number (default: %)" PRIu64 R"().

QUERY list:
)";
constexpr char usage_tail[] = R"(
    -c    compact mode, display only the result
    -C    undo previous -c options
    -d    display result as a decimal integer (default)
    -h    display result as a hexadecimal integer
    -T    set query timeout (default: %)" PRIi64 R"()
    -v    verbose mode
)";

struct options {
    bool compact = false;
    bool hexadecimal = false;
    bool verbose = false;
    long long timeout = SB_DEVMSG_TIMEOUT;  // milliseconds
};

int show_usage() {
    std::printf(usage_head, DEFAULT_PARAMETER);
    for (const query *row = sb_devquery_queries; row->name != nullptr; row++) std::printf("  %s\n", row->name);
    std::printf(usage_tail, SB_DEVMSG_TIMEOUT);
    return SB_DONE;
}

std::optional<int> parse(int &argc, char **&argv, options &opts) {
    e_optstate state;
    e_initoption(&state, &argc, &argv, true);
    for (int c; (c = e_getoption(&state)) != E_END;) {
        switch (c) {
        case 'c': opts.compact = true; break;
        case 'C': opts.compact = false; break;
        case 'd': opts.hexadecimal = false; break;
        case 'h': opts.hexadecimal = true; break;
        case 'v': opts.verbose = true; break;
        case 'T':
            if (e_opt_getrangeint(&state, &opts.timeout, 0, SB_DEVMSG_MAX_TIMEOUT) != E_OPT_DONE) {
                std::fprintf(stderr, "devquery: missing or invalid argument of -%c\n", c);
                return SB_FAILED;
            }
            break;
        case E_HELP: return show_usage();
        default: std::fprintf(stderr, "devquery: unknown switch: -%c\n", c); return SB_BAD_SWITCH;
        }
    }
    if (argc < 2) {
        std::fputs("devquery: missing operand\n", stderr);
        return SB_FAILED;
    }
    if (argc > 3) {
        std::fprintf(stderr, "devquery: extra operand \"%s\"\n", argv[3]);
        return SB_FAILED;
    }
    return std::nullopt;
}

}  // namespace

int sb_devquery(int argc, char **argv) {
    options opts;
    if (const auto status = parse(argc, argv, opts)) return *status;

    const char *device = argv[0];
    const query *asked = sb_devquery_queries;
    while (asked->name != nullptr && std::strcmp(asked->name, argv[1]) != 0) asked++;
    if (asked->name == nullptr) {
        std::fprintf(stderr, "devquery: %s: unknown query.\n", argv[1]);
        return SB_FAILED;
    }
    const uint64_t parameter = argc > 2 ? std::strtoull(argv[2], nullptr, 0) : DEFAULT_PARAMETER;

    sb_devasker asker{"devquery", stderr, "query", "a reply", opts.timeout, opts.verbose};
    if (const int status = sb_devasker_open(asker)) return status;
    uint64_t result = 0;
    if (const int status = sb_devasker_ask(asker, device, asked->code, parameter, &result)) return status;

    if (opts.verbose) std::fprintf(stderr, "devquery: %s: query successful (0x%" PRIx64 ")\n", device, result);
    if (!opts.compact) std::fputs("Result: ", stdout);
    std::printf(opts.hexadecimal ? "0x%" PRIx64 "\n" : "%" PRIu64 "\n", result);
    return SB_DONE;
}
