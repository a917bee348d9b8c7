// hosted/descriptors.h - file descriptors that have an owner, and reads and writes that finish.
//
// Every call here retries while it is interrupted by a signal. One that can fail returns 0 or the system's error
// number; open_file() returns an empty descriptor with errno set.
#pragma once

#include <fcntl.h>
#include <sys/types.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace hosted {

// Owns a descriptor and closes it. Empty: owns none, number -1.
class descriptor {
public:
    explicit descriptor(int number = -1) : number_(number) {}
    ~descriptor() { close(); }
    descriptor(descriptor &&other) noexcept : number_(other.release()) {}
    descriptor &operator=(descriptor &&other) noexcept;
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;

    int get() const { return number_; }
    explicit operator bool() const { return number_ >= 0; }

    // Closes early. Returns the error of the close, by which a file system may report a write that failed later on.
    int close();

    // Gives up ownership: closing is left to the caller.
    int release() { return std::exchange(number_, -1); }

private:
    int number_;
};

// Thrown where a call cannot be served because the system is out of something or a read failed. As a std::bad_alloc it
// fails the kernel call under way with RESULT_NO_MEMORY; a call that has no result to fail with ends the run.
class system_failure : public std::bad_alloc {
public:
    system_failure(const std::string &path, int error) : text_(path + ": " + std::strerror(error)) {}
    const char *what() const noexcept override { return text_.c_str(); }  // "FILE: the system's text"

private:
    std::string text_;
};

// The same where the client would take the failure of its call for the end of a list, or for a key that is not there.
// It ends the run.
class lookup_failure : public system_failure {
public:
    explicit lookup_failure(const system_failure &cause) : system_failure(cause) {}
};

// Repeats a call, which returns -1 with errno set on failure, while it is interrupted.
template <class Call> [[gnu::always_inline]] inline auto retry_interrupted(Call call) {
    for (;;) {
        const auto result = call();
        if (result != -1 || errno != EINTR) return result;
    }
}

// Opens a file that no program started by this one inherits, and that never becomes the controlling terminal.
//   directory  a directory's descriptor, in which a relative path begins; AT_FDCWD: the working directory
//   flags      as of openat(); those left out read, and wait neither for a FIFO's writer nor for a terminal's line
//   mode       permissions of a file that is created, less the process's mask
descriptor open_file(int directory, const char *path, int flags = O_RDONLY | O_NONBLOCK, mode_t mode = 0);

// One read. Returns the bytes read, 0 at the end of the file, -1 with errno.
ssize_t read_part(int file, std::span<char> buffer);

// Reads to the end of the file or until the buffer is full.
//   text  out: the part of the buffer that was read; untouched on failure
int read_all(int file, std::span<char> buffer, std::string_view &text);

// Reads to the end of the file, but at most limit bytes; a text of that size may have been cut.
//   text  out: the bytes in place of its former content, whose memory is reused; empty on failure
int read_all(int file, std::string &text, size_t limit);

// Writes all bytes. EIO where the file accepts none. On failure some may have been written.
int write_all(int file, std::string_view text);

// Opens a file that the user named. Links on the way are followed, but not one that another user (root aside) owns in a
// directory that others can write; nor is another user's FIFO there opened: EACCES. Never waits for the other end of a
// FIFO; the open file itself waits.
//   flags, mode  as of open_file()
descriptor open_named(std::string path, int flags, mode_t mode = 0);

}  // namespace hosted
