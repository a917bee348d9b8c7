// commands.h - the entries of the commands.
//
// An entry gets only its command's own arguments: argv[0] is the first of them, not the command's name, argc may be 0,
// and the vector has room for a null behind its last element. It parses them, does the whole run, and its result is the
// exit status of the process.
#pragma once

#include <cstdint>

int sb_counters(int argc, char **argv);
int sb_date(int argc, char **argv);
int sb_devping(int argc, char **argv);
int sb_devquery(int argc, char **argv);
int sb_dumpktrace(int argc, char **argv);
int sb_free(int argc, char **argv);
int sb_kblayout(int argc, char **argv);
int sb_lscpureg(int argc, char **argv);
int sb_lsisr(int argc, char **argv);
int sb_lsmaj(int argc, char **argv);
int sb_lsmem(int argc, char **argv);
int sb_raiseexc(int argc, char **argv);
int sb_readlog(int argc, char **argv);
int sb_readreg(int argc, char **argv);
int sb_sendlog(int argc, char **argv);
int sb_svccall(int argc, char **argv);
int sb_svcinfo(int argc, char **argv);
int sb_task(int argc, char **argv);
int sb_taskkill(int argc, char **argv);
int sb_threads(int argc, char **argv);
int sb_tmemo(int argc, char **argv);
int sb_tprop(int argc, char **argv);
int sb_treereg(int argc, char **argv);
int sb_tview(int argc, char **argv);
int sb_uptime(int argc, char **argv);

// Steps of commands that stand on their own, for programs that bring their own data.

// Prints the counter records of a device, those of them that lie whole within size bytes.
void sb_counters_print(const unsigned char *records, uint64_t size, bool hexadecimal);

// Prints a slice of a log on descriptor 1: its lines, blank ones left out, each ended by one line feed.
//   text    NUL-terminated; it is printed in place
//   length  of the slice, bytes; the scan goes by the NUL
//   mode    0: only lines whose beginning and end are in the slice; else also the two that may be cut
void sb_readlog_display(const char *text, uint32_t length, int mode);
