#include "main/tools.h"

#include <unistd.h>

#include "commands/commands.h"

const char ventix_version[] = VENTIX_VERSION;  // the project's, in CMakeLists.txt

constinit const tool s_tools[] = {
    {"counters", sb_counters},     {"date", sb_date},       {"devping", sb_devping},   {"devquery", sb_devquery},
    {"dumpktrace", sb_dumpktrace}, {"free", sb_free},       {"kblayout", sb_kblayout}, {"lscpureg", sb_lscpureg},
    {"lsisr", sb_lsisr},           {"lsmaj", sb_lsmaj},     {"lsmem", sb_lsmem},       {"raiseexc", sb_raiseexc},
    {"readlog", sb_readlog},       {"readreg", sb_readreg}, {"sendlog", sb_sendlog},   {"svccall", sb_svccall},
    {"svcinfo", sb_svcinfo},       {"task", sb_task},       {"taskkill", sb_taskkill}, {"threads", sb_threads},
    {"tmemo", sb_tmemo},           {"tprop", sb_tprop},     {"treereg", sb_treereg},   {"tview", sb_tview},
    {"uptime", sb_uptime},         {nullptr, nullptr},
};

int symlink_wrap(const char *target, const char *link_path) { return symlink(target, link_path); }
