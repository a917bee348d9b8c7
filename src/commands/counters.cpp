// counters - print the statistics counters of one unit of a device.
#include <algorithm>
#include <bit>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "commands/commands.h"
#include "common/helpers.h"
#include "common/options.h"
#include "platform/device.h"
#include "platform/protocol/counters.h"

namespace {

constexpr long long DEFAULT_SIZE = 3840;  // bytes of buffer
constexpr long long MIN_SIZE = 16;
constexpr long long MAX_SIZE = 0x800000;

constexpr char usage[] = R"(Usage: counters [OPTION]... DEV_NAME DEV_UNIT
Display device counters.

    -d    print numbers in decimal form (default)
    -h    print numbers in hexadecimal form
    -s    set buffer size (default: %lld)
)";

struct options {
    bool hexadecimal = false;
    long long size = DEFAULT_SIZE;
};

int fail(const char *what) {
    std::fprintf(stderr, "counters: %s\n", what);
    return SB_FAILED;
}

// A bad size ends the command without a word.
std::optional<int> parse(int &argc, char **&argv, options &opts) {
    e_optstate state;
    e_initoption(&state, &argc, &argv, true);
    for (int c; (c = e_getoption(&state)) != E_END;) {
        switch (c) {
        case 'd': opts.hexadecimal = false; break;
        case 'h': opts.hexadecimal = true; break;
        case 's':
            if (e_opt_getrangeint(&state, &opts.size, MIN_SIZE, MAX_SIZE) != E_OPT_DONE) return SB_FAILED;
            break;
        case E_HELP: std::printf(usage, DEFAULT_SIZE); return SB_DONE;
        default: std::fprintf(stderr, "counters: unknown switch: -%c\n", c); return SB_BAD_SWITCH;
        }
    }
    if (argc != 2) return fail("missing operand");  // too many get the same text
    return std::nullopt;
}

int show_unit(device_record *device, uint32_t unit, uint64_t reply_port, const options &opts) {
    const auto size = static_cast<uint64_t>(opts.size);
    IOreq *request = CreateIOreq(device, unit, IOREQ_FLAGS_DEFAULT, size + IOREQ_INLINE, reply_port);
    if (request == nullptr) return fail("failed to create IOreq");
    auto *records = reinterpret_cast<unsigned char *>(request) + IOREQ_INLINE;
    request->command = CNTCMD_GET;
    request->payload = reinterpret_cast<uint64_t>(records);
    request->transfer.buffer_size = size;
    if (SyncIO(request) != IO_SUCCESS) return fail("failed to get counters");
    const uint64_t returned = request->transfer.returned_size;  // read once: the server can write to it
    sb_counters_print(records, std::min(returned, size), opts.hexadecimal);
    return SB_DONE;
}

}  // namespace

// The records are a device's: one that does not fit into what it returned ends the list.
void sb_counters_print(const unsigned char *records, uint64_t size, bool hexadecimal) {
    for (uint64_t at = 0; at < size && records[at] != 0;) {
        const uint64_t name_room = records[at++];
        if (name_room + COUNTER_VALUE_SIZE > size - at) return;
        const auto *name = reinterpret_cast<const char *>(records + at);
        at += name_room;
        uint64_t value = 0;
        for (uint64_t i = 0; i < COUNTER_VALUE_SIZE; i++) value |= uint64_t{records[at + i]} << (8 * i);
        at += COUNTER_VALUE_SIZE;
        const auto length = static_cast<int>(strnlen(name, name_room));
        std::printf(hexadecimal ? "%.*s: 0x%" PRIX64 "\n" : "%.*s: %" PRIu64 "\n", length, name, value);
    }
}

int sb_counters(int argc, char **argv) {
    options opts;
    if (const auto status = parse(argc, argv, opts)) return *status;
    const auto unit = static_cast<uint32_t>(std::strtoul(argv[1], nullptr, 0));

    const uint64_t port = _SL_CreateMsgPort(0, 0);
    if (port == NO_OBJECT) return fail("failed to create MsgPort");
    const uint64_t reply_port = _SL_CreateHandle(0, port, RIGHTS_QUERY_REPLY);
    if (reply_port == NO_OBJECT) return fail("failed to create MsgPort handle");
    device_record *device = OpenDevice(argv[0]);
    if (device == nullptr) {
        std::fprintf(stderr, "counters: failed to open device '%s'\n", argv[0]);
        return SB_FAILED;
    }
    if (const int status = show_unit(device, unit, reply_port, opts)) return status;
    CloseDevice(device);
    _SL_DeleteObject(reply_port, DELETE_HANDLE);
    return SB_DONE;
}
