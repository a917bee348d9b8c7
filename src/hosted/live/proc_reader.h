// hosted/live/proc_reader.h - reads the many small files and directories of the process file system.
//
// All of it goes through one buffer. Functions that can fail return 0 or the system's error number.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "hosted/descriptors.h"
#include "hosted/live/files.h"

namespace hosted::live {

// Why something could not be read. A process that has gone, or may not be looked at, reads as nothing; any other error
// (no descriptor or memory left, a failed device) fails the kernel call.
inline bool means_gone(int error) { return error == ENOENT || error == ESRCH; }
inline bool means_hidden(int error) { return error == EACCES || error == EPERM; }
inline bool means_failure(int error) { return error != 0 && !means_gone(error) && !means_hidden(error); }

// The RESULT_ code of an error number.
uint64_t result_of(int error);

class proc_reader {
public:
    // Reads a small file whole, up to LARGEST_TEXT bytes of it. The process file system fills as much of a read as it
    // can, so one that leaves room has seen the end.
    //   directory  where a relative path begins
    //   text       out: valid until the next call
    int read(int directory, const char *path, std::string_view &text);

    // Reads only what one read returns of a file, which may have any length.
    int read_front(int directory, const char *path, std::string_view &text);

    // Reads what a symbolic link says, without following it.
    //   text  out: as of read()
    int read_link(int directory, const char *path, std::string_view &text);

    // Reads a file of lines, of any length, and calls take(line) for each, without its line feed. A line longer than
    // the buffer comes in pieces.
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

    // Reads the entries of a directory that are numbers, in the directory's order.
    //   numbers  out: in place of its former content; empty on failure
    //   opened   out unless null: the directory, for reading what is below it
    //   least    smaller numbers are left out
    int list(int directory, const char *path, std::vector<int> &numbers, descriptor *opened = nullptr, int least = 1);

private:
    static constexpr size_t ROOM = 64 << 10;

    ssize_t read_some(int file, size_t filled);  // after the bytes filled; -1 with errno
    void grow();

    std::unique_ptr<char[]> buffer_;
    size_t capacity_ = 0;
};

// The path of a numbered entry and what is below it: "1234/comm".
class numbered_path {
public:
    explicit numbered_path(int number, std::string_view below = {});
    const char *c_str() const { return text_; }

private:
    char text_[32];
};

}  // namespace hosted::live
