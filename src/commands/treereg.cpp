// commands/treereg.cpp - print directories of the registry as trees. Everything is printed on standard output.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "commands/commands.h"
#include "common/commandline.h"
#include "common/registry_entries.h"
#include "common/text.h"
#include "platform/registry.h"

namespace {

constexpr char usage[] = R"(Usage: treereg [OPTION]... [-L level] [-b n] [REGPATH]...
Print registry content.

    -a    show binary keys with printable ASCII characters
    -b    set number of displayed octets
    -B    hide binary key info
    -c    show registry caps
    -D    hide binary octets (show only length)
    -F    show entry type
    -I    hide integer key info
    -L    max display depth of the registry tree
    -x    show integer keys in hexadecimal
    -X    show integer keys in decimal and hexadecimal
)";

constexpr char UNREADABLE[] = " { ?? failed to get registry key }";

constexpr size_t USUAL_LEVELS = 256;

// Columns that a level takes at the start of a line.
constexpr uint64_t LEVEL_WIDTH = 4;

// Bytes of full paths and indentation in one listing. Registries stay far below; one that contains itself ends here,
// whatever it branches into and however short its names are.
constexpr uint64_t MOST_PATH_BYTES = uint64_t{1} << 29;

enum class level_state : char {
    goes_on,   // more entries follow the current one
    last,      // at its last entry
    finished,  // the last entry is printed; only what is below it is left
};

struct options {
    bool show_types = false;
    bool show_integers = true;
    bool show_binaries = true;
    bool show_octets = true;
    bool show_characters = false;  // of the octets
    bool hexadecimal = false;
    bool both_bases = false;
    bool show_caps = false;
    long long octets = 32;
    long long depth = -1;  // levels below the first; negative: no limit
};

constexpr sb_option<options> option_table[] = {
    sets<&options::show_characters>('a'),      takes_number<&options::octets>('b'),
    sets<&options::show_binaries, false>('B'), sets<&options::show_caps>('c'),
    sets<&options::show_octets, false>('D'),   sets<&options::show_types>('F'),
    sets<&options::show_integers, false>('I'), takes_number<&options::depth>('L'),
    sets<&options::hexadecimal>('x'),          sets<&options::both_bases>('X'),
};
constexpr sb_commandline command_line = {
    .command = "treereg",
    .usage = usage,
    .operands = {.words = {sb_word::registry_path}},
    .bad_argument = SB_SHOW_USAGE,
    .speech = sb_speech::on_stdout,
};

bool is_directory(const RegIterator &entry) { return entry.type == REGTYPE_DIR || entry.type == REGTYPE_TMP; }

const char *type_label(uint16_t type) {
    switch (type) {
    case REGTYPE_INT: return "int";
    case REGTYPE_BIN: return "bin";
    case REGTYPE_DIR: return "dir";
    case REGTYPE_TMP: return "tmp";
    default: return "??";
    }
}

void print_integer(const options &flags, const char *fullpath) {
    uint64_t value = 0;
    if (!RegGetKeyInt(GetRegDev(), fullpath, &value)) {
        std::puts(UNREADABLE);
        return;
    }
    const auto number = static_cast<int64_t>(value);
    if (flags.both_bases) {
        std::printf(" { %" PRIi64 " | 0x%" PRIX64 " }\n", number, value);
    } else if (flags.hexadecimal) {
        std::printf(" { 0x%" PRIX64 " }\n", value);
    } else {
        std::printf(" { %" PRIi64 " }\n", number);
    }
}

// Without printf, which would take most of the time of a listing.
void print_octet(unsigned char octet) {
    constexpr char digits[] = "0123456789ABCDEF";
    const char text[] = {' ', digits[octet >> 4], digits[octet & 0xF]};
    std::fwrite(text, 1, sizeof text, stdout);
}

// A negative number of octets fails, like one that no buffer holds.
void print_binary(const options &flags, long long octets, unsigned char *buffer, const RegIterator &entry,
                  const char *fullpath) {
    auto delivered = static_cast<uint32_t>(octets);
    if (octets < 0 || !RegGetKeyBin(GetRegDev(), fullpath, buffer, &delivered)) {
        std::puts(UNREADABLE);
        return;
    }
    std::printf(" { len=%" PRIu32, entry.length);
    if (flags.show_octets) {
        std::putchar(',');
        for (uint32_t i = 0; i < delivered; ++i) print_octet(buffer[i]);
        if (entry.length > delivered) std::fputs("...", stdout);
        if (flags.show_characters) {
            std::fputs(" | ", stdout);
            for (uint32_t i = 0; i < delivered; ++i)
                std::putchar(buffer[i] >= 32 && buffer[i] <= 126 ? buffer[i] : '.');
        }
    }
    std::puts(" }");
}

// The rest of one entry's line, after its connector. Deliberate: an entry of unknown type leaves its line open.
void sb_treereg_print(const options &flags, long long octets, unsigned char *buffer, const RegIterator &entry,
                      const char *fullpath) {
    if (flags.show_types) std::printf(" [%s]", type_label(entry.type));
    const std::string_view name = sb_entryname(entry);
    std::printf(" %.*s", static_cast<int>(name.size()), name.data());
    switch (entry.type) {
    case REGTYPE_INT:
        if (flags.show_integers)
            print_integer(flags, fullpath);
        else
            std::putchar('\n');
        break;
    case REGTYPE_BIN:
        if (flags.show_binaries)
            print_binary(flags, octets, buffer, entry, fullpath);
        else
            std::putchar('\n');
        break;
    case REGTYPE_DIR:
    case REGTYPE_TMP: std::putchar('\n'); break;
    default: break;
    }
}

