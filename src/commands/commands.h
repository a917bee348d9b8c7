// commands.h - the entries of the commands.
//
// An entry gets only its command's own arguments: argv[0] is the first of them, not the command's name, argc may be 0,
// and the vector has room for a null behind its last element. It parses them, does the whole run, and its result is the
// exit status of the process.
#pragma once

#include <cstdint>

// Every command, in alphabetical order, in which they are listed and their links made. For each, sb_NAME is its entry,
// and sb_NAME_line is its line as a table, for programs that write manual pages and completions.
// clang-format off
#define SB_COMMANDS(COMMAND) \
    COMMAND(counters) COMMAND(date) COMMAND(devping) COMMAND(devquery) COMMAND(dumpktrace) \
    COMMAND(free) COMMAND(kblayout) COMMAND(lscpureg) COMMAND(lsisr) COMMAND(lsmaj) \
    COMMAND(lsmem) COMMAND(raiseexc) COMMAND(readlog) COMMAND(readreg) COMMAND(sendlog) \
    COMMAND(svccall) COMMAND(svcinfo) COMMAND(task) COMMAND(taskkill) COMMAND(threads) \
    COMMAND(tmemo) COMMAND(tprop) COMMAND(treereg) COMMAND(tview) COMMAND(uptime)
// clang-format on

struct sb_description;

#define SB_COMMAND(name)                                                                                               \
    int sb_##name(int argc, char **argv);                                                                              \
    extern const sb_description sb_##name##_line;
SB_COMMANDS(SB_COMMAND)
#undef SB_COMMAND

// Steps of commands that stand on their own, for programs that bring their own data.

// Prints the counter records of a device, those of them that lie whole within size bytes.
void sb_counters_print(const unsigned char *records, uint64_t size, bool hexadecimal);

// Prints a slice of a log on descriptor 1: its lines, blank ones left out, each ended by one line feed.
//   text    NUL-terminated; it is printed in place
//   length  of the slice, bytes; the scan goes by the NUL
//   mode    0: only lines whose beginning and end are in the slice; else also the two that may be cut
void sb_readlog_display(const char *text, uint32_t length, int mode);
