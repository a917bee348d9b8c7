// commands/counters.cpp - print the statistics counters of one unit of a device.
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "commands/commands.h"
#include "common/commandline.h"
#include "common/counter_records.h"
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

constexpr sb_option<options> option_table[] = {
    sets<&options::hexadecimal, false>('d'),
    sets<&options::hexadecimal>('h'),
    takes_number<&options::size, MIN_SIZE, MAX_SIZE>('s'),
};
constexpr sb_commandline command_line = {
    .command = "counters",
    .print_usage = [] { std::printf(usage, DEFAULT_SIZE); },
    .operands = {.min = 2,
                 .max = 2,
                 .words = {sb_word::device, sb_word::unit},
                 .extra = {"missing operand", SB_FAILED}},  // Deliberate: too many get the text of too few.
    .bad_argument = {"", SB_FAILED},
};

int show_unit(device_record *device, uint32_t unit, uint64_t reply_port, const options &opts) {
    const auto size = static_cast<uint64_t>(opts.size);
    IOreq *request = CreateIOreq(device, unit, IOREQ_FLAGS_DEFAULT, size + IOREQ_INLINE, reply_port);
    if (request == nullptr) return sb_fail(command_line, SB_FAILED, "failed to create IOreq");
    auto *records = reinterpret_cast<unsigned char *>(request) + IOREQ_INLINE;
    request->command = CNTCMD_GET;
    request->payload = reinterpret_cast<uint64_t>(records);
    request->transfer.buffer_size = size;
    if (SyncIO(request) != IO_SUCCESS) return sb_fail(command_line, SB_FAILED, "failed to get counters");
    const uint64_t returned = request->transfer.returned_size;  // read once: the server can write to it
    sb_counters_print(records, std::min(returned, size), opts.hexadecimal);
    return SB_DONE;
}

}  // namespace

constexpr sb_description sb_counters_line = sb_describe(command_line, option_table);

int sb_counters(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;
    const auto unit = static_cast<uint32_t>(std::strtoul(argv[1], nullptr, 0));

    const uint64_t port = _SL_CreateMsgPort(0, 0);
    if (port == NO_OBJECT) return sb_fail(command_line, SB_FAILED, "failed to create MsgPort");
    const uint64_t reply_port = _SL_CreateHandle(0, port, RIGHTS_QUERY_REPLY);
    if (reply_port == NO_OBJECT) return sb_fail(command_line, SB_FAILED, "failed to create MsgPort handle");
    device_record *device = OpenDevice(argv[0]);
    if (device == nullptr) return sb_fail(command_line, SB_FAILED, "failed to open device '%s'", argv[0]);
    if (const int status = show_unit(device, unit, reply_port, opts)) return status;
    CloseDevice(device);
    _SL_DeleteObject(reply_port, DELETE_HANDLE);
    return SB_DONE;
}
