// common/commandline.cpp - parsing by the tables of a command's line.
#include "common/commandline.h"

#include <algorithm>
#include <cstring>

namespace {

FILE *stream_of(const sb_commandline &line) { return line.speech == sb_speech::on_stdout ? stdout : stderr; }

int answer(const sb_commandline &line, const sb_answer &given, const char *subject) {
    if (given.words == nullptr) return sb_showusage(line);
    if (given.words[0] != '\0') {
        const char *mark = strchrnul(given.words, '%');
        const bool marked = *mark != '\0';
        std::fprintf(stream_of(line), "%s: %.*s%s%s\n", line.command, static_cast<int>(mark - given.words), given.words,
                     marked ? subject : "", marked ? mark + 1 : "");
    }
    return given.status;
}

}  // namespace

int sb_showusage(const sb_commandline &line) {
    if (line.usage != nullptr) std::fputs(line.usage, stdout);
    if (line.print_usage != nullptr) line.print_usage();
    return SB_DONE;
}

int sb_unknownswitch(const sb_commandline &line, int c) {
    if (line.speech == sb_speech::on_stdout)
        std::printf("Unknown switch: -%c\n", c);
    else
        std::fprintf(stderr, "%s: unknown switch: -%c\n", line.command, c);
    return SB_BAD_SWITCH;
}

std::optional<int> sb_parserows(const sb_description &what, int &argc, char **&argv, void *options) {
    const sb_commandline &line = *what.line;
    e_optstate state;
    e_initoption(&state, &argc, &argv, true);
    e_setlongoption(&state, line.long_options);
    const sb_optionrow *const end = what.options + what.option_count;
    for (int c; (c = e_getoption(&state)) != E_END;) {
        if (c == E_HELP) return sb_showusage(line);
        const auto *row = std::find_if(what.options, end, [c](const sb_optionrow &known) { return known.code == c; });
        if (row == end) return sb_unknownswitch(line, c);
        const char letter[] = {static_cast<char>(c), '\0'};
        if (!row->take(options, &state, *row)) return answer(line, line.bad_argument, letter);
    }
    const sb_operands &operands = line.operands;
    if (argc < operands.min) return answer(line, operands.missing, "");
    if (argc > operands.max) return answer(line, operands.extra, argv[operands.max]);
    return std::nullopt;
}
