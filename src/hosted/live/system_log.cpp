// system_log.cpp - the kernel's log, and writing to it or to the system logger.
#include <fcntl.h>
#include <sys/klog.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "hosted/live/devices.h"
#include "platform/protocol/log.h"

namespace hosted::live {

namespace {

// Priorities of messages: facility "user" and a severity.
constexpr int PRIORITY_NOTICE = 13;
constexpr int PRIORITY_EMERGENCY = 8;

constexpr size_t LARGEST_RECORD = 16 << 10;  // bytes of a record as it is read, twice what the kernel makes
constexpr size_t LARGEST_PIECE = 900;        // bytes of a message in one record; the kernel may cut longer ones

// The byte that "\xHH" at the front of text stands for; nothing where none does. The kernel writes so what is not
// printable ASCII.
std::optional<unsigned char> escaped_byte(std::string_view text) {
    unsigned char byte = 0;
    if (text.size() < 4 || !text.starts_with("\\x")) return std::nullopt;
    const auto [behind, error] = std::from_chars(text.data() + 2, text.data() + 4, byte, 16);
    if (error != std::errc{} || behind != text.data() + 4) return std::nullopt;
    return byte;
}

// Appends a record's text. Escapes of control characters stay, also of those that two bytes of UTF-8 make, so that a
// record is one line and nothing in it acts on a terminal.
void append_unescaped(std::string &log, std::string_view text) {
    unsigned char before = 0;
    while (!text.empty()) {
        const auto byte = escaped_byte(text);
        const bool control = byte && (*byte < ' ' || *byte == 0x7F || (before == 0xC2 && *byte < 0xA0));
        before = byte.value_or(0);
        if (byte && !control) {
            log += static_cast<char>(*byte);
            text.remove_prefix(4);
        } else {
            log += text.front();
            text.remove_prefix(1);
        }
    }
}

// Reads every record of /dev/kmsg, one a read.
bool read_records(int file, std::string &log) {
    std::array<char, LARGEST_RECORD> record;
    constexpr int patience = 1000;  // how often the log may overtake its reader
    for (int overtaken = 0; overtaken < patience && log.size() < LARGEST_TEXT;) {
        const ssize_t got = read_once(file, record);
        if (got > 0) {
            append_log_line(log, {record.data(), static_cast<size_t>(got)});
        } else if (got < 0 && errno == EPIPE) {
            overtaken++;  // records were overwritten: reading goes on with the oldest that is left
        } else {
            return got == 0 || errno == EAGAIN || !log.empty();
        }
    }
    return true;
}

// Reads the log by the system call, for those who may not open the device: its lines begin with "<PRIORITY>".
bool read_by_call(std::string &log) {
    constexpr int read_all = 3, size_of_buffer = 10;
    const int size = klogctl(size_of_buffer, nullptr, 0);
    if (size <= 0) return false;
    std::string lines(std::min(static_cast<size_t>(size), LARGEST_TEXT), '\0');
    const int got = klogctl(read_all, lines.data(), static_cast<int>(lines.size()));
    if (got < 0) return false;
    for (std::string_view rest(lines.data(), static_cast<size_t>(got)); !rest.empty();) {
        std::string_view line = next_line(rest);
        if (line.starts_with('<')) line.remove_prefix(std::min(line.find('>'), line.size() - 1) + 1);
        log += line;
        log += '\n';
    }
    return true;
}

// The part of a message that goes into one record: it ends before a character of UTF-8 that would be cut.
std::string_view next_piece(std::string_view &message) {
    size_t size = std::min(message.size(), LARGEST_PIECE);
    if (size < message.size()) {
        const auto continues = [&](size_t at) { return (static_cast<unsigned char>(message[at]) & 0xC0) == 0x80; };
        size_t begin = size;
        while (begin > size - 4 && continues(begin)) begin--;
        if (!continues(begin)) size = begin;
    }
    const std::string_view piece = message.substr(0, size);
    message.remove_prefix(size);
    return piece;
}

// Each piece goes through an open of its own: of what comes through one, the kernel drops in silence all but the first
// few within some seconds. A line end closes the record: without it readers do not see it before the next one is begun.
bool write_records(const std::string &path, const std::string &mark, std::string_view message, bool &begun) {
    do {
        const descriptor file = open_file(AT_FDCWD, path.c_str(), O_WRONLY | O_APPEND | O_NONBLOCK);
        if (!file) return false;
        std::string record = mark;
        record += next_piece(message);
        record += '\n';
        if (::write(file.get(), record.data(), record.size()) != static_cast<ssize_t>(record.size())) return false;
        begun = true;
    } while (!message.empty());
    return true;
}

// Sends a message to the system logger: as one datagram, or closed by a NUL in a stream.
bool send_to_logger(const std::string &path, const std::string &mark, std::string_view message) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return false;
    }
    path.copy(address.sun_path, path.size());
    std::string text = mark + "ventix: ";
    text += message;
    for (const int type : {SOCK_DGRAM, SOCK_STREAM}) {
        const descriptor logger(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
        if (!logger) return false;
        constexpr timeval patience = {1, 0};  // of a logger that does not take it
        setsockopt(logger.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
        if (connect(logger.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
            if (errno == EPROTOTYPE) continue;
            return false;
        }
        const size_t length = text.size() + (type == SOCK_STREAM ? 1 : 0);
        const ssize_t sent = ::send(logger.get(), text.c_str(), length, MSG_NOSIGNAL);
        if (sent >= 0 && static_cast<size_t>(sent) != length) errno = EAGAIN;
        return sent == static_cast<ssize_t>(length);
    }
    return false;
}

}  // namespace

// A record: "PRIORITY,SEQUENCE,MICROSECONDS,FLAGS;TEXT" and a line feed; lines with more properties may follow.
void append_log_line(std::string &log, std::string_view record) {
    std::string_view line = next_line(record);
    const size_t text = line.find(';');
    if (text == line.npos) return;
    std::string_view prefix = line.substr(0, text);
    for (int passed = 0; passed < 2; passed++) {
        const size_t comma = prefix.find(',');
        if (comma == prefix.npos) return;
        prefix.remove_prefix(comma + 1);
    }
    const auto microseconds = next_number(prefix);
    if (!microseconds) return;
    constexpr uint64_t second = 1'000'000;
    char time[64];
    std::snprintf(time, sizeof time, "[%5llu.%06llu] ", static_cast<unsigned long long>(*microseconds / second),
                  static_cast<unsigned long long>(*microseconds % second));
    log += time;
    append_unescaped(log, line.substr(text + 1));
    log += '\n';
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

uint32_t system_log::take() {
    text_.clear();
    taken_ = false;
    const descriptor file = open_file(AT_FDCWD, (roots_.dev + "/kmsg").c_str());
    if (!(file && read_records(file.get(), text_)) && !read_by_call(text_)) return error_word(errno);
    taken_ = true;
    return 0;
}

uint32_t system_log::length(uint64_t &characters) {
    if (const uint32_t error = take()) return error;
    characters = text_.size();
    return 0;
}

uint32_t system_log::read(uint64_t offset, uint64_t room, std::string_view &text) {
    if (!taken_) {
        if (const uint32_t error = take()) return error;
    }
    text = std::string_view(text_).substr(std::min<uint64_t>(offset, text_.size()), room);
    return 0;
}

uint32_t system_log::send(int priority, std::string_view message) {
    if (message.ends_with('\n')) message.remove_suffix(1);
    const std::string mark = '<' + std::to_string(priority) + '>';  // ahead of every text, which cannot bring its own
    bool begun = false;
    if (write_records(roots_.dev + "/kmsg", mark, message, begun)) return 0;
    const int refusal = errno;
    if (begun) return error_word(refusal);
    if (send_to_logger(roots_.dev + "/log", mark, message)) return 0;
    return error_word(errno == ENOENT ? refusal : errno);  // without a logger, what the kernel's log said counts
}

uint32_t system_log::write(std::string_view message) { return send(PRIORITY_NOTICE, message); }

void system_log::emergency(uint64_t word1, uint64_t code, uint64_t word2) {
    send(PRIORITY_EMERGENCY, emergency_text(word1, code, word2));  // no answer is due: nobody to tell of a failure
}

}  // namespace hosted::live
