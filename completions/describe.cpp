// completions/describe.cpp - prints the lines of all commands as records, for what is made of them: completions, and the
// check of the manual pages.
//
//   option<TAB>COMMAND<TAB>-LETTER or nothing<TAB>--LONG or nothing<TAB>what its argument is, or none
//   operands<TAB>COMMAND<TAB>the most there may be<TAB>what they are, in order; the last one is for all that follow
#include <cstdio>

#include "common/commandline.h"
#include "main/descriptions.h"

namespace {
const char *name_of(sb_word word) {
    switch (word) {
    case sb_word::none: return "none";
    case sb_word::number: return "number";
    case sb_word::text: return "text";
    case sb_word::style: return "style";
    case sb_word::sortspec: return "sortspec";
    case sb_word::task: return "task";
    case sb_word::device: return "device";
    case sb_word::unit: return "unit";
    case sb_word::query: return "query";
    case sb_word::service: return "service";
    case sb_word::keyval: return "keyval";
    case sb_word::registry_path: return "registry_path";
    case sb_word::registry_key: return "registry_key";
    case sb_word::terminal: return "terminal";
    case sb_word::layout: return "layout";
    case sb_word::property: return "property";
    case sb_word::exception: return "exception";
    case sb_word::date: return "date";
    case sb_word::time: return "time";
    }
    return "text";
}
}  // namespace

int main() {
    for (const sb_description *command : sb_descriptions()) {
        const sb_commandline &line = *command->line;
        for (size_t i = 0; i < command->option_count; ++i) {
            const sb_optionrow &row = command->options[i];
            const char letter[] = {'-', static_cast<char>(row.code), '\0'};
            std::printf("option\t%s\t%s\t%s\t%s\n", line.command, row.code < 0x80 ? letter : "",
                        row.long_name ? row.long_name : "", name_of(row.argument));
        }
        std::printf("operands\t%s\t%d\t", line.command, line.operands.max);
        for (const sb_word word : line.operands.words) {
            if (word != sb_word::none) std::printf("%s ", name_of(word));
        }
        std::putchar('\n');
    }
}
