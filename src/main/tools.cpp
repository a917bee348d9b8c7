// main/tools.cpp - the table and the version.
#include "main/tools.h"

#include <unistd.h>

#include "commands/commands.h"

// Deliberate: of the command set, not of the release. It changes when a command does; scripts compare it.
const char ventix_version[] = "0.2.2";

constinit const tool s_tools[] = {
#define TOOL(name) {#name, sb_##name},
    SB_COMMANDS(TOOL)
#undef TOOL
        {nullptr, nullptr},
};

int symlink_wrap(const char *target, const char *link_path) { return symlink(target, link_path); }