// A directory that is being listed.
struct level {
    sb_text path;
    deque_ptr entries;  // those not yet printed
    level_state state = level_state::goes_on;
};

struct listing {
    const options &opts;
    long long octets;
    unsigned char *buffer;      // room for so many octets
    std::vector<level> levels;  // the outermost first
    uint64_t path_bytes_left = MOST_PATH_BYTES;
};

// The lines of the levels above, and the entry's own connector.
void draw_levels(std::vector<level> &levels) {
    for (const level *above = levels.data(); above != &levels.back(); ++above)
        std::fputs(above->state == level_state::finished ? "    " : "|   ", stdout);
    level &own = levels.back();
    std::fputs(own.state == level_state::last ? "`--" : "|--", stdout);
    if (own.state == level_state::last) own.state = level_state::finished;
}

int fail_content(const char *path) {
    return sb_fail(command_line, SB_FAILED, "failed to read registry directory content: %s", path);
}

// Reads a directory and makes it the innermost level, unless it has no entries.
int enter(listing &list, sb_text path) {
    deque_ptr entries = sb_readreg_content(path.get());
    if (!entries) return fail_content(path.get());
    if (entries->count == 0) return SB_DONE;
    try {
        list.levels.push_back({std::move(path), std::move(entries)});
    } catch (const std::bad_alloc &) {
        std::puts("tree: out of memory");  // Deliberate: under another name
        return SB_FAILED;
    }
    return SB_DONE;
}

// Prints the next entry of the innermost level; a directory becomes a level of its own, depth permitting.
int print_next(listing &list) {
    level &own = list.levels.back();
    const RegIterator entry = *static_cast<const RegIterator *>(deque_front(own.entries.get()));
    const bool last = own.entries->count == 1;
    deque_pop_front(own.entries.get());

    sb_text fullpath = sb_joinpath(own.path.get(), sb_entryname(entry));
    if (!fullpath) return sb_fail(command_line, SB_FAILED, "out of memory");
    const uint64_t cost = std::strlen(fullpath.get()) + LEVEL_WIDTH * list.levels.size();
    if (cost > list.path_bytes_left) {
        const int status = fail_content(own.path.get());
        list.levels.clear();
        return status;
    }
    list.path_bytes_left -= cost;
    if (last) own.state = level_state::last;
    draw_levels(list.levels);
    sb_treereg_print(list.opts, list.octets, list.buffer, entry, fullpath.get());
    const bool deeper = list.opts.depth < 0 || list.levels.size() <= static_cast<uint64_t>(list.opts.depth);
    return deeper && is_directory(entry) ? enter(list, std::move(fullpath)) : SB_DONE;
}

// Prints what is below a directory. A loop, not a recursion: the server decides how deep its tree is.
//   returns  SB_DONE, or SB_FAILED if anything in it failed
int sb_treereg_list(listing &list, const char *path) {
    sb_text root = sb_joinpath("", path);
    if (!root) return sb_fail(command_line, SB_FAILED, "out of memory");
    list.levels.clear();
    list.path_bytes_left = MOST_PATH_BYTES;
    int status = enter(list, std::move(root));
    while (!list.levels.empty()) {
        if (list.levels.back().entries->count == 0)
            list.levels.pop_back();
        else if (print_next(list) != SB_DONE)
            status = SB_FAILED;
    }
    return status;
}

}  // namespace

constexpr sb_description sb_treereg_line = sb_describe(command_line, option_table);

int sb_treereg(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;

    uint32_t max_name = 0, max_binary = 0, max_depth = 0;
    if (!RegCaps(GetRegDev(), &max_name, &max_binary, &max_depth))
        return sb_fail(command_line, SB_SETUP, "failed to get registry caps");
    const uint64_t room = std::min<uint64_t>(max_binary, RegBinaryRoom(GetRegDev(), ""));
    const sb_text buffer(static_cast<char *>(std::malloc(std::max<uint64_t>(room, 1))));
    listing list = {
        opts, std::min<long long>(max_binary, opts.octets), reinterpret_cast<unsigned char *>(buffer.get()), {}};
    try {
        list.levels.reserve(USUAL_LEVELS);
    } catch (const std::bad_alloc &) {
        list.buffer = nullptr;
    }
    if (list.buffer == nullptr) {
        std::puts("tree: out of memory");  // Deliberate: likewise
        return SB_NO_ITERATOR;
    }

    int status = SB_DONE;  // Deliberate: of the last listing alone.
    if (argc == 0) status = sb_treereg_list(list, "");
    for (int i = 0; i < argc; ++i) {
        if (i > 0) std::putchar('\n');
        std::puts(argv[i]);
        status = sb_treereg_list(list, argv[i]);
    }
    if (opts.show_caps) {
        std::printf("\nname length: %" PRIu32 "\nbinary length: %" PRIu32 "\nmax directory depth: %" PRIu32 "\n",
                    max_name, max_binary, max_depth);
    }
    return status;
}
