// commands.h - the entries of the commands.
//
// An entry gets only its command's own arguments: argv[0] is the first of them, not the command's name, argc may be 0,
// and the vector has room for a null behind its last element. It parses them, does the whole run, and its result is the
// exit status of the process.
#pragma once

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
