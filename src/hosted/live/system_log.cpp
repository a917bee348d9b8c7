// hosted/live/system_log.cpp - the kernel's log, and writing to it or to the system logger.
#include "hosted/live/system_log.h"

#include <sys/klog.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "hosted/live/texts.h"
#include "platform/kernel.h"
#include "platform/protocol/device.h"
#include "platform/protocol/log.h"

namespace hosted::live {

namespace {

// Priorities of messages: facility "user" and a severity.
constexpr int PRIORITY_NOTICE = 13;
constexpr int PRIORITY_EMERGENCY = 8;

constexpr size_t LARGEST_RECORD = 16 << 10;  // bytes of a record as it is read, several times what the kernel makes

// Bounds of a message in one record. The kernel may cut longer ones: as they are written, and as they are read, where
// its device escapes bytes and delivers 2,048 with what it puts in front.
constexpr size_t LARGEST_PIECE = 900;
constexpr size_t LARGEST_ESCAPED_PIECE = 1800;
constexpr size_t ESCAPE_SIZE = 4;

// The byte that "\xHH" at the front of text represents; nothing where there is no such escape.
std::optional<char> escaped_byte(std::string_view text) {
    unsigned char byte = 0;
    if (text.size() < ESCAPE_SIZE || !text.starts_with("\\x")) return std::nullopt;
    const auto [end, error] = std::from_chars(text.data() + 2, text.data() + ESCAPE_SIZE, byte, 16);
    if (error != std::errc{} || end != text.data() + ESCAPE_SIZE) return std::nullopt;
    return static_cast<char>(byte);
}

// The bytes of a text in which the kernel has escaped what is not printable ASCII, and the backslash. An escape that is
// cut at the end is none.
std::string unescaped(std::string_view text) {
    std::string bytes;
    while (!text.empty()) {
        const auto byte = escaped_byte(text);
        if (!byte && text.size() < ESCAPE_SIZE && text.front() == '\\') break;
        bytes += byte.value_or(text.front());
        text.remove_prefix(byte ? ESCAPE_SIZE : 1);
    }
    return bytes;
}

std::string time_mark(uint64_t microseconds) {
    constexpr uint64_t second = 1'000'000;
    char mark[64];
    std::snprintf(mark, sizeof mark, "[%5llu.%06llu]", static_cast<unsigned long long>(microseconds / second),
                  static_cast<unsigned long long>(microseconds % second));
    return mark;
}

// The log's texts by the system call, each line with a prefix "<PRIORITY>[SECONDS.MICROSECONDS] ". Empty, with errno
// set, where it may not be read.
std::string read_by_call() {
    constexpr int read_all = 3, size_of_buffer = 10;
    const int size = klogctl(size_of_buffer, nullptr, 0);
    if (size <= 0) return {};
    std::string lines(std::min(static_cast<size_t>(size), LARGEST_TEXT), '\0');
    lines.resize(static_cast<size_t>(std::max(klogctl(read_all, lines.data(), static_cast<int>(lines.size())), 0)));
    return lines;
}

// Takes "<PRIORITY>" off the front of a line.
void skip_priority(std::string_view &line) {
    if (line.starts_with('<')) line.remove_prefix(std::min(line.find('>'), line.size() - 1) + 1);
}

// Reads every record of /dev/kmsg, one a read. Returns 0 or an error number.
int read_records(int file, std::string &log) {
    std::array<char, LARGEST_RECORD> record;
    std::optional<std::string> lines;  // by the call, once a record was cut
    const auto whole = [&lines](uint64_t microseconds, std::string_view front) {
        if (!lines) lines = read_by_call();
        return find_record(*lines, microseconds, front);
    };
    constexpr int patience = 1000;  // how often the log may overtake its reader
    for (int overtaken = 0; overtaken < patience && log.size() < LARGEST_TEXT;) {
        const ssize_t got = read_once(file, record);
        if (got > 0) {
            append_log_line(log, {record.data(), static_cast<size_t>(got)}, whole);
        } else if (got < 0 && errno == EPIPE) {
            overtaken++;  // records were overwritten: the next read delivers the oldest that is left
        } else {
            return got == 0 || errno == EAGAIN ? 0 : errno;
        }
    }
    return 0;
}

// Takes off a message what goes into one record: whole characters, as many as fit it.
std::string_view next_piece(std::string_view &message) {
    size_t size = 0;
    for (size_t as_read = 0; size < message.size();) {
        const size_t character = first_character(message.substr(size)).size;
        const bool plain = character == 1 && message[size] >= ' ' && message[size] <= '~' && message[size] != '\\';
        as_read += plain ? 1 : ESCAPE_SIZE * character;
        if (size + character > LARGEST_PIECE || as_read > LARGEST_ESCAPED_PIECE) break;
        size += character;
    }
    const std::string_view piece = message.substr(0, size);
    message.remove_prefix(size);
    return piece;
}

// Writes a message as records. Each goes through an open of its own: of what comes through one, the kernel drops in
// silence all but the first few within some seconds. A line end closes the record: without it readers do not see it
// until the next one begins.
//   begun    out: whether a record was written
//   returns  0 or an error number
int write_records(const std::string &path, const std::string &mark, std::string_view message, bool &begun) {
    do {
        const descriptor file = open_file(AT_FDCWD, path.c_str(), O_WRONLY | O_APPEND | O_NONBLOCK);
        if (!file) return errno;
        std::string record = mark;
        record += next_piece(message);
        record += '\n';
        // One write: a rest would be a record of its own.
        const ssize_t put = retry_interrupted([&] { return ::write(file.get(), record.data(), record.size()); });
        if (put != static_cast<ssize_t>(record.size())) return put < 0 ? errno : EIO;
        begun = true;
    } while (!message.empty());
    return 0;
}

// Sends a message to the system logger: as one datagram, or with a NUL after it in a stream. Returns 0 or an error
// number.
int send_to_logger(const std::string &path, const std::string &mark, std::string_view message) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return ENAMETOOLONG;
    path.copy(address.sun_path, path.size());
    std::string text = mark + "ventix: ";
    text += message;
    for (const int type : {SOCK_DGRAM, SOCK_STREAM}) {
        const descriptor logger(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
        if (!logger) return errno;
        constexpr timeval patience = {1, 0};  // of a logger that does not read
        setsockopt(logger.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
        if (connect(logger.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
            if (errno == EPROTOTYPE) continue;
            return errno;
        }
        const size_t length = text.size() + (type == SOCK_STREAM ? 1 : 0);
        const ssize_t sent =
            retry_interrupted([&] { return ::send(logger.get(), text.c_str(), length, MSG_NOSIGNAL); });
        if (sent == static_cast<ssize_t>(length)) return 0;
        return sent < 0 ? errno : EAGAIN;
    }
    return EPROTOTYPE;
}

}  // namespace

std::string escaped(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const auto [size, steers] = first_character(text);
        if (steers) {
            for (const char byte : text.substr(0, size)) {
                char escape[ESCAPE_SIZE + 1];
                std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned char>(byte));
                shown += escape;
            }
        } else {
            shown += text.substr(0, size);
        }
        text.remove_prefix(size);
    }
    return shown;
}

// A record: "PRIORITY,SEQUENCE,MICROSECONDS,FLAGS;TEXT" and a line feed, which is missing where the text is cut; lines
// with more properties may follow.
void append_log_line(std::string &log, std::string_view record,
                     const std::function<std::string(uint64_t, std::string_view)> &whole) {
    const size_t end = record.find('\n');
    scanner line(record.substr(0, end));
    scanner prefix(line.until(';'));
    prefix.skip_past(',');
    prefix.skip_past(',');
    const auto microseconds = prefix.decimal();
    if (!microseconds) return;
    // Where a record is cut, later characters may have taken the place of an escape that did not fit.
    const std::string_view rest = line.rest();
    const bool cut = end == record.npos;
    std::string text = unescaped(rest.substr(0, rest.size() - (cut ? std::min(rest.size(), ESCAPE_SIZE) : 0)));
    if (cut) {
        if (std::string all = whole(*microseconds, text); !all.empty()) text = std::move(all);
    }
    log += time_mark(*microseconds) + ' ' + escaped(text) + '\n';
}

// A record of several lines has its prefix at each of them. Lines with the same prefix are taken for one record as long
// as they agree with its front and its largest size.
std::string find_record(std::string_view lines, uint64_t microseconds, std::string_view front) {
    constexpr size_t largest = 1024;
    const std::string mark = time_mark(microseconds);
    const auto agrees = [front](std::string_view text) { return text.starts_with(front) || front.starts_with(text); };
    std::string found;
    std::string_view found_prefix;  // empty: none found yet
    for (scanner scan(lines); !scan.done();) {
        const std::string_view line = scan.line();
        const size_t end = line.find("] ");  // of the time, or of a caller that follows it
        const std::string_view prefix = line.substr(0, end == line.npos ? 0 : end + 2);
        const std::string_view text = line.substr(prefix.size());
        if (!prefix.empty() && prefix == found_prefix) {
            std::string joined = found + '\n' + std::string(text);
            if (joined.size() <= largest && agrees(joined)) {
                found = std::move(joined);
                continue;
            }
        }
        if (!found_prefix.empty() && found.starts_with(front)) return found;
        std::string_view unmarked = prefix;
        skip_priority(unmarked);
        found_prefix = unmarked.starts_with(mark) && agrees(text) ? prefix : std::string_view();
        found = text;
    }
    return !found_prefix.empty() && found.starts_with(front) ? found : std::string();
}

std::string emergency_text(uint64_t word1, uint64_t code, uint64_t word2) {
    const auto unpacked = [](uint64_t word) {
        std::string text;
        for (int shift = 56; shift >= 0; shift -= 8)
            text += static_cast<char>(static_cast<unsigned char>(word >> shift));
        return text;
    };
    const auto without_end_blanks = [](std::string text) {
        text.resize(text.find_last_not_of(' ') + 1);
        clean(text);
        return text;
    };
    if (code != LOGMSG_LABELLED) return without_end_blanks(unpacked(word1) + unpacked(word2));
    return without_end_blanks(unpacked(word1)) + ": " + without_end_blanks(unpacked(word2));
}

// Who may not open the device reads the log by the system call.
uint32_t system_log::load() {
    text_.clear();
    loaded_ = false;
    const std::string path = roots_.dev + "/kmsg";
    const descriptor file = open_file(AT_FDCWD, path.c_str());
    const int error = unless_exhausted(file ? read_records(file.get(), text_) : errno, path);
    if (error != 0 && text_.empty()) {
        const std::string lines = read_by_call();
        if (lines.empty()) return error_word(errno);
        for (scanner scan(lines); !scan.done();) {
            std::string_view line = scan.line();
            skip_priority(line);
            text_ += escaped(line) + '\n';
        }
    }
    loaded_ = true;
    return 0;
}

uint32_t system_log::length(uint64_t &characters) {
    if (const uint32_t error = load()) return error;
    characters = text_.size();
    return 0;
}

uint32_t system_log::read(uint64_t offset, uint64_t room, std::string_view &text) {
    if (!loaded_) {
        if (const uint32_t error = load()) return error;
    }
    text = std::string_view(text_).substr(std::min<uint64_t>(offset, text_.size()), room);
    return 0;
}

uint32_t system_log::send(int priority, std::string_view message) {
    if (message.ends_with('\n')) message.remove_suffix(1);
    const std::string mark = '<' + std::to_string(priority) + '>';  // in front: a message cannot bring its own
    bool begun = false;
    const int refusal = write_records(roots_.dev + "/kmsg", mark, message, begun);
    if (refusal == 0) return 0;
    if (begun) return error_word(refusal);
    const int error = send_to_logger(roots_.dev + "/log", mark, message);
    if (error == 0) return 0;
    return error_word(error == ENOENT ? refusal : error);  // without a logger, the kernel log's refusal counts
}

uint32_t system_log::write(std::string_view message) { return send(PRIORITY_NOTICE, message); }

// Deliberate: a failure is lost. An emergency message has no answer.
void system_log::emergency(uint64_t word1, uint64_t code, uint64_t word2) {
    send(PRIORITY_EMERGENCY, emergency_text(word1, code, word2));
}

}  // namespace hosted::live
