// commands/free.cpp - the total, used and free amounts of the system's memory.
#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdint>
#include <cstdio>

#include "commands/commands.h"
#include "common/commandline.h"
#include "platform/kernel.h"

namespace {
constexpr char usage[] = R"(Usage: free [OPTION]...
Display amount of free and used memory in the system.

    -b    --bytes     show output in bytes
    -k    --kilo      show output in kilobytes (default)
    -m    --mega      show output in megabytes
    -g    --giga      show output in gigabytes
    -p    --peta      show output in petabytes
    -r    --reclaim   show reclaimable memories
    -S    --si        use powers of 1000 not 1024
    -h    --human     show human-readable output
    -v    --virt      display virtual memory
)";

// The readable units by exponent. Deliberate: P for the fourth power, without a T; scripts match it.
constexpr struct {
    char suffix;
    unsigned decimals;
} _hum_table[] = {{'B', 0}, {'K', 0}, {'M', 0}, {'G', 1}, {'P', 1}, {'E', 2}, {'Z', 3}, {'Y', 3}};

struct options {
    unsigned exponent = 1;  // of the unit
    uint64_t base = 1024;
    bool human = false;
    bool virt = false;
    bool reclaim = false;
};

constexpr sb_option<options> option_table[] = {
    sets<&options::exponent, 0>('b', "--bytes"), sets<&options::exponent, 1>('k', "--kilo"),
    sets<&options::exponent, 2>('m', "--mega"),  sets<&options::exponent, 3>('g', "--giga"),
    sets<&options::exponent, 4>('p', "--peta"),  sets<&options::base, 1000>('S', "--si"),
    sets<&options::human>('h', "--human"),       sets<&options::virt>('v', "--virt"),
    sets<&options::reclaim>('r', "--reclaim"),
};
constexpr auto _sb_free_longs = sb_longoptions(option_table);
constexpr sb_commandline command_line = {
    .command = "free", .usage = usage, .long_options = _sb_free_longs.data(), .operands = SB_NO_OPERANDS};

uint64_t power(uint64_t base, unsigned exponent) {
    uint64_t result = 1;
    while (exponent-- > 0) result *= base;
    return result;
}

using amount_text = std::array<char, 48>;  // two numbers at their longest, a point and a suffix

amount_text _sb_free_compile(uint64_t bytes, const options &opts) {
    constexpr uint64_t widest = 99'999'999'999;  // fills the column
    amount_text text;
    if (!opts.human) {
        const uint64_t amount = std::min(bytes / power(opts.base, opts.exponent), widest);
        std::snprintf(text.data(), text.size(), "%" PRIu64, amount);
        return text;
    }
    unsigned exponent = 0;  // 64 bits never pass the sixth power
    while (bytes / power(opts.base, exponent) >= opts.base) ++exponent;
    const auto &[suffix, decimals] = _hum_table[exponent];
    const uint64_t unit = power(opts.base, exponent);
    if (decimals == 0) {
        std::snprintf(text.data(), text.size(), "%" PRIu64 "%c", bytes / unit, suffix);
    } else {
        // The fraction is a plain number, without leading zeros: 1.05 units show as 1.5.
        // NOLINTNEXTLINE(clang-analyzer-core.DivideZero): a unit with decimals is larger than their power
        const uint64_t fraction = bytes % unit / (unit / power(10, decimals));
        std::snprintf(text.data(), text.size(), "%" PRIu64 ".%" PRIu64 "%c", bytes / unit, fraction, suffix);
    }
    return text;
}

void print_row(const char *label, uint64_t total, uint64_t used, uint64_t unused, const options &opts) {
    const int label_width = opts.reclaim ? 8 : 5;
    std::printf("%-*s %*s %*s %*s\n", label_width, label, 11, _sb_free_compile(total, opts).data(), 11,
                _sb_free_compile(used, opts).data(), 11, _sb_free_compile(unused, opts).data());
}
}  // namespace

constexpr sb_description sb_free_line = sb_describe(command_line, option_table);

int sb_free(int argc, char **argv) {
    const uint64_t page_size = _SL_GetState(KSTATE_PAGE_SIZE);
    const auto bytes = [page_size](uint64_t item) { return _SL_GetState(item) * page_size; };

    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;

    std::printf("%*s %*s %*s %*s\n", opts.reclaim ? 8 : 5, "", 11, "total", 11, "used", 11, "free");
    const auto print_free = [&](const char *label, uint64_t total_item, uint64_t free_item) {
        const uint64_t total = bytes(total_item), unused = bytes(free_item);
        print_row(label, total, total - unused, unused, opts);
    };
    print_free("Mem:", KSTATE_TOTAL_PAGES, KSTATE_FREE_PAGES);
    print_free("Main:", KSTATE_MAIN_CHUNK_PAGES, KSTATE_MAIN_CHUNK_FREE_PAGES);
    if (opts.reclaim) {  // here the kernel counts what is used
        const uint64_t total = bytes(KSTATE_RECLAIM_PAGES), used = bytes(KSTATE_RECLAIM_USED_PAGES);
        print_row("Reclaim:", total, used, total - used, opts);
    }
    if (opts.virt) print_free("Virt:", KSTATE_VIRT_TOTAL_PAGES, KSTATE_VIRT_FREE_PAGES);
    return SB_DONE;
}
