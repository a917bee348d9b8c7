// commands/kblayout.cpp - print or set the keyboard layout of a terminal: standard input, or a device of the user's
// choice.
#include <cerrno>
#include <cstdio>
#include <cstring>

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

constexpr int STANDARD_INPUT = 0;

// Opens a device as it is named; the last one counts, and the others stay open.
bool open_device(void *descriptor, e_optstate *state, const sb_optionrow &) {
    const char *device = e_opt_getstr(state);
    if (device == nullptr) {
        std::fputs("kblayout: -F: missing or invalid operand\n", stderr);
        return false;
    }
    const int opened = OpenTerminal(device, TERM_OPEN_FLAGS);
    if (opened < 0) std::fprintf(stderr, "kblayout: %s: %s\n", device, std::strerror(errno));
    *static_cast<int *>(descriptor) = opened;
    return opened >= 0;
}

constexpr sb_option<int> option_table[] = {takes<int>('F', sb_word::terminal, open_device, "--file")};
constexpr auto _sb_kblayout_longs = sb_longoptions(option_table);
constexpr sb_commandline command_line = {
    .command = "kblayout",
    .usage = usage,
    .long_options = _sb_kblayout_longs.data(),
    .operands = {.words = {sb_word::layout}},
    .bad_argument = {"", SB_FAILED},
};

void close_opened(int descriptor) {
    if (descriptor > STANDARD_INPUT) CloseTerminal(descriptor);
}

}  // namespace

constexpr sb_description sb_kblayout_line = sb_describe(command_line, option_table);

int sb_kblayout(int argc, char **argv) {
    int descriptor = STANDARD_INPUT;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, descriptor)) {
        close_opened(descriptor);
        return *status;
    }
    // Deliberate: this, and a layout name that is too long, leave the device open.
    if (argc > 1) return sb_fail(command_line, SB_FAILED, "extra operand '%s'", argv[1]);

    char layout[TERM_LAYOUT_SIZE] = {};
    const bool set = argc == 1;
    if (set) {
        if (std::strlen(argv[0]) >= sizeof layout) {
            // Deliberate: names the operand after the layout, and there is none.
            const char *next = argv[1] != nullptr ? argv[1] : "(null)";
            return sb_fail(command_line, SB_FAILED, "'%s': layout name is too long", next);
        }
        std::strcpy(layout, argv[0]);
    }
    const int result = ControlTerminal(descriptor, set ? TERMCTL_SET_LAYOUT : TERMCTL_GET_LAYOUT, layout);
    const int error = errno;
    close_opened(descriptor);
    if (result != 0) return sb_fail(command_line, SB_FAILED, "%s", std::strerror(error));
    layout[sizeof layout - 1] = '\0';
    if (!set) std::printf("%s\n", layout);
    return SB_DONE;
}
