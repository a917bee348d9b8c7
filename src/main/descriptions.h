// main/descriptions.h - the lines of all commands, for programs that write manual pages and completions.
//
// ventix itself does not link this table.
#pragma once

#include <span>

#include "commands/commands.h"

// One for each command, in the order of s_tools.
std::span<const sb_description *const> sb_descriptions();
