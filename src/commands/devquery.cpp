// commands/devquery.cpp - send one named query with a numeric parameter to a device and print its answer.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "commands/commands.h"
#include "common/commandline.h"
#include "common/devmsg.h"
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

void print_usage() {
    std::printf(usage_head, DEFAULT_PARAMETER);
    for (const query *row = sb_devquery_queries; row->name != nullptr; ++row) std::printf("  %s\n", row->name);
    std::printf(usage_tail, SB_DEVMSG_TIMEOUT);
}

constexpr sb_option<options> option_table[] = {
    sets<&options::compact>('c'),
    sets<&options::compact, false>('C'),
    sets<&options::hexadecimal, false>('d'),
    sets<&options::hexadecimal>('h'),
    sets<&options::verbose>('v'),
    takes_number<&options::timeout, 0, SB_DEVMSG_MAX_TIMEOUT>('T'),
};
constexpr sb_commandline command_line = {
    .command = "devquery",
    .print_usage = print_usage,
    .operands = {.min = 2,
                 .max = 3,
                 .words = {sb_word::device, sb_word::query, sb_word::number},
                 .extra = {"extra operand \"%\"", SB_FAILED}},
    .bad_argument = {"missing or invalid argument of -%", SB_FAILED},
};

}  // namespace

constexpr sb_description sb_devquery_line = sb_describe(command_line, option_table);

int sb_devquery(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;

    const char *device = argv[0];
    const query *asked = sb_devquery_queries;
    while (asked->name != nullptr && std::strcmp(asked->name, argv[1]) != 0) ++asked;
    if (asked->name == nullptr) return sb_fail(command_line, SB_FAILED, "%s: unknown query.", argv[1]);
    const uint64_t parameter = argc > 2 ? std::strtoull(argv[2], nullptr, 0) : DEFAULT_PARAMETER;

    sb_devasker asker{command_line, "query", "a reply", opts.timeout, opts.verbose};
    if (const int status = sb_devasker_open(asker)) return status;
    uint64_t result = 0;
    if (const int status = sb_devasker_ask(asker, device, asked->code, parameter, &result)) return status;

    if (opts.verbose) sb_say(command_line, "%s: query successful (0x%" PRIx64 ")", device, result);
    if (!opts.compact) std::fputs("Result: ", stdout);
    std::printf(opts.hexadecimal ? "0x%" PRIx64 "\n" : "%" PRIu64 "\n", result);
    return SB_DONE;
}
