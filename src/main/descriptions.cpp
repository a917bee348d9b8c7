// main/descriptions.cpp - the table of the commands' lines.
#include "main/descriptions.h"

namespace {
constexpr const sb_description *descriptions[] = {
#define LINE(name) &sb_##name##_line,
    SB_COMMANDS(LINE)
#undef LINE
};
}  // namespace

std::span<const sb_description *const> sb_descriptions() { return descriptions; }
