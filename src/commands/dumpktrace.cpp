// commands/dumpktrace.cpp - the kernel's trace memory, as words or as entries.
//
// The trace is a row of buffers of equal size. A buffer's first word is its number of entries, which follow each other
// from its fourth word on; an entry is a header word (type in bits 0-7, user byte in 8-15, length in words including
// the header in 16-23) and its parameters.
#include <algorithm>
#include <bit>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <new>

#include "commands/commands.h"
#include "common/commandline.h"
#include "platform/kernel.h"

namespace {
constexpr unsigned DEFAULT_COLUMNS = 8;
constexpr unsigned DEFAULT_LIMIT = 0;
constexpr int MAX_COLUMNS = 1024;

constexpr uint64_t BUFFER_HEADER = 3;               // words
constexpr uint64_t LONGEST_ENTRY = 0xFF;            // words that an entry header can say
constexpr uint64_t SANE_WORDS = uint64_t{1} << 20;  // no buffer, and no entry, has more

struct options {
    bool raw = false;
    bool head = false;
    bool multi_line = false;
    uint64_t columns = DEFAULT_COLUMNS;
    uint64_t limit = DEFAULT_LIMIT;  // 0: none
    uint64_t start = 0;
};

void print_usage() {
    std::printf(R"(Usage: dumpktrace [OPTION]...
Dump kernel-trace data.

    -c    set column width in raw mode (default: %u)
    -h    print head of the trace, not the tail (interpreted mode only)
    -i    interpret kernel-trace data
    -n    limit the number of displayed words/entries (0 is unlimited; default: %u)
    -m    multi-line entries instead of single-line entries (interpreted mode only)
    -r    dump raw kernel-trace data
    -s    set start (word index in raw mode, entry index in interpreted mode, ignored in tail mode)
    -S    single-line entries instead of multi-line entries (interpreted mode only; default)
    -t    print tail of the trace, not the head (interpreted mode only; default)
)",
                DEFAULT_COLUMNS, DEFAULT_LIMIT);
}

constexpr sb_option<options> option_table[] = {
    takes_number<&options::columns, 1, MAX_COLUMNS>('c'),
    takes_number<&options::limit, 0>('n'),
    takes_number<&options::start, 0>('s'),
    sets<&options::head>('h'),
    sets<&options::head, false>('t'),
    sets<&options::raw, false>('i'),
    sets<&options::raw>('r'),
    sets<&options::multi_line>('m'),
    sets<&options::multi_line, false>('S'),
};
constexpr sb_commandline command_line = {
    .command = "dumpktrace",
    .print_usage = print_usage,
    .operands = {.max = 0, .extra = {"unexpected operand \"%\"", SB_FAILED}},
    .bad_argument = {"missing or invalid argument of -%", -1},
};

int out_of_memory() { return sb_fail(command_line, SB_FAILED, "out of memory"); }

// Both readers return false after a message.
bool get_geometry(uint64_t item, const char *what, uint64_t &value) {
    const uint64_t code = _SL_GetSystemData(KSYSIDX_TRACE, item, &value);
    if (code) sb_say(command_line, "failed to get the number of %s (error 0x%x)", what, static_cast<unsigned>(code));
    return code == RESULT_SUCCESS;
}

bool get_word(uint64_t group, uint64_t index, uint64_t &word, const char *what = "word") {
    const uint64_t code = _SL_GetSystemData(group, index, &word);
    if (code)
        sb_say(command_line, "failed to get %s at 0x%" PRIx64 " (error 0x%x)", what, index,
               static_cast<unsigned>(code));
    return code == RESULT_SUCCESS;
}

// ---- raw ------------------------------------------------------------------------------------------------------------

// Prints words in rows. Deliberate: the limit bounds the index of the last word, not the number of words.
int dump_words(uint64_t total, const options &opts) {
    const uint64_t end = opts.limit != 0 ? std::min(opts.limit, total) : total;
    const auto index_width = static_cast<int>((std::bit_width(end) + 3) / 4);
    const size_t room = (opts.columns + 1) * 19 + 8;
    const std::unique_ptr<char[]> row(new (std::nothrow) char[room]);
    if (!row) return out_of_memory();

    int at = 0;  // where the row goes on
    for (uint64_t index = opts.start, column = 0; index < end; ++index) {
        if (column == 0) at = std::snprintf(row.get(), room, "%0*" PRIx64 ":", index_width, index);
        uint64_t word = 0;
        if (!get_word(KSYSIDX_TRACE_RAW_WORDS, index, word)) return SB_FAILED;
        at += std::snprintf(row.get() + at, room - static_cast<size_t>(at), " %0*" PRIx64, 16, word);
        if (++column == opts.columns || index + 1 == end) {
            std::printf("%s\n", row.get());
            column = 0;
        }
    }
    return SB_DONE;
}

// ---- interpreted ----------------------------------------------------------------------------------------------------

struct geometry {
    uint64_t words_per_buffer;
    uint64_t buffers;
};

