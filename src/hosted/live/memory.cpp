// hosted/live/memory.cpp - the system's memory: its amounts, its zones as memory chunks, and the areas of the address
// space as virtual spaces.
#include "hosted/live/memory.h"

#include <elf.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/sysinfo.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <limits>
#include <string>
#include <utility>

#include "hosted/kernel/indexed_walk.h"
#include "hosted/live/handles.h"
#include "hosted/live/texts.h"
#include "platform/kernel.h"

namespace hosted::live {

namespace {

constexpr uint64_t LAST_ADDRESS = std::numeric_limits<uint64_t>::max();

// The kernel's own text, and after it the modules.
constexpr address_range X86_64_TEXT_AND_MODULES = {0xFFFFFFFF80000000, 0xFFFFFFFFFEFFFFFF};

address_space space_of(const address_range &range, bool global, uint64_t page) {
    return {range.first, (range.last - range.first) / page + 1, global};
}

#if defined(__x86_64__) || defined(__aarch64__)
// Whether a process could have a page at an address: asks for a mapping there, which is refused or removed at once.
bool reaches(uint64_t address) {
    void *wanted = reinterpret_cast<void *>(address);
    constexpr int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED_NOREPLACE;
    void *got = mmap(wanted, page_size(), PROT_NONE, flags, -1, 0);
    if (got == MAP_FAILED) return false;
    munmap(got, page_size());
    return got == wanted;
}

// The segments of the running kernel's memory; none where the caller may not read them.
std::vector<address_range> read_kernel_segments(const std::string &path) {
    constexpr size_t most = 64 << 10;  // bytes of headers
    const descriptor file = open_file(AT_FDCWD, path.c_str());
    unless_exhausted(file ? 0 : errno, path);
    Elf64_Ehdr header{};
    std::string_view got;
    std::string image(sizeof header, '\0');
    if (!file || read_all(file.get(), image, got) != 0 || got.size() != image.size()) return {};
    std::memcpy(&header, image.data(), sizeof header);
    const uint64_t end = std::min<uint64_t>(header.e_phoff, most) + header.e_phnum * sizeof(Elf64_Phdr);
    image.resize(std::clamp<uint64_t>(end, sizeof header, most));
    if (read_all(file.get(), std::span(image).subspan(sizeof header), got) != 0) return {};
    return parse_kernel_segments(image);
}

// The first segment that fits a description.
template <class Fits> std::optional<address_range> segment_that(const std::vector<address_range> &segments, Fits fits) {
    const auto found = std::find_if(segments.begin(), segments.end(), fits);
    return found == segments.end() ? std::nullopt : std::optional(*found);
}
#endif

}  // namespace

uint64_t page_size() {
    static const auto size = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    return size;
}

// ---- amounts --------------------------------------------------------------------------------------------------------

memory_account parse_memory_account(std::string_view text) {
    constexpr uint64_t kilobyte = 1024;
    memory_account account;
    uint64_t active = 0, dirty = 0;
    const struct {
        std::string_view key;
        uint64_t &sum;
    } figures[] = {
        {"MemTotal:", account.total},
        {"MemFree:", account.free},
        {"Buffers:", account.reclaimable},
        {"Cached:", account.reclaimable},
        {"SReclaimable:", account.reclaimable},
        {"Active(file):", active},
        {"Dirty:", dirty},
        {"VmallocTotal:", account.virtual_total},
        {"VmallocUsed:", account.virtual_used},
    };
    for (scanner scan(text); !scan.done(); scan.skip_past('\n')) {
        const std::string_view key = scan.word();
        for (const auto &[wanted, sum] : figures) {
            if (key != wanted) continue;
            const uint64_t amount = scan.decimal().value_or(0);
            if (amount <= std::numeric_limits<uint64_t>::max() / kilobyte) sum += amount * kilobyte;
        }
    }
    account.free = std::min(account.free, account.total);
    account.reclaim_used = std::min(active + dirty, account.reclaimable);
    account.virtual_used = std::min(account.virtual_used, account.virtual_total);
    return account;
}

const memory_account &memory_map::account() {
    if (!account_) {
        std::array<char, 8192> buffer;  // several times the size of the file
        account_ = parse_memory_account(read_table(roots_.proc + "/meminfo", buffer));
    }
    return *account_;
}

bool memory_map::is_of_kernel(const file_roots &roots) {
    struct statfs mounted {};
    return statfs((roots.proc + "/meminfo").c_str(), &mounted) == 0 && mounted.f_type == PROC_SUPER_MAGIC;
}

// A system call returns the same amounts at a fraction of what the text costs. Where a file of another system is
// mounted over the text, as containers have it, that file counts.
const memory_amounts &memory_map::amounts() {
    if (!amounts_) {
        struct sysinfo now {};
        if ((of_this_kernel_ || is_of_kernel(roots_)) && sysinfo(&now) == 0) {
            amounts_ = {uint64_t{now.totalram} * now.mem_unit, uint64_t{now.freeram} * now.mem_unit};
        } else {
            amounts_ = account();
        }
    }
    return *amounts_;
}

// ---- zones ----------------------------------------------------------------------------------------------------------

// There are some hundred lines for each zone; column 8 tells most of them apart from the five that count.
void zone_parser::take(std::string_view line) {
    constexpr size_t column = 8;
    if (line.size() <= column) return;
    if (line.front() == 'N') end_zone();  // "Node 0, zone   Normal" begins the next one
    const auto take_figure = [line](std::string_view key, uint64_t &figure) {
        if (line.starts_with(key)) figure = scanner(line.substr(key.size())).decimal().value_or(0);
    };
    switch (line[column]) {
    case 'f': return take_figure("  pages free", zone_.free);
    case 'm': return take_figure("        managed", zone_.pages);
    case 's': return take_figure("        spanned", zone_.spanned);
    case 'p': take_figure("        present", zone_.present); return take_figure("  start_pfn:", zone_.first_page);
    default: return;
    }
}

void zone_parser::end_zone() {
    const uint64_t most = std::numeric_limits<uint64_t>::max() / page_size();
    const bool sane = zone_.spanned != 0 && zone_.spanned <= most && zone_.first_page <= most - zone_.spanned;
    if (sane && zones_.size() < CHUNK_HANDLES.size()) {
        zone_.present = std::min(zone_.present, zone_.spanned);
        zone_.pages = std::min(zone_.pages, zone_.spanned);
        zone_.free = std::min(zone_.free, zone_.pages);
        zones_.push_back(zone_);
    }
    zone_ = {};
}

std::vector<memory_zone> zone_parser::end() {
    end_zone();
    return std::move(zones_);
}

void add_uninitialised(std::span<memory_zone> zones, uint64_t total_pages, uint64_t free_pages) {
    const auto lacks = [](const memory_zone &zone) { return std::max(zone.present, zone.pages) - zone.pages; };
    for (const memory_zone &zone : zones) {
        total_pages -= std::min(total_pages, zone.pages);
        free_pages -= std::min(free_pages, zone.free);
    }
    std::vector<memory_zone *> order;
    for (memory_zone &zone : zones) order.push_back(&zone);
    std::stable_sort(order.begin(), order.end(), [&](const auto *a, const auto *b) { return lacks(*a) > lacks(*b); });
    for (memory_zone *zone : order) {
        const uint64_t pages = std::min(total_pages, lacks(*zone)), free = std::min(free_pages, pages);
        zone->pages += pages;
        zone->free += free;
        total_pages -= pages;
        free_pages -= free;
    }
}

std::span<const memory_zone> memory_map::zones() {
    if (!zones_) {
        std::array<char, 6144> buffer;  // no larger: a read costs less than touching another page of the stack
        zone_parser parser;
        for_each_line(roots_.proc + "/zoneinfo", buffer, [&parser](std::string_view line) { parser.take(line); });
        auto zones = parser.end();
        add_uninitialised(zones, amounts().total / page_size(), amounts().free / page_size());
        zones_ = std::move(zones);
    }
    return *zones_;
}

const memory_zone *memory_map::main_zone() {
    const auto less = [](const memory_zone &a, const memory_zone &b) { return a.pages < b.pages; };
    const auto all = zones();
    const auto largest = std::max_element(all.begin(), all.end(), less);
    return largest == all.end() ? nullptr : &*largest;
}

// ---- spaces ---------------------------------------------------------------------------------------------------------

// The kernel may shift its areas by a random distance at boot; these are their places without the shift. How far
// its own text reaches depends on whether such shifts are compiled in; the end of its modules is fixed.
std::vector<address_space> x86_64_spaces(bool five_level, std::optional<address_range> modules, uint64_t page) {
    // In order: user space, kernel space, direct mapping, mapping area, page descriptors.
    constexpr address_range four[] = {{0, 0x00007FFFFFFFFFFF},
                                      {0xFFFF800000000000, LAST_ADDRESS},
                                      {0xFFFF888000000000, 0xFFFFC87FFFFFFFFF},
                                      {0xFFFFC90000000000, 0xFFFFE8FFFFFFFFFF},
                                      {0xFFFFEA0000000000, 0xFFFFEAFFFFFFFFFF}};
    constexpr address_range five[] = {{0, 0x00FFFFFFFFFFFFFF},
                                      {0xFF00000000000000, LAST_ADDRESS},
                                      {0xFF11000000000000, 0xFF90FFFFFFFFFFFF},
                                      {0xFFA0000000000000, 0xFFD1FFFFFFFFFFFF},
                                      {0xFFD4000000000000, 0xFFD5FFFFFFFFFFFF}};
    std::vector<address_space> spaces;
    for (const auto &[first, last] : five_level ? five : four) {
        const bool user = first == 0;
        spaces.push_back(space_of({first, user ? last - page : last}, !user, page));  // the last user page stays free
    }
    if (!modules) {
        spaces.push_back(space_of(X86_64_TEXT_AND_MODULES, true, page));
        return spaces;
    }
    spaces.push_back(space_of({X86_64_TEXT_AND_MODULES.first, modules->first - 1}, true, page));
    spaces.push_back(space_of(*modules, true, page));
    return spaces;
}

// Above the direct mapping are the modules, the mapping area, fixed mappings and page descriptors. Where one of these
// ends and the next begins differs between versions of the kernel; only the modules are known apart, by their segment.
std::vector<address_space> aarch64_spaces(unsigned address_bits, std::optional<address_range> modules, uint64_t page) {
    // Of more address bits the mapping area does not make use: it stays where a processor without them has it.
    constexpr uint64_t medium_page = 16 << 10;
    const unsigned shared_bits = std::min(address_bits, address_bits > 48 && page == medium_page ? 47U : 48U);
    const uint64_t kernel = 0 - (uint64_t{1} << address_bits);
    const uint64_t direct_end = 0 - (uint64_t{1} << (shared_bits - 1));
    std::vector<address_space> spaces = {
        space_of({0, (uint64_t{1} << address_bits) - 1}, false, page), space_of({kernel, LAST_ADDRESS}, true, page),
        space_of({kernel, direct_end - 1}, true, page),  // direct mapping
    };
    if (modules) spaces.push_back(space_of(*modules, true, page));
    spaces.push_back(space_of({modules ? modules->last + 1 : direct_end, LAST_ADDRESS}, true, page));
    return spaces;
}

std::vector<address_range> parse_kernel_segments(std::string_view image) {
    std::vector<address_range> segments;
    Elf64_Ehdr header;
    if (image.size() < sizeof header) return segments;
    std::memcpy(&header, image.data(), sizeof header);
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64) return segments;
    for (size_t i = 0; i < header.e_phnum; ++i) {
        Elf64_Phdr segment;
        if (header.e_phoff > image.size() || (image.size() - header.e_phoff) / sizeof segment <= i) break;
        std::memcpy(&segment, image.data() + header.e_phoff + i * sizeof segment, sizeof segment);
        if (segment.p_type != PT_LOAD || segment.p_memsz == 0 || segment.p_memsz - 1 > LAST_ADDRESS - segment.p_vaddr)
            continue;
        segments.push_back({segment.p_vaddr, segment.p_vaddr + (segment.p_memsz - 1)});
    }
    return segments;
}

