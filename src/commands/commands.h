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

// The lines of the commands as tables, for programs that write manual pages and completions.
struct sb_description;
extern const sb_description sb_counters_line;
extern const sb_description sb_date_line;
extern const sb_description sb_devping_line;
extern const sb_description sb_devquery_line;
extern const sb_description sb_dumpktrace_line;
extern const sb_description sb_free_line;
extern const sb_description sb_kblayout_line;
extern const sb_description sb_lscpureg_line;
extern const sb_description sb_lsisr_line;
extern const sb_description sb_lsmaj_line;
extern const sb_description sb_lsmem_line;
extern const sb_description sb_raiseexc_line;
extern const sb_description sb_readlog_line;
extern const sb_description sb_readreg_line;
extern const sb_description sb_sendlog_line;
extern const sb_description sb_svccall_line;
extern const sb_description sb_svcinfo_line;
extern const sb_description sb_task_line;
extern const sb_description sb_taskkill_line;
extern const sb_description sb_threads_line;
extern const sb_description sb_tmemo_line;
extern const sb_description sb_tprop_line;
extern const sb_description sb_treereg_line;
extern const sb_description sb_tview_line;
extern const sb_description sb_uptime_line;

// Steps of commands that stand on their own, for programs that bring their own data.

// Prints the counter records of a device, those of them that lie whole within size bytes.
void sb_counters_print(const unsigned char *records, uint64_t size, bool hexadecimal);

// Prints a slice of a log on descriptor 1: its lines, blank ones left out, each ended by one line feed.
//   text    NUL-terminated; it is printed in place
//   length  of the slice, bytes; the scan goes by the NUL
//   mode    0: only lines whose beginning and end are in the slice; else also the two that may be cut
void sb_readlog_display(const char *text, uint32_t length, int mode);