// The number of entries in a buffer; false after a message. A trace that lies is cut: an entry takes a word at least.
bool get_entry_count(const geometry &trace, uint64_t group, uint64_t buffer, uint64_t &count) {
    if (!get_word(group, buffer * trace.words_per_buffer, count, "header word")) return false;
    count = std::min({count, trace.words_per_buffer, SANE_WORDS});
    return true;
}

// Prints one entry whose words end before `end`; false after a message.
bool print_entry(uint64_t position, uint64_t header, uint64_t end, bool multi_line, char *line, size_t room) {
    const auto type = static_cast<unsigned>(header & 0xFF), user = static_cast<unsigned>(header >> 8 & 0xFF);
    const uint64_t words = std::min(header >> 16 & 0xFF, end - position);
    size_t at = static_cast<size_t>(std::snprintf(line, room, "Entry (type=0x%x, user=0x%x)", type, user));
    if (multi_line) {
        std::printf("%s\n", line);
        at = 0;
    }
    for (unsigned i = 1; i < words; ++i) {
        uint64_t word = 0;
        if (!get_word(KSYSIDX_TRACE_ENTRY_WORDS, position + i, word)) return false;
        if (multi_line)
            std::printf("    param[%u]=0x%0*" PRIx64 "\n", i, 16, word);
        else
            at += static_cast<size_t>(std::snprintf(line + at, room - at, ", param[%u]=0x%0*" PRIx64, i, 16, word));
    }
    if (!multi_line) std::printf("%s\n", line);
    return true;
}

int print_head(const geometry &trace, uint64_t largest_entry, uint64_t start, uint64_t limit, bool multi_line) {
    // An entry may be longer than the largest one that the kernel reports, but not longer than its length field allows.
    const size_t room = 35 * (std::max(largest_entry, LONGEST_ENTRY) + 1) + 8;
    const std::unique_ptr<char[]> line(largest_entry <= SANE_WORDS ? new (std::nothrow) char[room] : nullptr);
    if (!line) return out_of_memory();

    uint64_t number = 0;  // of the next entry, over all buffers
    uint64_t left = limit;
    for (uint64_t buffer = 0; buffer < trace.buffers; ++buffer) {
        uint64_t count = 0;
        if (!get_entry_count(trace, KSYSIDX_TRACE_ENTRY_WORDS, buffer, count)) return SB_FAILED;
        const uint64_t begin = buffer * trace.words_per_buffer, end = begin + trace.words_per_buffer;
        const uint64_t next_buffer = number + count;  // counted, not walked: the tail is found by the same counts
        uint64_t position = begin + BUFFER_HEADER;
        for (; number < next_buffer && position < end; ++number) {
            uint64_t header = 0;
            if (!get_word(KSYSIDX_TRACE_ENTRY_WORDS, position, header)) return SB_FAILED;
            if (number >= start) {
                if (!print_entry(position, header, end, multi_line, line.get(), room)) return SB_FAILED;
                if (limit != 0 && --left == 0) return SB_DONE;
            }
            position += header >> 16 & 0xFF;  // 0: the walk stays
        }
        number = next_buffer;
    }
    return SB_DONE;
}

int _sb_dumpktrace_interpret(const geometry &trace, uint64_t largest_entry, const options &opts) {
    if (opts.head || opts.limit == 0) return print_head(trace, largest_entry, opts.start, opts.limit, opts.multi_line);
    uint64_t total = 0;  // entries
    for (uint64_t buffer = 0; buffer < trace.buffers; ++buffer) {
        uint64_t count = 0;
        if (!get_entry_count(trace, KSYSIDX_TRACE_RAW_WORDS, buffer, count)) return SB_FAILED;
        total += count;
    }
    const uint64_t shown = std::min(opts.limit, total);
    return print_head(trace, largest_entry, total - shown, shown, opts.multi_line);
}

int dump_entries(const options &opts) {
    geometry trace = {};
    uint64_t largest_entry = 0;
    if (!get_geometry(KSYSIDX_TRACE_WORDS_PER_BUFFER, "words per buffer", trace.words_per_buffer) ||
        !get_geometry(KSYSIDX_TRACE_BUFFERS, "buffers", trace.buffers) ||
        !get_geometry(KSYSIDX_TRACE_LARGEST_ENTRY, "max words per entry", largest_entry))
        return SB_FAILED;
    // Buffers without words hold nothing, and none begins where word indexes have wrapped.
    const uint64_t words = trace.words_per_buffer;
    trace.buffers = words == 0 ? 0 : std::min(trace.buffers, UINT64_MAX / words);
    return _sb_dumpktrace_interpret(trace, largest_entry, opts);
}
}  // namespace

constexpr sb_description sb_dumpktrace_line = sb_describe(command_line, option_table);

int sb_dumpktrace(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;

    uint64_t total = 0;
    if (!get_geometry(KSYSIDX_TRACE_WORDS, "words", total)) return SB_FAILED;
    return opts.raw ? dump_words(total, opts) : dump_entries(opts);
}
