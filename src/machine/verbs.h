// machine/verbs.h - the verbs of ventix-machine, one source file each, and what they share.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hosted/described/file.h"

namespace verbs {

// Exit statuses.
inline constexpr int DONE = 0;
inline constexpr int FAILED = 1;  // findings of a check, or a failed write
inline constexpr int WRONG_USE = 2;
inline constexpr int UNREADABLE = 125;  // a file that cannot be read or understood

// Each runs one verb; argv[0] is its name. Returns the exit status.
int check(int argc, char **argv);
int snapshot(int argc, char **argv);
int trace(int argc, char **argv);
int run(int argc, char **argv);

// Reports "ventix-machine: what is wrong" on standard error. Returns the status.
[[gnu::format(printf, 2, 3)]] int fail(int status, const char *format, ...);

// ---- command lines --------------------------------------------------------------------------------------------------

// An option takes the next word, or is a flag: one of the two pointers is null. What is not given stays as it is.
struct option {
    std::string_view name;
    const char **value;
    bool *flag = nullptr;
};

struct command_line {
    std::vector<const char *> operands;
    char **command = nullptr;  // the words after "--", ended by a null pointer; null: no "--"
};

// Reads a verb's words. Options and operands may be mixed; an option is given at most once.
//   least, most  operands
//   has_command  whether "--" and a command may follow; else "--" makes the rest operands
//   returns      nothing after a wrong use, which has been reported
std::optional<command_line> parse(int argc, char **argv, std::initializer_list<option> options, size_t least,
                                  size_t most, bool has_command = false);

// ---- results --------------------------------------------------------------------------------------------------------

// Replaces the file at path as a whole, or writes standard output where path is null. A failure is reported.
//   returns  the exit status
int write_result(const char *path, std::string_view text,
                 hosted::described::file_access access = hosted::described::file_access::inherited);

}  // namespace verbs
