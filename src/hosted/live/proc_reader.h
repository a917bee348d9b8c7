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

    // Calls take(line) for each line of a file, as read_lines() does.
    template <class Take> int lines(int directory, const char *path, Take take) {
        const descriptor file = open_file(directory, path);
        if (!file) return errno;
        if (!buffer_) grow();
        return read_lines(file.get(), {buffer_.get(), capacity_}, take);
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
