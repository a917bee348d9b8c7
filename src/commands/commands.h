// commands/commands.h - the entries of the commands.
//
// An entry gets only its command's own arguments: argv[0] is the first of them, not the command's name, argc may be 0,
// and the vector has room for a null after its last element. It parses them, does the whole run, and its result is the
// exit status of the process.
#pragma once

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
