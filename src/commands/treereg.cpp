// treereg - print directories of the registry as trees. Everything is printed on standard output.
#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "commands/commands.h"
#include "common/commandline.h"
#include "common/helpers.h"
#include "common/vector.h"
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

enum : unsigned {
    SHOW_TYPE = 1,
    SHOW_INTEGERS = 2,
    SHOW_BINARIES = 4,
    SHOW_OCTETS = 8,
    HEXADECIMAL = 16,
    BOTH_BASES = 32,
    SHOW_ASCII = 64,
};

constexpr char UNREADABLE[] = " { ?? failed to get registry key }";

constexpr size_t USUAL_LEVELS = 256;

// What the marker of a level says, outermost level first on the stack.
enum level_marker : char {
    LEVEL_FINISHED = 0,  // its last entry is being expanded
    LEVEL_GOES_ON = 1,   // more entries follow
    LEVEL_LAST = 2,      // on its last entry
};

struct options {
    unsigned flags = SHOW_INTEGERS | SHOW_BINARIES | SHOW_OCTETS;
    bool show_caps = false;
    long long octets = 32;
    long long depth = -1;  // levels below the first; negative: no limit
};

constexpr sb_option<options> option_table[] = {
    adds<&options::flags>('a', SHOW_ASCII),       takes_number<&options::octets>('b'),
    removes<&options::flags>('B', SHOW_BINARIES), sets<&options::show_caps>('c'),
    removes<&options::flags>('D', SHOW_OCTETS),   adds<&options::flags>('F', SHOW_TYPE),
    removes<&options::flags>('I', SHOW_INTEGERS), takes_number<&options::depth>('L'),
    adds<&options::flags>('x', HEXADECIMAL),      adds<&options::flags>('X', BOTH_BASES),
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

void print_integer(unsigned flags, const char *fullpath) {
    uint64_t value = 0;
    if (!RegGetKeyInt(GetRegDev(), fullpath, &value)) {
        std::puts(UNREADABLE);
        return;
    }
    const auto number = static_cast<int64_t>(value);
    if ((flags & BOTH_BASES) != 0) {
        std::printf(" { %" PRIi64 " | 0x%" PRIX64 " }\n", number, value);
    } else if ((flags & HEXADECIMAL) != 0) {
        std::printf(" { 0x%" PRIX64 " }\n", value);
    } else {
        std::printf(" { %" PRIi64 " }\n", number);
    }
}

// A negative number of octets is more than any buffer holds, and fails like that.
void print_binary(unsigned flags, long long octets, unsigned char *buffer, const RegIterator &entry,
                  const char *fullpath) {
    auto delivered = static_cast<uint32_t>(octets);
    if (octets < 0 || !RegGetKeyBin(GetRegDev(), fullpath, buffer, &delivered)) {
        std::puts(UNREADABLE);
        return;
    }
    std::printf(" { len=%" PRIu32, entry.length);
    if ((flags & SHOW_OCTETS) != 0) {
        std::putchar(',');
        for (uint32_t i = 0; i < delivered; i++) std::printf(" %02X", buffer[i]);
        if (entry.length > delivered) std::fputs("...", stdout);
        if ((flags & SHOW_ASCII) != 0) {
            std::fputs(" | ", stdout);
            for (uint32_t i = 0; i < delivered; i++)
                std::putchar(buffer[i] >= 32 && buffer[i] <= 126 ? buffer[i] : '.');
        }
    }
    std::puts(" }");
}

// The rest of one entry's line, behind its connector. An entry of unknown type leaves its line open; kept.
void sb_treereg_print(unsigned flags, long long octets, unsigned char *buffer, const RegIterator &entry,
                      const char *fullpath) {
    if ((flags & SHOW_TYPE) != 0) std::printf(" [%s]", type_label(entry.type));
    const std::string_view name = sb_entryname(entry);
    std::printf(" %.*s", static_cast<int>(name.size()), name.data());
    switch (entry.type) {
    case REGTYPE_INT:
        if ((flags & SHOW_INTEGERS) == 0) {
            std::putchar('\n');
        } else {
            print_integer(flags, fullpath);
        }
        break;
    case REGTYPE_BIN:
        if ((flags & SHOW_BINARIES) == 0) {
            std::putchar('\n');
        } else {
            print_binary(flags, octets, buffer, entry, fullpath);
        }
        break;
    case REGTYPE_DIR:
    case REGTYPE_TMP: std::putchar('\n'); break;
    default: break;
    }
}

// The lines of the levels above, and the entry's own connector.
void draw_levels(const vector *levels) {
    for (size_t i = 0; i + 1 < levels->count; i++) {
        switch (*static_cast<const char *>(vector_at(levels, i))) {
        case LEVEL_GOES_ON: std::fputs("|   ", stdout); break;
        case LEVEL_FINISHED: std::fputs("    ", stdout); break;
        default: break;
        }
    }
    auto *top = static_cast<char *>(vector_back(levels));
    switch (*top) {
    case LEVEL_GOES_ON: std::fputs("|--", stdout); break;
    case LEVEL_LAST:
        std::fputs("`--", stdout);
        *top = LEVEL_FINISHED;  // what is below its last entry is indented by blanks
        break;
    default: std::fputs("???", stdout); break;
    }
}

// Prints a directory's entries and, depth permitting, what is below them. A tree that contains itself ends where a path
// no longer fits the registry client's buffer: such a directory reads as empty.
//   returns  SB_DONE, or SB_FAILED if anything in it failed
int sb_treereg_list(vector *levels, unsigned char *buffer, unsigned flags, long long depth, long long octets,
                    const char *path) {
    const deque_ptr entries = sb_readreg_content(path);
    if (!entries) {
        std::printf("treereg: failed to read registry directory content: %s\n", path);
        return SB_FAILED;
    }
    if (entries->count == 0) return SB_DONE;
    const char more = LEVEL_GOES_ON;
    if (vector_pushback(levels, &more) != VECTOR_DONE) {
        std::puts("tree: out of memory");
        return SB_FAILED;
    }
    const long long deeper = depth < 0 ? depth : depth - 1;
    int status = SB_DONE;
    for (; entries->count > 0; deque_pop_front(entries.get())) {
        const auto &entry = *static_cast<const RegIterator *>(deque_front(entries.get()));
        const sb_text fullpath = sb_joinpath(path, sb_entryname(entry));
        if (!fullpath) {
            std::puts("treereg: out of memory");
            status = SB_FAILED;
            continue;
        }
        if (entries->count == 1) *static_cast<char *>(vector_back(levels)) = LEVEL_LAST;
        draw_levels(levels);
        sb_treereg_print(flags, octets, buffer, entry, fullpath.get());
        if (depth != 0 && is_directory(entry) &&
            sb_treereg_list(levels, buffer, flags, deeper, octets, fullpath.get()) != SB_DONE)
            status = SB_FAILED;
    }
    vector_popback(levels);
    return status;
}

}  // namespace

