// hosted/kernel/arena.h - the memory that clients and servers share.
//
// One region of address space, at one fixed address where that is free, reserved without access and opened as it grows.
// Its bookkeeping lies outside it, so that nothing a client writes can corrupt it. Under the address sanitizer the
// bytes that nobody asked for, or gave back, are poisoned.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>

namespace hosted {

class arena {
public:
    arena() = default;
    ~arena();
    arena(const arena &) = delete;
    arena &operator=(const arena &) = delete;

    // Takes a zeroed block of size bytes, aligned to 16; its address, or 0 where it does not fit.
    uint64_t allocate(uint64_t size);

    // Gives a block back by its address; anything else is ignored.
    void release(uint64_t address);

    // The bytes at an address, if all of them lie in one block; else an empty span. The only way for a server to reach
    // what an address of a client names.
    std::span<std::byte> span(uint64_t address, uint64_t length) const;

    // The record of type T at an address, or null (not inside one block, or misaligned).
    template <class T> T *record(uint64_t address) const {
        if (address % alignof(T) != 0) return nullptr;
        const auto bytes = span(address, sizeof(T));
        return bytes.empty() ? nullptr : reinterpret_cast<T *>(bytes.data());
    }

    // Whether an address lies inside a block.
    bool contains(uint64_t address) const { return !span(address, 1).empty(); }

private:
    bool reserve();
    bool open_up_to(uint64_t end);  // offset in bytes

    std::byte *base_ = nullptr;
    uint64_t reserved_ = 0;              // bytes of address space
    uint64_t opened_ = 0;                // bytes from base_ that may be accessed
    uint64_t end_ = 0;                   // offset behind the last block ever handed out
    bool refused_ = false;               // the system gave no address space at all
    std::map<uint64_t, uint64_t> used_;  // offset -> size asked for
    std::map<uint64_t, uint64_t> free_;  // offset -> bytes, neighbours joined
    mutable std::map<uint64_t, uint64_t>::const_iterator found_ = used_.end();  // the block that was reached last
};

}  // namespace hosted
