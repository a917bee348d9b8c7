#include "main/tools.h"

#include <unistd.h>

#include "commands/commands.h"

const char ventix_version[] = VENTIX_VERSION;  // the project's, in CMakeLists.txt

constinit const tool s_tools[] = {
#define TOOL(name) {#name, sb_##name},
    SB_COMMANDS(TOOL)
#undef TOOL
        {nullptr, nullptr},
};

int symlink_wrap(const char *target, const char *link_path) { return symlink(target, link_path); }