constexpr sb_description sb_treereg_line = sb_describe(command_line, option_table);

int sb_treereg(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;

    uint32_t max_name = 0, max_binary = 0, max_depth = 0;
    if (!RegCaps(GetRegDev(), &max_name, &max_binary, &max_depth)) {
        std::puts("treereg: failed to get registry caps");
        return SB_SETUP;
    }
    const std::unique_ptr<vector, decltype(&vector_release)> levels(vector_new(sizeof(char), USUAL_LEVELS),
                                                                    vector_release);
    const uint64_t room = std::min<uint64_t>(max_binary, RegBinaryRoom(GetRegDev(), ""));
    const sb_text buffer(static_cast<char *>(std::malloc(std::max<uint64_t>(room, 1))));
    if (!levels || !buffer) {
        std::puts("tree: out of memory");
        return SB_NO_ITERATOR;
    }
    const long long octets = std::min<long long>(max_binary, opts.octets);
    const auto list = [&](const char *path) {
        return sb_treereg_list(levels.get(), reinterpret_cast<unsigned char *>(buffer.get()), opts.flags, opts.depth,
                               octets, path);
    };

    int status = SB_DONE;  // of the last listing alone; kept
    if (argc == 0) status = list("");
    for (int i = 0; i < argc; i++) {
        if (i > 0) std::putchar('\n');
        std::puts(argv[i]);
        vector_clear(levels.get());
        status = list(argv[i]);
    }
    if (opts.show_caps) {
        std::printf("\nname length: %" PRIu32 "\nbinary length: %" PRIu32 "\nmax directory depth: %" PRIu32 "\n",
                    max_name, max_binary, max_depth);
    }
    return status;
}
