// readlog - print a slice of the system log, from its head or its tail, line by line and without blank lines.
#include <poll.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "commands/commands.h"
#include "common/commandline.h"
#include "common/helpers.h"
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

int fail(int status, const char *what) {
    std::fprintf(stderr, "readlog: %s\n", what);
    return status;
}

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

// ---- printing in place ----------------------------------------------------------------------------------------------

// Pieces of text on their way to descriptor 1. Neighbours in memory become one piece.
class piece_writer {
public:
    void add(const char *text, size_t length) {
        // Written while the processor still has it at hand from looking at it.
        if (pending_ >= NEAR || count_ == pieces_.size()) flush();
        pending_ += length;
        if (count_ > 0) {
            iovec &last = pieces_[count_ - 1];
            if (static_cast<const char *>(last.iov_base) + last.iov_len == text) {
                last.iov_len += length;
                return;
            }
        }
        pieces_[count_++] = {const_cast<char *>(text), length};
    }

    // Writes what was added, repeating what is interrupted or cut short, and waiting where the descriptor does not
    // block and takes no more yet. What cannot be written is left to the stream, and all that follows it: whoever
    // checks the stream at the end of the run meets the error.
    void flush() {
        iovec *next = pieces_.data();
        auto left = static_cast<int>(count_);
        count_ = 0;
        pending_ = 0;
        while (left > 0) {
            const ssize_t written = failed_ ? write_to_stream(*next) : writev(STDOUT_FILENO, next, left);
            if (written < 0) {
                pollfd output = {STDOUT_FILENO, POLLOUT, 0};
                const bool full = errno == EAGAIN && poll(&output, 1, -1) >= 0;
                failed_ = !full && errno != EINTR;
                continue;
            }
            auto done = static_cast<size_t>(written);
            for (; left > 0 && done >= next->iov_len; left--) done -= next++->iov_len;
            if (left == 0) return;
            next->iov_base = static_cast<char *>(next->iov_base) + done;
            next->iov_len -= done;
        }
    }

private:
    static ssize_t write_to_stream(const iovec &piece) {
        std::fwrite(piece.iov_base, 1, piece.iov_len, stdout);
        return static_cast<ssize_t>(piece.iov_len);
    }

    static constexpr size_t NEAR = 128 << 10;  // bytes

    std::array<iovec, 1024> pieces_;  // as many as one call takes
    size_t count_ = 0;
    size_t pending_ = 0;  // bytes of them
    bool failed_ = false;
};

constexpr char LINE_FEED[] = "\n";

bool ends_line(char c) { return c == '\n' || c == '\r'; }

const char *skip_line_ends(const char *text) {
    while (ends_line(*text)) text++;
    return text;
}

// Adds a line and its line feed, which is its own where that follows at once.
void add_line(piece_writer &out, const char *line, const char *behind) {
    const bool fed = *behind == '\n';
    out.add(line, static_cast<size_t>(behind - line) + fed);
    if (!fed) out.add(LINE_FEED, 1);
}

const char *find(const char *text, const char *end, char wanted) {
    return static_cast<const char *>(std::memchr(text, wanted, static_cast<size_t>(end - text)));
}

// ---- the requests ---------------------------------------------------------------------------------------------------

bool perform(log_read_request &request, uint32_t command, const options &opts) {
    request.header.command = command;
    request.header.timeout = opts.timeout;
    request.header.payload = reinterpret_cast<uint64_t>(&request.offset);
    if (opts.verbose) std::fprintf(stderr, "readlog: send IOreq with %u msec timeout\n", request.header.timeout);
    if (SyncIO(&request.header) == IO_SUCCESS) return true;
    std::fprintf(stderr, "readlog: failed to perform IOreq, error code: 0x%x\n", request.header.error);
    return false;
}

// Asks for the length, then for one slice, and prints it.
int show_slice(log_read_request &request, const options &opts) {
    if (!perform(request, LOGCMD_LENGTH, opts)) return SB_SETUP;
    const uint32_t length = request.offset;
    if (opts.verbose) std::fprintf(stderr, "readlog: log contains %u characters\n", length);

    const uint32_t size = opts.size;
    char *buffer = reinterpret_cast<char *>(&request) + sizeof request;
    request.offset = opts.tail ? length - std::min(length, size) : 0;
    request.count = size;
    request.buffer = reinterpret_cast<uint64_t>(buffer);
    if (!perform(request, LOGCMD_READ, opts)) return SB_SETUP;

    const uint32_t count = request.count;  // read once: the server can write to it
    const uint32_t delivered = std::min(count, size);
    // The text is printed in place, without a copy: the server is trusted not to take this NUL away meanwhile.
    buffer[delivered] = '\0';
    sb_readlog_display(buffer, delivered, opts.half_lines);
    return SB_DONE;
}

}  // namespace

constexpr sb_description sb_readlog_line = sb_describe(command_line, option_table);

void sb_readlog_display(const char *text, uint32_t, int mode) {
    const bool half_lines = mode != 0;
    if (!half_lines) {
        text = std::strchr(text, '\n');  // what stands in front of the first line feed may be half a line
        if (text == nullptr) return;
    }

    std::fflush(stdout);
    piece_writer out;
    const char *line = skip_line_ends(text);
    for (const char *feed; *(feed = strchrnul(line, '\n')) != '\0'; line = skip_line_ends(feed)) {
        const char *behind = feed;  // the line's last visible character
        while (ends_line(behind[-1])) behind--;
        add_line(out, line, behind);
    }
    // Behind the last line feed, carriage returns end lines, and what is left is half of one.
    const char *const end = line + std::strlen(line);
    while (const char *line_end = find(line, end, '\r')) {
        add_line(out, line, line_end);
        line = skip_line_ends(line_end);
    }
    if (half_lines && line != end) {
        out.add(line, static_cast<size_t>(end - line));
        out.add(LINE_FEED, 1);
    }
    out.flush();
}

// On success only the device is closed; a failed run leaves everything to the system.
int sb_readlog(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;

    if (opts.verbose) std::fprintf(stderr, "readlog: open \"%s\" device\n", LOG_DEVICE);
    device_record *device = OpenDevice(LOG_DEVICE);
    if (device == nullptr) {
        std::fprintf(stderr, "readlog: %s: device not exist\n", LOG_DEVICE);
        return SB_FAILED;
    }
    if (opts.verbose) std::fputs("readlog: create MsgPort\n", stderr);
    const uint64_t port = CreateSharedMsgPort(0, 0, 0, RIGHTS_REPLY);
    if (port == NO_OBJECT) return fail(SB_SETUP, "failed to create MsgPort");
    if (opts.verbose) std::fputs("readlog: create I/O request\n", stderr);
    IOreq *request = CreateIOreq(device, static_cast<uint32_t>(opts.unit), IOREQ_FLAGS_DEFAULT,
                                 sizeof(log_read_request) + uint64_t{opts.size} + 1, port);
    if (request == nullptr) return fail(SB_SETUP, "failed to create I/O request");
    if (const int status = show_slice(*reinterpret_cast<log_read_request *>(request), opts)) return status;
    CloseDevice(device);
    return SB_DONE;
}
