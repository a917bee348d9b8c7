// hosted/kernel/arena.h - the memory that clients and servers share.
//
// One region of address space, at a fixed address where that is free. It is reserved without access, opened as blocks
// need it, and extended when they no longer fit. Its bookkeeping lies outside it, so that nothing a client writes can
// corrupt it. Under the address sanitizer, bytes past a requested size and released bytes are poisoned.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>

namespace hosted {

class arena {
public:
    // Where the region lies unless that is taken. Below the kernel's own mapping area for any amount of address
    // randomisation, and within what the sanitizers' shadow memory covers, on both processors.
    static constexpr uint64_t USUAL_ADDRESS = 0x7EA000000000;

    arena() = default;

    // An arena in memory that is already mapped and shared between processes, which may write to any of it at any time.
    // The memory must outlive the arena, which neither extends, poisons nor unmaps it.
    explicit arena(std::span<std::byte> shared);

    ~arena();
    arena(const arena &) = delete;
    arena &operator=(const arena &) = delete;

    // Returns the address of a new block of zeroes, aligned to 16, or 0 where size bytes do not fit (or size is 0).
    uint64_t allocate(uint64_t size);

    // Releases the block that begins at an address; any other address is ignored. The pages of a large block of shared
    // memory go back to the system.
    void release(uint64_t address);

    // The bytes at an address, if all of them lie in one block; else an empty span. It is valid until the block is
    // released. The only way for a server to reach what a client's address names.
    std::span<std::byte> span(uint64_t address, uint64_t length) const;

    // The record of type T at an address, or null (not inside one block, or misaligned).
    template <class T> T *record(uint64_t address) const {
        if (address % alignof(T) != 0) return nullptr;
        const auto bytes = span(address, sizeof(T));
        return bytes.empty() ? nullptr : reinterpret_cast<T *>(bytes.data());
    }

    // Whether an address lies inside a block.
    bool contains(uint64_t address) const { return !span(address, 1).empty(); }

    size_t block_count() const { return used_.size(); }

private:
    bool reserve();                 // the region, unless there is one
    bool extend_to(uint64_t end);   // the region, to an offset in bytes
    bool open_up_to(uint64_t end);  // for access
    void clear(uint64_t offset, uint64_t size);

    std::byte *base_ = nullptr;
    uint64_t reserved_ = 0;              // bytes of address space
    uint64_t opened_ = 0;                // bytes from base_ that may be accessed
    uint64_t end_ = 0;                   // offset after the highest block ever allocated
    bool shared_ = false;                // between processes
    bool refused_ = false;               // the system refuses any address space
    std::map<uint64_t, uint64_t> used_;  // offset -> requested size
    std::map<uint64_t, uint64_t> free_;  // offset -> bytes, neighbours joined
    mutable std::map<uint64_t, uint64_t>::const_iterator found_ = used_.end();  // the block reached last
};

}  // namespace hosted
