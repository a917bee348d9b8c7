// hosted/live/files.h - reading the operating system's files.
//
// No more than LARGEST_TEXT is read of any file. What the caller may not see is for the reader to fall back from, so
// those errors are returned. What cannot be read for lack of descriptors or memory is thrown, so that the kernel call
// under way fails and no value is silently missing.
#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <new>
#include <span>
#include <string>
#include <string_view>

#include "hosted/descriptors.h"

namespace hosted::live {

// Where the operating system's file systems are; a test puts a tree of its own there.
struct file_roots {
    std::string proc = "/proc";
    std::string sys = "/sys";
    std::string dev = "/dev";
    std::string etc = "/etc";

    // Permission bits: a file with none of them is not a key of the registry.
    mode_t readers = S_IRUSR | S_IRGRP | S_IROTH;
};

inline constexpr size_t LARGEST_TEXT = size_t{64} << 20;  // bytes that are read of any file

// Throws system_failure where an error says that the system has no descriptors or no memory left; returns it otherwise.
int unless_exhausted(int error, const std::string &path);

// The same for a table of the system: throws for any error but that there is none or the caller may not read it.
void unless_absent(int error, const std::string &path);

// Whether the process can open that many more files; more than 13 count as 13.
bool can_open(size_t count);

// Reads a file.
//   text     out: the bytes, in buffer as far as it fits, or up to LARGEST_TEXT in place of what text held
//   returns  0, or the error number; text is empty then
//   throws   as unless_exhausted()
int read_file(const std::string &path, std::span<char> buffer, std::string_view &text);
int read_file(const std::string &path, std::string &text);

// Reads one of the system's own tables. Empty where it does not exist or the caller may not read it; any other failure
// is thrown.
std::string_view read_table(const std::string &path, std::span<char> buffer);
std::string read_table(const std::string &path);

// Reads a file of lines, of any length, and calls take(line) for each, without its line feed. A line longer than the
// buffer comes in pieces. Returns 0 or the error number.
template <class Take> int read_lines(int file, std::span<char> buffer, Take take) {
    size_t kept = 0;  // bytes of a line that is not complete yet
    while (true) {
        const ssize_t got = read_part(file, buffer.subspan(kept));
        if (got < 0) return errno;
        std::string_view text(buffer.data(), kept + static_cast<size_t>(got));
        for (size_t end; (end = text.find('\n')) != text.npos; text.remove_prefix(end + 1)) take(text.substr(0, end));
        if (!text.empty() && (got == 0 || text.size() == buffer.size())) {
            take(text);
            text.remove_prefix(text.size());
        }
        if (got == 0) return 0;
        kept = text.size();
        std::memmove(buffer.data(), text.data(), kept);
    }
}

// Passes each line of one of the system's own tables to take(), as read_lines() does. Fails as read_table() does.
template <class Take> void for_each_line(const std::string &path, std::span<char> buffer, Take take) {
    const descriptor file = open_file(AT_FDCWD, path.c_str());
    unless_absent(file ? read_lines(file.get(), buffer, take) : errno, path);
}

// The error word of a request that failed with a system error number: RESULT_NOT_PERMITTED, IOERROR_NOT_FOUND, else
// SYSVCERR_SYSTEM + the number.
uint32_t error_word(int error);

}  // namespace hosted::live
