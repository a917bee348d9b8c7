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
// cut at the end is dropped.
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

// The size of what the log's system call puts in front of a line: "<PRIORITY>", and unless the kernel leaves out times
// "[SECONDS.MICROSECONDS] ", where its caller may follow the time: "[T1]".
size_t prefix_size(std::string_view line) {
    scanner scan(line);
    uint64_t number = 0;
    if (!scan.take('<') || !scan.decimal(number) || !scan.take('>')) return 0;
    const size_t priority = line.size() - scan.rest().size();
    if (!scan.take('[') || !scan.decimal(number) || !scan.take('.') || !scan.decimal(number) || !scan.take(']'))
        return priority;
    if (scan.take('[')) scan.skip_past(']');
    return scan.take(' ') ? line.size() - scan.rest().size() : priority;
}

// The newest records of the log by its system call, as many whole ones as fit the buffer. Empty, with errno set, where
// it may not be read.
std::string_view read_newest(std::span<char> buffer) {
    constexpr int read_all = 3;
    const int size = klogctl(read_all, buffer.data(), static_cast<int>(buffer.size()));
    return {buffer.data(), static_cast<size_t>(std::max(size, 0))};
}

// The records of the log by its system call. Empty, with errno set, where it may not be read.
//   time  as of split_records()
std::vector<log_record> read_by_call(std::string_view time) {
    constexpr int size_of_ring = 10, most_tries = 3;
    constexpr size_t largest_record = 64 << 10;  // with a prefix at each of its lines
    const int ring = klogctl(size_of_ring, nullptr, 0);
    std::vector<log_record> records;
    std::string text, part;
    size_t room = static_cast<size_t>(std::max(ring, 0)) + largest_record;
    for (int tries = 0; ring > 0 && tries < most_tries; ++tries) {
        std::string_view lines;
        for (;; room *= 2) {  // the prefixes are not part of the ring
            text.resize(room);
            lines = read_newest(text);
            if (lines.size() + largest_record <= room || room > LARGEST_TEXT) break;
        }
        part.resize(lines.size());
        const auto newest = [&part](size_t size) { return read_newest(std::span(part).first(size)); };
        if (lines.empty() || split_records(lines, time, newest, records)) break;
    }
    return records;
}

// Reads every record of /dev/kmsg, one a read. Returns 0 or an error number.
int read_records(int file, std::string &log) {
    std::array<char, LARGEST_RECORD> record;
    constexpr int most_overruns = 1000;
    for (int overruns = 0; overruns < most_overruns && log.size() < LARGEST_TEXT;) {
        const ssize_t got = read_part(file, record);
        if (got > 0) {
            append_log_line(log, {record.data(), static_cast<size_t>(got)}, read_by_call);
        } else if (got < 0 && errno == EPIPE) {
            ++overruns;  // records were overwritten: the next read delivers the oldest that is left
        } else {
            return got == 0 || errno == EAGAIN ? 0 : errno;
        }
    }
    return 0;
}

// Removes from a message what fits one record: whole characters, as many as fit it.
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
                     const std::function<std::vector<log_record>(std::string_view)> &records_at) {
    const size_t end = record.find('\n');
    scanner line(record.substr(0, end));
    scanner prefix(line.until(';'));
    prefix.skip_past(',');
    prefix.skip_past(',');
    const auto microseconds = prefix.decimal();
    if (!microseconds) return;
    const std::string time = time_mark(*microseconds);
    std::string_view rest = line.rest();
    if (end != record.npos) {
        log += time + ' ' + escaped(unescaped(rest)) + '\n';
        return;
    }
    // Later characters may have taken the place of an escape that did not fit.
    rest.remove_suffix(std::min(rest.size(), ESCAPE_SIZE));
    std::string text = unescaped(rest);
    for (log_record &whole : records_at(time)) {
        if (!whole.text.starts_with(text)) continue;
        text = std::move(whole.text);
        break;
    }
    log += time + ' ' + escaped(text) + '\n';
}

// Records with line feeds have their prefix at each line, and records made within a microsecond have the same prefix.
// Which of these two a line is only the kernel knows: asked for as many bytes as follow the line's beginning, it
// returns records from there on if one begins there, and else from the next one on.
bool split_records(std::string_view lines, std::string_view time, const std::function<std::string_view(size_t)> &newest,
                   std::vector<log_record> &records) {
    constexpr int most_questions = 1000;  // each costs a walk over the ring
    int questions = 0;
    bool unchanged = true;
    size_t next_record = 0;  // where it begins, as far as the kernel has been asked
    std::string_view last_prefix;
    records.clear();
    for (scanner scan(lines); !scan.done();) {
        const size_t begin = lines.size() - scan.rest().size();
        const std::string_view line = scan.line();
        const std::string_view prefix = line.substr(0, prefix_size(line));
        const std::string_view text = line.substr(prefix.size());
        std::string_view shown = prefix;
        if (!shown.empty()) shown.remove_prefix(shown.find('>') + 1);
        if (!shown.starts_with(time)) continue;
        const bool same = !prefix.empty() && prefix == last_prefix && !records.empty();
        if (same && next_record < begin && questions++ < most_questions) {
            const std::string_view got = newest(lines.size() - begin);
            const bool known = lines.ends_with(got);
            next_record = known ? lines.size() - got.size() : begin;
            unchanged &= known;
        }
        if (same && begin < next_record) {
            (records.back().text += '\n') += text;
        } else {
            records.push_back({std::string(shown), std::string(text)});
        }
        last_prefix = prefix;
    }
    return unchanged;
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
    if (error != 0 && !text_.empty()) return error_word(error);
    if (error != 0) {
        const std::vector<log_record> records = read_by_call({});
        if (records.empty()) return error_word(errno);
        for (const auto &[prefix, text] : records) text_ += prefix + escaped(text) + '\n';
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