std::span<const address_space> memory_map::spaces() {
    if (!spaces_) {
#if defined(__x86_64__)
        const auto modules = segment_that(read_kernel_segments(roots_.proc + "/kcore"), [](const address_range &one) {
            return one.first > X86_64_TEXT_AND_MODULES.first && one.last == X86_64_TEXT_AND_MODULES.last;
        });
        spaces_ = x86_64_spaces(reaches(uint64_t{1} << 55), modules, page_size());
#elif defined(__aarch64__)
        unsigned bits = 52;
        for (const unsigned fewer : {48U, 47U, 42U, 39U, 36U}) {
            if (reaches(uint64_t{1} << (bits - 1))) break;
            bits = fewer;
        }
        const address_space mappings = aarch64_spaces(bits, std::nullopt, page_size())[3];
        const auto modules = segment_that(read_kernel_segments(roots_.proc + "/kcore"), [&](const address_range &one) {
            return one.first == mappings.begin && (one.last - one.first) / page_size() + 1 < mappings.pages;
        });
        spaces_ = aarch64_spaces(bits, modules, page_size());
#else
        spaces_.emplace();
#endif
    }
    return *spaces_;
}

// ---- objects --------------------------------------------------------------------------------------------------------

std::unique_ptr<walk> memory_map::walk_range(uint64_t first, size_t count) {
    return walk_indexed(count, [this, first](size_t index, uint64_t item, uint64_t &value) {
        return info(first + index, item, value);
    });
}

