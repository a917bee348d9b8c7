// live/proc_files.h - reading many small files fast: what the process file system tells of each process.
//
// One buffer serves all, and the scans over it are in line, since a listing reads some files of every process. Nothing
// read is trusted: a scan stops at what it does not understand, and a number that is too long wraps.
#pragma once

#include <unistd.h>

#include "hosted/live/files.h"
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

namespace hosted::live {

// The errors by which the process file system says that a process has gone, rather than that it may not be looked at.
inline bool means_gone(int error) { return error == ENOENT || error == ESRCH; }

// A text that is scanned from its front.
class scanner {
public:
    explicit scanner(std::string_view text) : at_(text.data()), end_(text.data() + text.size()) {}

    bool done() const { return at_ == end_; }
    std::string_view rest() const { return {at_, static_cast<size_t>(end_ - at_)}; }

    bool take(char wanted) {
        if (done() || *at_ != wanted) return false;
        at_++;
        return true;
    }
    void skip_blanks() {
        while (!done() && (*at_ == ' ' || *at_ == '\t')) at_++;
    }
    void skip_past(char wanted) {
        const auto *found = static_cast<const char *>(std::memchr(at_, wanted, rest().size()));
        at_ = found == nullptr ? end_ : found + 1;
    }
    std::string_view word() {
        skip_blanks();
        const char *begin = at_;
        while (!done() && *at_ != ' ' && *at_ != '\t' && *at_ != '\n') at_++;
        return {begin, static_cast<size_t>(at_ - begin)};
    }

    // A decimal number behind blanks; a negative one is its two's complement. False where there is no digit.
    bool decimal(uint64_t &value) {
        skip_blanks();
        const bool negative = take('-');
        const char *begin = at_;
        uint64_t read = 0;
        for (; !done() && *at_ >= '0' && *at_ <= '9'; at_++) read = read * 10 + static_cast<uint64_t>(*at_ - '0');
        if (at_ == begin) return false;
        value = negative ? 0 - read : read;
        return true;
    }

    // A hexadecimal number, digits alone.
    bool hexadecimal(uint64_t &value) {
        const char *begin = at_;
        uint64_t read = 0;
        for (int digit; !done() && (digit = hex_digit(*at_)) >= 0; at_++)
            read = read << 4 | static_cast<unsigned>(digit);
        if (at_ == begin) return false;
        value = read;
        return true;
    }

private:
    static int hex_digit(char c) {
        if (c >= '0' && c <= '9') return c - '0';
        return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
    }

    const char *at_;
    const char *end_;
};

// The number that follows a key at the start of a line, such as "\nTgid:"; 0 where the key does not stand there. The
// line feed is part of the key, so that a text within a line is never taken for one.
inline uint64_t value_of(std::string_view text, std::string_view key) {
    uint64_t value = 0;
    if (const size_t found = text.find(key); found != text.npos)
        scanner(text.substr(found + key.size())).decimal(value);
    return value;
}

// Reads files into one buffer, again and again: what one call gave is valid until the next.
class file_reader {
public:
    // Reads a file that the system makes in one piece, so that a read with room left over has seen its end; of one
    // that has none, LARGEST_TEXT bytes.
    //   directory  where a relative path begins
    //   returns    0, or the error number
    int read(int directory, const char *path, std::string_view &text);

    // Reads no more than the first piece of a file, which may be any length.
    int read_front(int directory, const char *path, std::string_view &text);

    // Reads a file of lines, of any length, and calls take(line) for each, without its line feed. A line that does not
    // fit the buffer is passed in pieces. Returns 0, or the error number that ended the reading.
    template <class Take> int lines(int directory, const char *path, Take take) {
        const descriptor file = open_file(directory, path);
        if (!file) return errno;
        size_t kept = 0;  // bytes of a line that is not complete yet
        while (true) {
            const ssize_t got = read_some(file.get(), kept);
            if (got < 0) return errno;
            const std::string_view text(buffer_.get(), kept + static_cast<size_t>(got));
            size_t begin = 0;
            for (size_t feed; (feed = text.find('\n', begin)) != text.npos; begin = feed + 1) {
                take(text.substr(begin, feed - begin));
            }
            if (begin == 0 && (got == 0 || text.size() == capacity_)) begin = text.size();
            if (begin == text.size() && !text.empty() && text.back() != '\n') take(text);
            if (got == 0) return 0;
            kept = text.size() - begin;
            std::memmove(buffer_.get(), text.data() + begin, kept);
        }
    }

private:
    static constexpr size_t ROOM = 64 << 10;

    ssize_t read_some(int file, size_t filled);  // behind what is filled; -1 with errno
    void grow();

    std::unique_ptr<char[]> buffer_;
    size_t capacity_ = 0;
};

// A directory for scanning; one that cannot be opened has no entries.
descriptor open_directory(int below, const char *path);

// The numbered entries of a directory, in its own order.
class number_scan {
public:
    number_scan() = default;
    explicit number_scan(descriptor directory) : directory_(std::move(directory)) {}
    int directory() const { return directory_.get(); }

    // The next positive number that names an entry; 0 at the end.
    int next();

    void rewind();

private:
    static constexpr size_t ROOM = 32 << 10;

    descriptor directory_;
    std::unique_ptr<char[]> buffer_;
    size_t at_ = 0;
    size_t filled_ = 0;
};

// The name of a numbered entry, with what follows it: "1234/comm".
class numbered_path {
public:
    explicit numbered_path(int number, std::string_view behind = {});
    const char *c_str() const { return text_; }

private:
    char text_[32];
};

}  // namespace hosted::live
