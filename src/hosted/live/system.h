// hosted/live/system.h - what the live machine says of the system as a whole: totals, memory, drivers,
// devices, terminals, and the registry's hardware/ and kernel/.
//
// Every file is read when a value of it is first asked for, and what it said is kept for the run; counters, logs and
// clocks are read anew at each request. A file that is missing or may not be read leaves its values 0 and its lists
// empty.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "hosted/kernel/machine.h"
#include "hosted/live/files.h"
#include "hosted/live/interrupts.h"
#include "hosted/servers/registry_store.h"

namespace hosted::live {

uint64_t page_size();  // bytes

// ---- memory ---------------------------------------------------------------------------------------------------------

struct memory_zone {
    uint64_t first_page = 0;  // number of its first page frame
    uint64_t spanned = 0;     // pages from there to its end, holes included
    uint64_t managed = 0;     // pages that the system's allocator has
    uint64_t free = 0;        // of those
};

struct address_space {
    uint64_t begin;
    uint64_t pages;
    bool global;  // the kernel's
};

// The memory zones of a text like /proc/zoneinfo, those without a page left out.
std::vector<memory_zone> parse_zones(std::string_view text);

// The address spaces as the processor lays them out, in order of address.
//   five_level    whether page tables have five levels
//   address_bits  of a virtual address
std::vector<address_space> x86_64_spaces(bool five_level, uint64_t page_size);
std::vector<address_space> aarch64_spaces(unsigned address_bits, uint64_t page_size);

// The memory chunks and virtual spaces: one object per zone and per area.
class memory_map {
public:
    explicit memory_map(const file_roots &roots) : roots_(roots) {}

    std::unique_ptr<walk> walk_chunks();
    std::unique_ptr<walk> walk_spaces();
    bool knows(uint64_t handle);
    uint64_t info(uint64_t handle, uint64_t item, uint64_t &value);

    std::span<const memory_zone> zones();
    std::span<const address_space> spaces();
    const memory_zone *main_zone();  // the one with most managed pages; null where no zone is known

private:
    std::unique_ptr<walk> walk_range(uint64_t first, size_t count);

    const file_roots &roots_;
    std::optional<std::vector<memory_zone>> zones_;
    std::optional<std::vector<address_space>> spaces_;
};

// ---- totals ---------------------------------------------------------------------------------------------------------

struct memory_account {  // bytes
    uint64_t total = 0;
    uint64_t free = 0;
    uint64_t reclaimable = 0;    // buffers, cache and reclaimable slab
    uint64_t reclaim_used = 0;   // of it: active or dirty file pages, at most all
    uint64_t virtual_total = 0;  // the kernel's mapping area
    uint64_t virtual_used = 0;
};

memory_account parse_memory_account(std::string_view text);  // of a text like /proc/meminfo

// The state items that are totals of the system.
class totals {
public:
    totals(const file_roots &roots, memory_map &memory, interrupt_table &interrupts)
        : roots_(roots), memory_(memory), interrupts_(interrupts) {}

    // One KSTATE_ item; false for an item that is none of these.
    bool state(uint64_t item, uint64_t &value);

private:
    const memory_account &account();

    const file_roots &roots_;
    memory_map &memory_;
    interrupt_table &interrupts_;
    std::optional<memory_account> account_;
    std::optional<uint64_t> handles_;
};

// ---- device numbers -------------------------------------------------------------------------------------------------

// The drivers of a text like /proc/devices by major number: the character driver where both kinds have one, the first
// of several on one major.
std::map<uint32_t, std::string> parse_drivers(std::string_view text);

// The driver() and max_major() of a process_source.
class driver_table {
public:
    explicit driver_table(const file_roots &roots) : roots_(roots) {}

    uint32_t driver(uint64_t device_number, uint32_t &number, std::string &name);
    uint32_t max_major(uint32_t &major);

private:
    const std::map<uint32_t, std::string> &drivers();

    const file_roots &roots_;
    std::optional<std::map<uint32_t, std::string>> drivers_;
};

// ---- devices --------------------------------------------------------------------------------------------------------

// Every device but the system service, whose name is kept free for it.
class device_table {
public:
    explicit device_table(const file_roots &roots);
    ~device_table();

    // The names: the fixed devices that this machine has, then network interfaces, then block devices. An interface or
    // block device of a name that is taken is left out.
    std::vector<std::string> names();
    bool has(std::string_view name);

    // The server of a device; null where has() would be false.
    std::unique_ptr<server> make(kernel &owner, std::string_view name);

private:
    struct sources;
    sources &drawn_from();

    const file_roots &roots_;
    std::unique_ptr<sources> sources_;  // what the servers made here draw from; made when the first device is asked for
};

// ---- registry -------------------------------------------------------------------------------------------------------

struct registry_node;  // a key or directory

// The directories hardware/ and kernel/, with paths from the root; it is for another store to add what stands beside
// them. Everything in them is read-only: writing is refused with RESULT_NOT_PERMITTED.
class system_registry : public registry_store {
public:
    explicit system_registry(const file_roots &roots);
    ~system_registry() override;

    std::unique_ptr<registry_cursor> list(std::string_view path) override;
    uint32_t describe(std::string_view path, uint16_t &type, uint32_t &length) override;
    uint32_t read_int(std::string_view path, uint64_t &value) override;
    uint32_t read_binary(std::string_view path, std::string &value) override;

private:
    registry_node *find(std::string_view path);

    std::unique_ptr<registry_node> root_;
};

// ---- terminals ------------------------------------------------------------------------------------------------------

// As open, ioctl and close, errno included. Only a terminal gets a request; everything else answers ENOTTY.
int open_terminal(const char *path, int flags);
int control_terminal(int descriptor, unsigned long request, char *buffer);
void close_terminal(int descriptor);

}  // namespace hosted::live
