// main/descriptions.cpp - the table of the commands' lines.
#include "main/descriptions.h"

namespace {
constexpr const sb_description *descriptions[] = {
    &sb_counters_line, &sb_date_line,     &sb_devping_line,  &sb_devquery_line, &sb_dumpktrace_line,
    &sb_free_line,     &sb_kblayout_line, &sb_lscpureg_line, &sb_lsisr_line,    &sb_lsmaj_line,
    &sb_lsmem_line,    &sb_raiseexc_line, &sb_readlog_line,  &sb_readreg_line,  &sb_sendlog_line,
    &sb_svccall_line,  &sb_svcinfo_line,  &sb_task_line,     &sb_taskkill_line, &sb_threads_line,
    &sb_tmemo_line,    &sb_tprop_line,    &sb_treereg_line,  &sb_tview_line,    &sb_uptime_line,
};
}  // namespace

std::span<const sb_description *const> sb_descriptions() { return descriptions; }
