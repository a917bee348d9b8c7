// free - the total, used and free amounts of the system's memory.
#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <optional>

#include "commands/commands.h"
#include "common/helpers.h"
#include "common/options.h"
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

constexpr e_longopt _sb_free_longs[] = {{"--bytes", 'b'},   {"--kilo", 'k'}, {"--mega", 'm'},  {"--giga", 'g'},
                                        {"--peta", 'p'},    {"--si", 'S'},   {"--human", 'h'}, {"--virt", 'v'},
                                        {"--reclaim", 'r'}, {nullptr, 0}};

// The readable units by exponent. P for the fourth power, without a T, is kept: scripts know it.
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

std::optional<int> parse(int argc, char **argv, options &opts) {
    e_optstate state;
    e_initoption(&state, &argc, &argv, true);
    e_setlongoption(&state, _sb_free_longs);
    for (int c; (c = e_getoption(&state)) != E_END;) {
        switch (c) {
        case 'b': opts.exponent = 0; break;
        case 'k': opts.exponent = 1; break;
        case 'm': opts.exponent = 2; break;
        case 'g': opts.exponent = 3; break;
        case 'p': opts.exponent = 4; break;
        case 'S': opts.base = 1000; break;
        case 'h': opts.human = true; break;
        case 'v': opts.virt = true; break;
        case 'r': opts.reclaim = true; break;
        case E_HELP: std::fputs(usage, stdout); return SB_DONE;
        default: std::fprintf(stderr, "free: unknown switch: -%c\n", c); return SB_BAD_SWITCH;
        }
    }
    if (argc > 0) {
        std::fprintf(stderr, "free: extra operand: '%s'\n", argv[0]);
        return SB_FAILED;
    }
    return std::nullopt;
}

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

int sb_free(int argc, char **argv) {
    const uint64_t page_size = _SL_GetState(KSTATE_PAGE_SIZE);
    const auto bytes = [page_size](uint64_t item) { return _SL_GetState(item) * page_size; };

    options opts;
    if (const auto status = parse(argc, argv, opts)) return *status;

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
