// hosted/live/files.h - reading the texts that the operating system gives.
//
// Nothing in them is trusted: a read is bounded, a number that does not fit is none, a name is cleaned before it goes
// out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
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
};

inline constexpr size_t LARGEST_TEXT = size_t{64} << 20;  // bytes that are read of any file

// Reads a file at a path: into buffer as far as it fits, or at most LARGEST_TEXT bytes in place of what text held.
//   returns  the bytes read, or whether they were; errno says why not
std::optional<std::string_view> read_file(const std::string &path, std::span<char> buffer);
bool read_file(const std::string &path, std::string &text);

// ---- scanning: each takes what it returns off the front of text -----------------------------------------------------

std::string_view next_line(std::string_view &text);   // up to a line feed, without it
std::string_view next_field(std::string_view &text);  // up to a blank or tab, those before it skipped; empty at the end

// A decimal number after blanks and tabs; one above 2^64 - 1, or none at all, gives nothing and takes nothing.
std::optional<uint64_t> next_number(std::string_view &text);

// A text that is a decimal number and nothing else.
std::optional<uint64_t> whole_number(std::string_view text);

std::string_view trimmed(std::string_view text);  // without blanks, tabs and line ends around it

// Replaces each byte of a character that steers a terminal by '?', for names and texts that anybody may have chosen.
void clean(std::string &text);

}  // namespace hosted::live