std::unique_ptr<walk> memory_map::walk_chunks() { return walk_range(CHUNK_HANDLES.first, zones().size()); }
std::unique_ptr<walk> memory_map::walk_spaces() { return walk_range(SPACE_HANDLES.first, spaces().size()); }

bool memory_map::knows(uint64_t handle) {
    if (CHUNK_HANDLES.contains(handle)) return handle - CHUNK_HANDLES.first < zones().size();
    return SPACE_HANDLES.contains(handle) && handle - SPACE_HANDLES.first < spaces().size();
}

uint64_t memory_map::info(uint64_t handle, uint64_t item, uint64_t &value) {
    if (!knows(handle)) return RESULT_NO_OBJECT;
    if (item == OBJINFO_HANDLE) {
        value = handle;
        return RESULT_SUCCESS;
    }
    if (SPACE_HANDLES.contains(handle)) {
        const address_space &space = spaces()[handle - SPACE_HANDLES.first];
        switch (item) {
        case VSINFO_BEGIN: value = space.begin; return RESULT_SUCCESS;
        case VSINFO_PAGES: value = space.pages; return RESULT_SUCCESS;
        case VSINFO_TYPE: value = 0; return RESULT_SUCCESS;
        case VSINFO_GLOBAL: value = space.global; return RESULT_SUCCESS;
        default: return RESULT_NO_ITEM;
        }
    }
    const memory_zone &zone = zones()[handle - CHUNK_HANDLES.first];
    switch (item) {
    case MEMINFO_BEGIN:
    case MEMINFO_BASE: value = zone.first_page * page_size(); return RESULT_SUCCESS;
    case MEMINFO_END: value = (zone.first_page + zone.spanned) * page_size() - 1; return RESULT_SUCCESS;
    case MEMINFO_PAGES: value = zone.pages; return RESULT_SUCCESS;
    case MEMINFO_FREE_PAGES: value = zone.free; return RESULT_SUCCESS;
    case MEMINFO_FLAGS:
        value = MEMFLAG_AVAILABLE | (&zone == main_zone() ? MEMFLAG_MAIN : uint64_t{0});
        return RESULT_SUCCESS;
    default: return RESULT_NO_ITEM;
    }
}

}  // namespace hosted::live
