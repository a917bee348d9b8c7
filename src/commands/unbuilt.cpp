// unbuilt.cpp - the entries of the commands that are still to come. A command's own source replaces its line here.
#include <cstdio>

#include "commands/commands.h"

namespace {
int unbuilt(const char *name) {
    constexpr int status = 70;
    std::fprintf(stderr, "%s: not built yet\n", name);
    return status;
}
}  // namespace

int sb_dumpktrace(int, char **) { return unbuilt("dumpktrace"); }

int sb_free(int, char **) { return unbuilt("free"); }

int sb_lscpureg(int, char **) { return unbuilt("lscpureg"); }

int sb_lsisr(int, char **) { return unbuilt("lsisr"); }

int sb_lsmaj(int, char **) { return unbuilt("lsmaj"); }

int sb_lsmem(int, char **) { return unbuilt("lsmem"); }

int sb_raiseexc(int, char **) { return unbuilt("raiseexc"); }

int sb_task(int, char **) { return unbuilt("task"); }

int sb_taskkill(int, char **) { return unbuilt("taskkill"); }

int sb_threads(int, char **) { return unbuilt("threads"); }

int sb_tmemo(int, char **) { return unbuilt("tmemo"); }

int sb_tprop(int, char **) { return unbuilt("tprop"); }

int sb_tview(int, char **) { return unbuilt("tview"); }

int sb_uptime(int, char **) { return unbuilt("uptime"); }
