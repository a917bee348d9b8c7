// commands/readlog.cpp - print a slice of the system log, from its head or its tail, line by line and without blank
// lines.

#include <algorithm>
#include <cstdio>

#include "commands/commands.h"
#include "common/commandline.h"
#include "common/log_lines.h"
#include "platform/device.h"
#include "platform/protocol/log.h"

namespace {

constexpr unsigned DEFAULT_SIZE = 6144;  // bytes of a slice
constexpr unsigned MIN_SIZE = 16;
constexpr unsigned DEFAULT_TIMEOUT = 2500;  // milliseconds
constexpr unsigned DEFAULT_UNIT = 0;
constexpr long long MAX_NUMBER = 2147483646;

constexpr char usage[] = R"(Usage: readlog [OPTION]...
Read the syslog.

    -f    print full lines only (may cause data loss; default)
    -h    print half lines
    -H    print head of the log
    -s    set request size (default: %u; min: %u)
    -t    print tail of the log (default)
    -T    set request timeout (default: %u)
    -u    set syslog service unit number (default: %u)
    -v    verbose mode
)";

struct options {
    bool half_lines = false;
    bool tail = true;
    bool verbose = false;
    uint32_t size = DEFAULT_SIZE;
    uint32_t timeout = DEFAULT_TIMEOUT;
    int32_t unit = DEFAULT_UNIT;
};

constexpr sb_option<options> option_table[] = {
    sets<&options::half_lines, false>('f'),
    sets<&options::half_lines>('h'),
    sets<&options::tail, false>('H'),
    sets<&options::tail>('t'),
    sets<&options::verbose>('v'),
    takes_number<&options::size, MIN_SIZE, MAX_NUMBER>('s'),
    takes_number<&options::timeout, 0, MAX_NUMBER>('T'),
    takes_number<&options::unit, INT32_MIN, INT32_MAX>('u'),
};
constexpr sb_commandline command_line = {
    .command = "readlog",
    .print_usage = [] { std::printf(usage, DEFAULT_SIZE, MIN_SIZE, DEFAULT_TIMEOUT, DEFAULT_UNIT); },
    .operands = {.max = 0, .extra = {"extra operand '%'", SB_FAILED}},
    .bad_argument = {"missing or invalid operand of -%", SB_SETUP},
};

// ---- the requests ---------------------------------------------------------------------------------------------------

bool perform(log_read_request &request, uint32_t command, const options &opts) {
    request.header.command = command;
    request.header.timeout = opts.timeout;
    request.header.payload = reinterpret_cast<uint64_t>(&request.offset);
    if (opts.verbose) sb_say(command_line, "send IOreq with %u msec timeout", request.header.timeout);
    if (SyncIO(&request.header) == IO_SUCCESS) return true;
    sb_say(command_line, "failed to perform IOreq, error code: 0x%x", request.header.error);
    return false;
}

// Asks for the length, then for one slice, and prints it.
int show_slice(log_read_request &request, const options &opts) {
    if (!perform(request, LOGCMD_LENGTH, opts)) return SB_SETUP;
    const uint32_t length = request.offset;
    if (opts.verbose) sb_say(command_line, "log contains %u characters", length);

    const uint32_t size = opts.size;
    char *buffer = reinterpret_cast<char *>(&request) + sizeof request;
    request.offset = opts.tail ? length - std::min(length, size) : 0;
    request.count = size;
    request.buffer = reinterpret_cast<uint64_t>(buffer);
    if (!perform(request, LOGCMD_READ, opts)) return SB_SETUP;

    const uint32_t count = request.count;  // read once: the server can write to it
    const uint32_t delivered = std::min(count, size);
    // The text is printed without a copy: the server is trusted not to overwrite this NUL meanwhile.
    buffer[delivered] = '\0';
    sb_readlog_display(buffer, delivered, opts.half_lines);
    return SB_DONE;
}

}  // namespace

constexpr sb_description sb_readlog_line = sb_describe(command_line, option_table);

// On success only the device is closed; a failed run leaves everything to the system.
int sb_readlog(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;

    if (opts.verbose) sb_say(command_line, "open \"%s\" device", LOG_DEVICE);
    device_record *device = OpenDevice(LOG_DEVICE);
    if (device == nullptr) return sb_fail(command_line, SB_FAILED, "%s: device not exist", LOG_DEVICE);
    if (opts.verbose) sb_say(command_line, "create MsgPort");
    const uint64_t port = CreateSharedMsgPort(0, 0, 0, RIGHTS_REPLY);
    if (port == NO_OBJECT) return sb_fail(command_line, SB_SETUP, "failed to create MsgPort");
    if (opts.verbose) sb_say(command_line, "create I/O request");
    IOreq *request = CreateIOreq(device, static_cast<uint32_t>(opts.unit), IOREQ_FLAGS_DEFAULT,
                                 sizeof(log_read_request) + uint64_t{opts.size} + 1, port);
    if (request == nullptr) return sb_fail(command_line, SB_SETUP, "failed to create I/O request");
    if (const int status = show_slice(*reinterpret_cast<log_read_request *>(request), opts)) return status;
    CloseDevice(device);
    return SB_DONE;
}
