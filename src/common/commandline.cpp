// common/commandline.cpp - parsing by the tables of a command's line.
#include "common/commandline.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>

namespace {

FILE *stream_of(const sb_commandline &line) { return line.speech == sb_speech::on_stdout ? stdout : stderr; }

void print(const sb_commandline &line, const char *format, std::va_list arguments) {
    char whole[256];  // the formats are short literals
    std::snprintf(whole, sizeof whole, "%s: %s\n", line.command, format);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::vfprintf(stream_of(line), whole, arguments);  // one write, where the stream has no buffer
#pragma GCC diagnostic pop
}

int answer(const sb_commandline &line, const sb_answer &given, const char *subject) {
    if (given.words == nullptr) return sb_showusage(line);
    if (given.words[0] != '\0') {
        const char *mark = strchrnul(given.words, '%');
        const bool marked = *mark != '\0';
        sb_say(line, "%.*s%s%s", static_cast<int>(mark - given.words), given.words, marked ? subject : "",
               marked ? mark + 1 : "");
    }
    return given.status;
}

}  // namespace

void sb_say(const sb_commandline &line, const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    print(line, format, arguments);
    va_end(arguments);
}

int sb_fail(const sb_commandline &line, int status, const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    print(line, format, arguments);
    va_end(arguments);
    return status;
}

int sb_showusage(const sb_commandline &line) {
    if (line.usage != nullptr) std::fputs(line.usage, stdout);
    if (line.print_usage != nullptr) line.print_usage();
    return SB_DONE;
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
        if (row == end) {
            if (line.speech == sb_speech::on_stderr) return sb_fail(line, SB_BAD_SWITCH, "unknown switch: -%c", c);
            std::printf("Unknown switch: -%c\n", c);
            return SB_BAD_SWITCH;
        }
        const char letter[] = {static_cast<char>(c), '\0'};
        if (!row->take(options, &state, *row)) return answer(line, line.bad_argument, letter);
    }
    const sb_operands &operands = line.operands;
    if (argc < operands.min) return answer(line, operands.missing, "");
    if (argc > operands.max) return answer(line, operands.extra, argv[operands.max]);
    return std::nullopt;
}
