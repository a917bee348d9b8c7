// readreg - print the values of registry keys, or only check that they exist. Everything is printed on standard output.
#include <algorithm>
#include <cctype>
#include <cinttypes>
#include <cstdio>
#include <optional>

#include "commands/commands.h"
#include "common/helpers.h"
#include "common/options.h"
#include "platform/registry.h"

namespace {

constexpr char usage[] = R"(Usage: readreg [OPTION]... KEY...
Display registry key in desired form.

    -a    show binary keys in ASCII form (default)
    -b    show binary keys as hexdump
    -d    show integer keys in decimal (default)
    -k    print key names
    -l    print binary data length
    -q    quiet mode, just check key existence
    -Q    quote binary in ASCII form
    -x    show integer keys in hexadecimal
    -X    show integer keys in hexadecimal (uppercase form)
)";

struct options {
    bool hexdump = false;
    bool show_names = false;
    bool show_lengths = false;
    bool quiet = false;
    bool quoted = false;
    int integers = 'd';  // the last of -d, -x and -X
};

std::optional<int> parse(int &argc, char **&argv, options &opts) {
    e_optstate state;
    e_initoption(&state, &argc, &argv, true);
    for (int c; (c = e_getoption(&state)) != E_END;) {
        switch (c) {
        case 'a': opts.hexdump = false; break;
        case 'b': opts.hexdump = true; break;
        case 'd':
        case 'x':
        case 'X': opts.integers = c; break;
        case 'k': opts.show_names = true; break;
        case 'l': opts.show_lengths = true; break;
        case 'q': opts.quiet = true; break;
        case 'Q': opts.quoted = true; break;
        case E_HELP: std::fputs(usage, stdout); return SB_DONE;
        default: std::printf("Unknown switch: -%c\n", c); return SB_BAD_SWITCH;
        }
    }
    if (argc == 0) {
        std::puts("readreg: missing operand");
        return SB_FAILED;
    }
    return std::nullopt;
}

bool fail(const char *what) {
    std::puts(what);
    return false;
}

bool show_integer(device_record *registry, const char *key, const options &opts) {
    uint64_t value = 0;
    if (!RegGetKeyInt(registry, key, &value)) return fail("failed to read key");
    switch (opts.integers) {
    case 'x': std::printf("0x%" PRIx64 "\n", value); break;
    case 'X': std::printf("0x%" PRIX64 "\n", value); break;
    default: std::printf("%" PRIi64 "\n", static_cast<int64_t>(value)); break;
    }
    return true;
}

bool show_binary(device_record *registry, const char *key, uint32_t length, const options &opts) {
    if (length > RegBinaryRoom(registry, key)) return fail("failed to read key");
    uint32_t delivered = length;
    const sb_text value(static_cast<char *>(std::malloc(std::max<size_t>(length, 1))));
    if (!value) return fail("out of memory");
    if (!RegGetKeyBin(registry, key, value.get(), &delivered) || delivered != length) return fail("failed to read key");

    if (opts.show_lengths) std::printf("len=%" PRIu32 ", ", length);
    const auto *bytes = reinterpret_cast<const unsigned char *>(value.get());
    const bool quoted = opts.quoted && !opts.hexdump;
    if (quoted) std::putchar('"');
    for (uint32_t i = 0; i < length; i++) {
        if (opts.hexdump) {
            std::printf(i == 0 ? "%02X" : " %02X", bytes[i]);
        } else {
            std::putchar(std::isprint(bytes[i]) != 0 ? bytes[i] : '.');
        }
    }
    if (quoted) std::putchar('"');
    std::putchar('\n');
    return true;
}

bool show_key(device_record *registry, const char *key, const options &opts) {
    uint16_t type = 0;
    uint32_t length = 0;
    if (!RegKeyInfo(registry, key, &type, &length)) {
        if (!opts.quiet) std::printf("readkey: %s: key not found\n", key);  // in another name; kept
        return false;
    }
    if (opts.quiet) return true;
    if (opts.show_names) std::printf("%s: ", key);
    switch (type) {
    case REGTYPE_INT: return show_integer(registry, key, opts);
    case REGTYPE_BIN: return show_binary(registry, key, length, opts);
    default: return fail("key is not an integer nor a binary");
    }
}

}  // namespace

// The status is the number of keys that failed.
int sb_readreg(int argc, char **argv) {
    options opts;
    if (const auto status = parse(argc, argv, opts)) return *status;
    device_record *registry = GetRegDev();
    int failures = 0;
    for (int i = 0; i < argc; i++) failures += show_key(registry, argv[i], opts) ? 0 : 1;
    return failures;
}
