// commands/lsmem.cpp - the system's memory chunks, or its virtual spaces.
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <span>

#include "colp/colp.h"
#include "commands/commands.h"
#include "common/commandline.h"
#include "common/tables.h"
#include "platform/kernel.h"

namespace {
constexpr char usage[] = R"(Usage: lsmem [OPTION]...
List system memories or virtual spaces.

    -a, --all         Display all available information
    -m, --memory      Show memory chunks (overrides -v; default)
    -S, --style STY   Specify table style
    --sort SORTSPEC   sort the displayed table, see below
    -v, --virtual     Show virtual spaces (overrides -m)
)";

// Flags of a memory chunk, in the order of their letters in the Flags cell.
constexpr struct {
    uint64_t bit;
    char letter;
    const char *meaning;
} mem_flags[] = {
    {MEMFLAG_MAIN, 'M', "Main memory chunk"},
    {MEMFLAG_AVAILABLE, 'A', "Available as normal memory"},
    {MEMFLAG_KERNEL, 'K', "Kernel memory chunk"},
    {MEMFLAG_USER, 'U', "User memory chunk"},
    {MEMFLAG_DESC_AT_END, 'E', "PageDesc is aligned to chunk end"},
    {MEMFLAG_DESC_IN_MAIN, 'B', "PageDesc is in main memory"},
    {MEMFLAG_NOT_ALLOCATABLE, 'n', "Memory is not available for allocation"},
};

struct options {
    bool all = false;
    bool virtual_spaces = false;
    const char *style = nullptr;
    const char *sort = nullptr;
};

void print_lists() {
    std::putchar('\n');
    sb_print_colp_styles(stdout);
    std::putchar('\n');
    sb_print_colp_sort(stdout, "SORTSPEC");
    std::puts("\nMemory chunk flags:");
    for (const auto &flag : mem_flags) std::printf("  %c - %s\n", flag.letter, flag.meaning);
}

constexpr sb_option<options> option_table[] = {
    sets<&options::all>('a', "--all"),
    sets<&options::virtual_spaces, false>('m', "--memory"),
    sets<&options::virtual_spaces>('v', "--virtual"),
    takes_style<&options::style>("--style"),
    takes_sort<&options::sort>(),
};
constexpr auto long_opts = sb_longoptions(option_table);
constexpr sb_commandline command_line = {
    .command = "lsmem",
    .usage = usage,
    .print_usage = print_lists,
    .long_options = long_opts.data(),
    .operands = {.max = 0, .extra = {"extra operand '%'", SB_FAILED}},
};

// ---- columns --------------------------------------------------------------------------------------------------------

constexpr sb_column right(uint32_t type, const char *title, unsigned extras = 0, const char *suffix = nullptr) {
    return {type, title, COLP_JUST_RIGHT, COLP_JUST_RIGHT, extras, suffix};
}

constexpr sb_column address(const char *title) { return right(COLP_HEX, title, SB_COLUMN_HANDLE); }
constexpr sb_column bytes(const char *title) { return right(COLP_HEX, title, SB_COLUMN_HANDLE | SB_COLUMN_SUMMED); }
constexpr sb_column mebibytes(const char *title) { return right(COLP_UINT, title, SB_COLUMN_SUMMED, "M"); }

// The rows of add_chunk() and add_space() follow these.
constexpr sb_column chunk_columns[] = {address("Handle"),       address("Begin"),  address("End"),
                                       mebibytes("Size"),       mebibytes("Free"), right(COLP_STRING, "Flags"),
                                       right(COLP_UINT, "Type")};
constexpr sb_column all_chunk_columns[] = {
    address("Handle"),           address("Begin"),        address("End"), address("Base"), bytes("Size"), bytes("Free"),
    right(COLP_STRING, "Flags"), right(COLP_UINT, "Type")};
constexpr sb_column space_columns[] = {
    address("Handle"),       address("Begin"), address("End"), mebibytes("Size"), right(COLP_STRING, "Global"),
    right(COLP_UINT, "Type")};
constexpr sb_column all_space_columns[] = {
    address("Handle"),       address("Begin"), address("End"), bytes("Size"), right(COLP_STRING, "Global"),
    right(COLP_UINT, "Type")};

// ---- rows -----------------------------------------------------------------------------------------------------------

struct listing {
    colp_table *table;
    uint64_t iterator;
    uint64_t page_size;
    bool all;

    void add_size(uint64_t pages) const {
        const uint64_t size = pages * page_size;
        if (all)
            colp_addcell_hex(table, size);
        else
            colp_addcell_uint(table, (size + 0x80000) >> 20);  // to the nearest mebibyte
    }

