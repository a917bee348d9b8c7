// commands/sendlog.cpp - write one message into the system log: a text of any length in an I/O request, or, in an
// emergency, up to 16 characters in one direct message. Everything is printed on standard output.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "commands/commands.h"
#include "common/commandline.h"
#include "platform/device.h"
#include "platform/protocol/log.h"

namespace {

constexpr unsigned WORD_CHARACTERS = 8;     // of an emergency message's word
constexpr size_t LONGEST_MESSAGE = 65535;   // characters
constexpr unsigned DEFAULT_TIMEOUT = 2500;  // milliseconds
constexpr unsigned DEFAULT_UNIT = 0;
constexpr long long MAX_NUMBER = 2147483646;

// Deliberate: does not list -e.
constexpr char usage[] = R"(Usage: sendlog [OPTION]... LONGMESSAGE
  or:  sendlog -e [OPTION]... [LABEL] MESSAGE
Send a log message to the syslog service. The LABEL and the
MESSAGE can be at most %u characters (over this length,
other character will not be sent). However, LONGMESSAGE
can have any length up to %zu.

    -T    set request timeout (default: %u)
    -u    set syslog service unit number (default: %u)
    -v    verbose mode
)";

struct options {
    bool emergency = false;
    bool verbose = false;
    uint32_t timeout = DEFAULT_TIMEOUT;
    int32_t unit = DEFAULT_UNIT;
};

// Takes a number; an argument without any digit counts as missing.
template <auto Member, long long Min, long long Max>
bool get_number(void *options, e_optstate *state, const sb_optionrow &) {
    const char *text = e_opt_getstr(state);
    if (text == nullptr || std::strpbrk(text, "0123456789") == nullptr) return false;
    const long long number = std::strtoll(text, nullptr, 0);
    if (number < Min || number > Max) return false;
    sb_field<Member>(options) = static_cast<sb_valueof<Member>>(number);
    return true;
}

constexpr sb_option<options> option_table[] = {
    sets<&options::emergency>('e'),
    sets<&options::verbose>('v'),
    takes<options>('T', sb_word::number, get_number<&options::timeout, 0, MAX_NUMBER>),
    takes<options>('u', sb_word::number, get_number<&options::unit, INT32_MIN, INT32_MAX>),
};
constexpr sb_commandline command_line = {
    .command = "sendlog",
    .print_usage = [] { std::printf(usage, WORD_CHARACTERS, LONGEST_MESSAGE, DEFAULT_TIMEOUT, DEFAULT_UNIT); },
    .operands = {.min = 1, .words = {sb_word::text}},
    .bad_argument = SB_SHOW_USAGE,
    .speech = sb_speech::on_stdout,
};

// The next 8 characters of a text, the first in the most significant byte, filled up with spaces.
uint64_t pack_word(const char *&text) {
    uint64_t word = 0;
    for (unsigned i = 0; i < WORD_CHARACTERS; ++i)
        word = word << 8 | static_cast<unsigned char>(*text != '\0' ? *text++ : ' ');
    return word;
}

void sb_sendlog_compose(const char *label, const char *message, uint64_t *word1, uint32_t *code, uint64_t *word2) {
    *code = label != nullptr ? LOGMSG_LABELLED : LOGMSG_PLAIN;
    *word1 = pack_word(label != nullptr ? label : message);
    *word2 = pack_word(message);
}

// Port, handle, request and, where the run fails, the device too are left to the system.
int sb_sendlog_long(int argc, char **argv, uint32_t timeout, bool verbose, int32_t unit) {
    if (argc > 1) return sb_fail(command_line, SB_FAILED, "extra operand '%s'", argv[1]);
    const char *text = argv[0];
    const size_t length = std::strlen(text);
    if (length > LONGEST_MESSAGE) return sb_fail(command_line, SB_FAILED, "message is too long");

    if (verbose) sb_say(command_line, "open \"%s\" device", LOG_DEVICE);
    device_record *device = OpenDevice(LOG_DEVICE);
    if (device == nullptr) return sb_fail(command_line, SB_FAILED, "%s: device not exist", LOG_DEVICE);
    if (verbose) sb_say(command_line, "create MsgPort");
    const uint64_t port = _SL_CreateMsgPort(0, 0);
    if (port == NO_OBJECT) return sb_fail(command_line, SB_SETUP, "failed to create MsgPort");
    const uint64_t reply_port = _SL_CreateHandle(0, port, RIGHTS_REPLY);
    if (reply_port == NO_OBJECT) return sb_fail(command_line, SB_SETUP, "failed to create handle to MsgPort");

    if (verbose) sb_say(command_line, "create I/O request");
    IOreq *header = CreateIOreq(device, static_cast<uint32_t>(unit), IOREQ_FLAGS_DEFAULT,
                                sizeof(log_write_request) + length + 1, reply_port);
    if (header == nullptr) {
        std::puts("readlog: failed to create I/O request");  // Deliberate: in the reader's name
        return SB_SETUP;
    }
    auto *request = reinterpret_cast<log_write_request *>(header);
    char *buffer = reinterpret_cast<char *>(request) + sizeof *request;
    header->payload = reinterpret_cast<uint64_t>(&request->length);
    request->buffer = reinterpret_cast<uint64_t>(buffer);
    header->timeout = timeout;
    request->length = static_cast<uint16_t>(length);
    header->command = LOGCMD_WRITE;
    std::memcpy(buffer, text, length + 1);
    if (SyncIO(header) != IO_SUCCESS) {
        std::printf("readlog: failed to perform IOreq, error code: 0x%x\n", header->error);  // Deliberate: likewise
        return SB_SETUP;
    }
    CloseDevice(device);
    return SB_DONE;
}

int sb_sendlog_emerg(int argc, char **argv, uint32_t timeout, bool verbose) {
    if (argc > 2) return sb_fail(command_line, SB_FAILED, "extra operand '%s'", argv[2]);
    uint64_t word1 = 0, word2 = 0;
    uint32_t code = 0;
    sb_sendlog_compose(argc == 2 ? argv[0] : nullptr, argv[argc - 1], &word1, &code, &word2);

    if (verbose) sb_say(command_line, "get \"%s\" device MsgPort from registry", LOG_DEVICE);
    const uint64_t port = GetDeviceMsgPort(LOG_DEVICE);
    if (port == NO_OBJECT) return sb_fail(command_line, SB_FAILED, "%s: device not exist", LOG_DEVICE);
    if (verbose) sb_say(command_line, "send with %u msec timeout", timeout);
    if (_SL_SendMsg(port, word1, code, word2, timeout) != RESULT_SUCCESS)
        return sb_fail(command_line, SB_FAILED, "failed to send message");
    if (verbose) sb_say(command_line, "message sent");
    return SB_DONE;
}

}  // namespace

constexpr sb_description sb_sendlog_line = sb_describe(command_line, option_table);

int sb_sendlog(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;
    if (opts.emergency) return sb_sendlog_emerg(argc, argv, opts.timeout, opts.verbose);
    return sb_sendlog_long(argc, argv, opts.timeout, opts.verbose, opts.unit);
}
