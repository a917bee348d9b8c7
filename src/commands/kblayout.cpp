// commands/kblayout.cpp - print or set the keyboard layout of a terminal: standard input, or a device of the user's
// choice.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>

#include "commands/commands.h"
#include "common/commandline.h"
#include "platform/protocol/terminal.h"
#include "platform/terminal.h"

namespace {

constexpr char usage[] = R"(Usage: kblayout [OPTION]... [LAYOUT]
Get and set keyboard layout on standard input.

    -F, --file=DEVICE  open and use the specified DEVICE instead of stdin
    --help             display this help and exit
)";

// Parsed by hand below: a device is opened while the line is read.
constexpr sb_option<int> option_table[] = {takes<int>('F', sb_word::terminal, nullptr, "--file")};
constexpr auto _sb_kblayout_longs = sb_longoptions(option_table);
constexpr sb_commandline command_line = {
    .command = "kblayout",
    .usage = usage,
    .long_options = _sb_kblayout_longs.data(),
    .operands = {.max = 1, .words = {sb_word::layout}},
};

constexpr int STANDARD_INPUT = 0;

void close_opened(int descriptor) {
    if (descriptor != STANDARD_INPUT) CloseTerminal(descriptor);
}

// Opens devices as they are named; the last one counts. An extra operand, a layout name that is too long and a failed
// open leave it open: the end of the process closes it.
std::optional<int> parse(int &argc, char **&argv, int &descriptor) {
    e_optstate state;
    e_initoption(&state, &argc, &argv, true);
    e_setlongoption(&state, _sb_kblayout_longs.data());
    for (int c; (c = e_getoption(&state)) != E_END;) {
        switch (c) {
        case 'F': {
            const char *device = e_opt_getstr(&state);
            if (device == nullptr) {
                std::fprintf(stderr, "kblayout: -%c: missing or invalid operand\n", c);
                close_opened(descriptor);
                return SB_FAILED;
            }
            descriptor = OpenTerminal(device, TERM_OPEN_FLAGS);
            if (descriptor < 0) {
                std::fprintf(stderr, "kblayout: %s: %s\n", device, std::strerror(errno));
                return SB_FAILED;
            }
            break;
        }
        case E_HELP:
            sb_showusage(command_line);
            close_opened(descriptor);
            return SB_DONE;
        default: {
            const int status = sb_unknownswitch(command_line, c);
            close_opened(descriptor);
            return status;
        }
        }
    }
    if (argc > 1) {
        std::fprintf(stderr, "kblayout: extra operand '%s'\n", argv[1]);
        return SB_FAILED;
    }
    return std::nullopt;
}

}  // namespace

constexpr sb_description sb_kblayout_line = sb_describe(command_line, option_table);

int sb_kblayout(int argc, char **argv) {
    int descriptor = STANDARD_INPUT;
    if (const auto status = parse(argc, argv, descriptor)) return *status;

    char layout[TERM_LAYOUT_SIZE] = {};
    const bool set = argc == 1;
    if (set) {
        if (std::strlen(argv[0]) >= sizeof layout) {
            // Deliberate: names the operand after the layout, and there is none.
            const char *next = argv[1] != nullptr ? argv[1] : "(null)";
            std::fprintf(stderr, "kblayout: '%s': layout name is too long\n", next);
            return SB_FAILED;
        }
        std::strcpy(layout, argv[0]);
    }
    const int result = ControlTerminal(descriptor, set ? TERMCTL_SET_LAYOUT : TERMCTL_GET_LAYOUT, layout);
    const int error = errno;
    close_opened(descriptor);
    if (result != 0) {
        std::fprintf(stderr, "kblayout: %s\n", std::strerror(error));
        return SB_FAILED;
    }
    layout[sizeof layout - 1] = '\0';
    if (!set) std::printf("%s\n", layout);
    return SB_DONE;
}