    // Reads the items in order, up to the first that fails.
    template <size_t Count> bool read(const uint64_t (&items)[Count], uint64_t (&values)[Count]) const {
        for (size_t i = 0; i < Count; ++i) {
            if (_SL_GetIteratorInfo(iterator, items[i], &values[i]) != RESULT_SUCCESS) return false;
        }
        return true;
    }
};

bool add_chunk(const listing &list) {
    constexpr uint64_t items[] = {OBJINFO_HANDLE, MEMINFO_BEGIN, MEMINFO_END,       MEMINFO_BASE,
                                  MEMINFO_PAGES,  MEMINFO_FLAGS, MEMINFO_FREE_PAGES};
    uint64_t values[std::size(items)] = {};
    if (!list.read(items, values)) return false;
    auto [handle, begin, end, base, pages, flags, free_pages] = values;

    char letters[std::size(mem_flags) + 1] = {};
    for (size_t i = 0; i < std::size(mem_flags); ++i) {
        letters[i] = flags & mem_flags[i].bit ? mem_flags[i].letter : '-';
        flags &= ~mem_flags[i].bit;
    }
    colp_beginrow(list.table);
    colp_addcell_hex(list.table, handle);
    colp_addcell_hex(list.table, begin);
    colp_addcell_hex(list.table, end);
    if (list.all) colp_addcell_hex(list.table, base);
    list.add_size(pages);
    list.add_size(free_pages);
    colp_addcell_string(list.table, letters);
    colp_addcell_uint(list.table, flags);  // the type is what no flag names
    colp_endrow(list.table);
    return true;
}

bool add_space(const listing &list) {
    constexpr uint64_t items[] = {OBJINFO_HANDLE, VSINFO_BEGIN, VSINFO_PAGES, VSINFO_TYPE, VSINFO_GLOBAL};
    constexpr uint64_t type_bits = 0xFE;
    uint64_t values[std::size(items)] = {};
    if (!list.read(items, values)) return false;
    const auto [handle, begin, pages, type, global] = values;

    colp_beginrow(list.table);
    colp_addcell_hex(list.table, handle);
    colp_addcell_hex(list.table, begin);
    colp_addcell_hex(list.table, pages * list.page_size - 1 + begin);
    list.add_size(pages);
    colp_addcell_string(list.table, global != 0 ? "yes" : "no");
    colp_addcell_uint(list.table, type & type_bits);
    colp_endrow(list.table);
    return true;
}

// What differs between the two listings.
struct subject {
    uint64_t selection;
    bool (*add)(const listing &);
    const char *failure;
    const char *plural;
};
constexpr subject chunks = {ITERSEL_MEMCHUNKS, add_chunk, "failed to get memory chunk info", "memory chunks"};
constexpr subject spaces = {ITERSEL_VSPACES, add_space, "failed to get virtual space info", "virtual spaces"};

int list_all(const listing &list, const subject &what, const options &opts) {
    if (_SL_BeginIterator(list.iterator, SYSTEM_WIDE, what.selection) != RESULT_SUCCESS)
        return sb_fail(command_line, SB_FAILED, "failed to start iteration");
    uint64_t count = 0;
    for (; _SL_StepIterator(list.iterator) == RESULT_SUCCESS; ++count) {
        if (!what.add(list)) return sb_fail(command_line, SB_FAILED, "%s", what.failure);
    }
    if (sb_parse_colp_sort(list.table, opts.sort) != 0) return SB_FAILED;
    sb_print_summed(list.table, stdout);
    std::printf("\n%" PRIu64 " %s\n", count, what.plural);
    return SB_DONE;
}
}  // namespace

constexpr sb_description sb_lsmem_line = sb_describe(command_line, option_table);

int sb_lsmem(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;

    std::span<const sb_column> columns = opts.all ? std::span<const sb_column>(all_chunk_columns) : chunk_columns;
    if (opts.virtual_spaces) columns = opts.all ? std::span<const sb_column>(all_space_columns) : space_columns;
    const sb_table table = sb_newtable("lsmem", opts.style, columns);
    if (!table) return SB_FAILED;

    const uint64_t iterator = _SL_CreateIterator(0, 0);
    if (iterator == NO_OBJECT) return sb_fail(command_line, SB_NO_ITERATOR, "failed to create iterator");
    const listing list = {table.get(), iterator, _SL_GetState(KSTATE_PAGE_SIZE), opts.all};
    const int status = list_all(list, opts.virtual_spaces ? spaces : chunks, opts);
    _SL_DeleteObject(iterator, DELETE_HANDLE);
    return status;
}
