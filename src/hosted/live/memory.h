// hosted/live/memory.h - the system's memory: its amounts, its zones as memory chunks, and the areas of the address
// space as virtual spaces.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "hosted/kernel/machine.h"
#include "hosted/live/files.h"

namespace hosted::live {

uint64_t page_size();  // bytes

struct memory_amounts {  // bytes
    uint64_t total = 0;
    uint64_t free = 0;
};

struct memory_account : memory_amounts {  // bytes
    uint64_t reclaimable = 0;             // buffers, cache and reclaimable slab
    uint64_t reclaim_used = 0;            // of it: active or dirty file pages, at most all
    uint64_t virtual_total = 0;           // the kernel's mapping area
    uint64_t virtual_used = 0;
};

memory_account parse_memory_account(std::string_view text);  // of a text like /proc/meminfo

struct memory_zone {
    uint64_t first_page = 0;  // number of its first page frame
    uint64_t spanned = 0;     // page frames from there to its end, holes included
    uint64_t present = 0;     // of those that are memory
    uint64_t pages = 0;       // of those that the system's allocator has
    uint64_t free = 0;        // of those
};

// Collects the memory zones from the lines of a text like /proc/zoneinfo, without those that have no page.
class zone_parser {
public:
    void take(std::string_view line);
    std::vector<memory_zone> end();  // after the last line

private:
    void end_zone();

    std::vector<memory_zone> zones_;
    memory_zone zone_;  // whose lines come now
};

// Adds to zones what an account has beyond their sum: memory that the kernel counts but has not initialised yet. It
// goes to the zones in which most memory is not the allocator's, up to all of it. Zones that hold the whole total are
// left as they are.
void add_uninitialised(std::span<memory_zone> zones, uint64_t total_pages, uint64_t free_pages);

struct address_space {
    uint64_t begin;
    uint64_t pages;
    bool global;  // the kernel's
};

// An area by its first and last address.
struct address_range {
    uint64_t first, last;
};

// The address spaces as the processor lays them out, in order of address. Without the modules' bounds, which depend on
// how the kernel was built, they and the area beside them are one space.
//   five_level    whether page tables have five levels
//   address_bits  of a virtual address
std::vector<address_space> x86_64_spaces(bool five_level, std::optional<address_range> modules, uint64_t page_size);
std::vector<address_space> aarch64_spaces(unsigned address_bits, std::optional<address_range> modules,
                                          uint64_t page_size);

// The segments of memory that a kernel image such as /proc/kcore lists; none for anything else.
std::vector<address_range> parse_kernel_segments(std::string_view image);

// The amounts of memory, the chunks and the spaces. Each is read when first asked for, and stays for the run.
class memory_map {
public:
    // of_this_kernel  what is_of_kernel() returned; false where it was not asked yet
    explicit memory_map(const file_roots &roots, bool of_this_kernel = false)
        : roots_(roots), of_this_kernel_(of_this_kernel) {}

    // Whether the text of the memory's amounts is the kernel's own, not a file that is mounted over it.
    static bool is_of_kernel(const file_roots &roots);

    const memory_account &account();
    const memory_amounts &amounts();
    std::span<const memory_zone> zones();
    std::span<const address_space> spaces();
    const memory_zone *main_zone();  // the one with most pages; null where no zone is known

    std::unique_ptr<walk> walk_chunks();
    std::unique_ptr<walk> walk_spaces();
    bool knows(uint64_t handle);
    uint64_t info(uint64_t handle, uint64_t item, uint64_t &value);

private:
    std::unique_ptr<walk> walk_range(uint64_t first, size_t count);

    const file_roots &roots_;
    bool of_this_kernel_;
    std::optional<memory_account> account_;
    std::optional<memory_amounts> amounts_;
    std::optional<std::vector<memory_zone>> zones_;
    std::optional<std::vector<address_space>> spaces_;
};

}  // namespace hosted::live
