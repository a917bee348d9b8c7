// commands/readreg.cpp - print the values of registry keys, or only check that they exist. Everything is printed on
// standard output.
#include <algorithm>
#include <cctype>
#include <cinttypes>
#include <cstdio>

#include "commands/commands.h"
#include "common/commandline.h"
#include "common/text.h"
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

constexpr sb_option<options> option_table[] = {
    sets<&options::hexdump, false>('a'), sets<&options::hexdump>('b'),       sets<&options::integers, 'd'>('d'),
    sets<&options::integers, 'x'>('x'),  sets<&options::integers, 'X'>('X'), sets<&options::show_names>('k'),
    sets<&options::show_lengths>('l'),   sets<&options::quiet>('q'),         sets<&options::quoted>('Q'),
};
constexpr sb_commandline command_line = {
    .command = "readreg",
    .usage = usage,
    .operands = {.min = 1, .words = {sb_word::registry_key}},
    .speech = sb_speech::on_stdout,
};

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
    for (uint32_t i = 0; i < length; ++i) {
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
        if (!opts.quiet) std::printf("readkey: %s: key not found\n", key);  // Deliberate: under another name
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

constexpr sb_description sb_readreg_line = sb_describe(command_line, option_table);

// The status is the number of keys that failed.
int sb_readreg(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;
    device_record *registry = GetRegDev();
    int failures = 0;
    for (int i = 0; i < argc; ++i) failures += show_key(registry, argv[i], opts) ? 0 : 1;
    return failures;
}
