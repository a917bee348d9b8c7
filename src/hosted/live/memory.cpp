// memory.cpp - the system's memory: zones as memory chunks, and the areas of the address space as virtual spaces.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <limits>

#include "hosted/live/handles.h"
#include "hosted/live/indexed_walk.h"
#include "hosted/live/system.h"
#include "platform/kernel.h"

namespace hosted::live {

namespace {

// An area by its first and last address.
address_space area(uint64_t first, uint64_t last, bool global, uint64_t page) {
    return {first, (last - first) / page + 1, global};
}

#if defined(__x86_64__) || defined(__aarch64__)
// Whether a process could have a page at an address: only a mapping that is then refused, or gone, asks for it.
bool reaches(uint64_t address) {
    void *wanted = reinterpret_cast<void *>(address);
    constexpr int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED_NOREPLACE;
    void *got = mmap(wanted, page_size(), PROT_NONE, flags, -1, 0);
    if (got == MAP_FAILED) return false;
    munmap(got, page_size());
    return got == wanted;
}
#endif

}  // namespace

uint64_t page_size() { return static_cast<uint64_t>(sysconf(_SC_PAGESIZE)); }

std::vector<memory_zone> parse_zones(std::string_view text) {
    std::vector<memory_zone> zones;
    memory_zone zone;
    const auto finish = [&zones, &zone] {
        const uint64_t pages = std::numeric_limits<uint64_t>::max() / page_size();  // there can be no more
        const bool sane = zone.spanned != 0 && zone.spanned <= pages && zone.first_page <= pages - zone.spanned;
        if (sane && zones.size() < CHUNK_HANDLES.size()) {
            zone.managed = std::min(zone.managed, zone.spanned);
            zone.free = std::min(zone.free, zone.managed);
            zones.push_back(zone);
        }
        zone = {};
    };
    while (!text.empty()) {
        std::string_view line = next_line(text);
        std::string_view key = next_field(line);
        if (key == "Node") finish();
        if (key == "pages") key = next_field(line);  // "pages free", the first of a zone's figures
        uint64_t *figure = nullptr;
        if (key == "free") figure = &zone.free;
        if (key == "spanned") figure = &zone.spanned;
        if (key == "managed") figure = &zone.managed;
        if (key == "start_pfn:") figure = &zone.first_page;
        if (figure) *figure = next_number(line).value_or(0);
    }
    finish();
    return zones;
}

// The kernel may move its areas by a random distance at boot; these are the places that its layout gives them.
std::vector<address_space> x86_64_spaces(bool five_level, uint64_t page) {
    // In order: user space, kernel space, direct mapping, mapping area, page descriptors.
    struct bounds {
        uint64_t first, last;
    };
    constexpr bounds four[] = {{0, 0x00007FFFFFFFFFFF},
                               {0xFFFF800000000000, 0xFFFFFFFFFFFFFFFF},
                               {0xFFFF888000000000, 0xFFFFC87FFFFFFFFF},
                               {0xFFFFC90000000000, 0xFFFFE8FFFFFFFFFF},
                               {0xFFFFEA0000000000, 0xFFFFEAFFFFFFFFFF}};
    constexpr bounds five[] = {{0, 0x00FFFFFFFFFFFFFF},
                               {0xFF00000000000000, 0xFFFFFFFFFFFFFFFF},
                               {0xFF11000000000000, 0xFF90FFFFFFFFFFFF},
                               {0xFFA0000000000000, 0xFFD1FFFFFFFFFFFF},
                               {0xFFD4000000000000, 0xFFD5FFFFFFFFFFFF}};
    std::vector<address_space> spaces;
    for (const auto &[first, last] : five_level ? five : four) {
        const bool user = first == 0;
        spaces.push_back(area(first, user ? last - page : last, !user, page));  // the last user page is kept free
    }
    spaces.push_back(area(0xFFFFFFFF80000000, 0xFFFFFFFF9FFFFFFF, true, page));  // the kernel's own text
    spaces.push_back(area(0xFFFFFFFFA0000000, 0xFFFFFFFFFEFFFFFF, true, page));  // modules
    return spaces;
}

std::vector<address_space> aarch64_spaces(unsigned address_bits, uint64_t page) {
    constexpr uint64_t modules_size = uint64_t{2} << 30, guard_size = uint64_t{256} << 20;
    constexpr uint64_t descriptor_size = 64;  // of a page, bytes
    const uint64_t kernel = 0 - (uint64_t{1} << address_bits);
    const uint64_t direct_end = 0 - (uint64_t{1} << (std::min(address_bits, 48U) - 1));
    const uint64_t descriptors = 0 - (uint64_t{1} << address_bits) / page * descriptor_size;
    return {
        area(0, (uint64_t{1} << address_bits) - 1, false, page),
        area(kernel, std::numeric_limits<uint64_t>::max(), true, page),
        area(kernel, direct_end - 1, true, page),                                   // direct mapping
        area(direct_end, direct_end + modules_size - 1, true, page),                // modules
        area(direct_end + modules_size, descriptors - guard_size - 1, true, page),  // mapping area
        area(descriptors, descriptors + (direct_end - kernel) / page * descriptor_size - 1, true, page),
    };
}

std::span<const memory_zone> memory_map::zones() {
    if (!zones_) {
        std::string text;
        read_file(roots_.proc + "/zoneinfo", text);
        zones_ = parse_zones(text);
    }
    return *zones_;
}

std::span<const address_space> memory_map::spaces() {
    if (!spaces_) {
#if defined(__x86_64__)
        spaces_ = x86_64_spaces(reaches(uint64_t{1} << 55), page_size());
#elif defined(__aarch64__)
        unsigned bits = 52;
        for (const unsigned fewer : {48U, 47U, 42U, 39U, 36U}) {
            if (reaches(uint64_t{1} << (bits - 1))) break;
            bits = fewer;
        }
        spaces_ = aarch64_spaces(bits, page_size());
#else
        spaces_.emplace();
#endif
    }
    return *spaces_;
}

const memory_zone *memory_map::main_zone() {
    const auto less = [](const memory_zone &a, const memory_zone &b) { return a.managed < b.managed; };
    const auto all = zones();
    const auto largest = std::max_element(all.begin(), all.end(), less);
    return largest == all.end() ? nullptr : &*largest;
}

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
    case MEMINFO_PAGES: value = zone.managed; return RESULT_SUCCESS;
    case MEMINFO_FREE_PAGES: value = zone.free; return RESULT_SUCCESS;
    case MEMINFO_FLAGS:
        value = MEMFLAG_AVAILABLE | (&zone == main_zone() ? MEMFLAG_MAIN : uint64_t{0});
        return RESULT_SUCCESS;
    default: return RESULT_NO_ITEM;
    }
}

}  // namespace hosted::live
