// hosted/kernel/arena.cpp - reservation, opening and bookkeeping of the shared region.
#include "hosted/kernel/arena.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <utility>

#if defined(__SANITIZE_ADDRESS__)
#define VENTIX_POISONS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VENTIX_POISONS 1
#endif
#endif
#ifdef VENTIX_POISONS
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) (static_cast<void>(address), static_cast<void>(size))
#define ASAN_UNPOISON_MEMORY_REGION(address, size) (static_cast<void>(address), static_cast<void>(size))
#endif

namespace hosted {

namespace {

// The region starts with what nearly every run needs and grows in place, by gigabytes for a long log. Elsewhere nothing
// keeps the addresses above it free, so it starts larger.
constexpr uint64_t FIRST_RESERVATION = uint64_t{16} << 20;
constexpr uint64_t RESERVATION_ELSEWHERE = uint64_t{256} << 20;
constexpr uint64_t SMALLEST_RESERVATION = uint64_t{1} << 20;
constexpr uint64_t LARGEST_REGION = uint64_t{16} << 30;
constexpr uint64_t OPENING_STEP = uint64_t{64} << 10;
constexpr uint64_t ALIGNMENT = 16;
constexpr uint64_t LARGE = uint64_t{64} << 10;  // bytes: from here on, it costs less to drop pages than to clear them

// Reserves address space without access; null where the system refuses.
//   at  the address that it must have; null: any
std::byte *reserve_space(std::byte *at, uint64_t size) {
    const int where = at != nullptr ? MAP_FIXED_NOREPLACE : 0;
    void *made = mmap(at, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | where, -1, 0);
    if (made == MAP_FAILED) return nullptr;
    if (at == nullptr || made == at) return static_cast<std::byte *>(made);
    munmap(made, size);  // a kernel that does not know the flag takes the address as a hint
    return nullptr;
}

uint64_t round_up(uint64_t value, uint64_t step) { return (value + step - 1) / step * step; }

}  // namespace

arena::arena(std::span<std::byte> shared)
    : base_(shared.data()), reserved_(shared.size()), opened_(shared.size()), shared_(!shared.empty()) {}

arena::~arena() {
    if (base_ == nullptr || shared_) return;
    ASAN_UNPOISON_MEMORY_REGION(base_, opened_);
    munmap(base_, reserved_);
}

bool arena::reserve() {
    if (base_ != nullptr) return true;
    if (refused_) return false;
    auto *const fixed = reinterpret_cast<std::byte *>(USUAL_ADDRESS);
    for (const auto &[at, largest] : {std::pair(fixed, FIRST_RESERVATION), {nullptr, RESERVATION_ELSEWHERE}}) {
        for (uint64_t size = largest; size >= SMALLEST_RESERVATION; size /= 2) {
            base_ = reserve_space(at, size);
            if (base_ == nullptr) continue;
            reserved_ = size;
            return true;
        }
    }
    refused_ = true;
    return false;
}

bool arena::extend_to(uint64_t end) {
    if (end <= reserved_) return true;
    if (end > LARGEST_REGION || shared_) return false;
    const uint64_t wanted = round_up(end, SMALLEST_RESERVATION);
    if (reserve_space(base_ + reserved_, wanted - reserved_) == nullptr) return false;
    reserved_ = wanted;
    return true;
}

bool arena::open_up_to(uint64_t end) {
    if (end <= opened_) return true;
    if (!extend_to(end)) return false;
    const uint64_t wanted = std::min(round_up(end, OPENING_STEP), reserved_);
    if (mprotect(base_ + opened_, wanted - opened_, PROT_READ | PROT_WRITE) != 0) return false;
    ASAN_POISON_MEMORY_REGION(base_ + opened_, wanted - opened_);
    opened_ = wanted;
    return true;
}

// Makes bytes zeroes. Whole pages of much shared memory are dropped: new ones are zeroes.
void arena::clear(uint64_t offset, uint64_t size) {
    std::byte *const begin = base_ + offset, *const end = begin + size;
    if (shared_ && size >= LARGE) {
        constexpr uint64_t page = 4096;
        auto *const first = reinterpret_cast<std::byte *>(round_up(reinterpret_cast<uint64_t>(begin), page));
        auto *const last = reinterpret_cast<std::byte *>(reinterpret_cast<uint64_t>(end) / page * page);
        if (madvise(first, static_cast<size_t>(last - first), MADV_REMOVE) == 0) {
            std::fill(begin, first, std::byte{0});
            std::fill(last, end, std::byte{0});
            return;
        }
    }
    std::memset(begin, 0, size);
}

uint64_t arena::allocate(uint64_t size) {
    if (size == 0 || size > LARGEST_REGION || !reserve()) return 0;
    const uint64_t taken = round_up(size, ALIGNMENT);

    // First fit among the released blocks. Their bytes may have been written, so they are cleared.
    for (auto hole = free_.begin(); hole != free_.end(); ++hole) {
        if (hole->second < taken) continue;
        const auto [offset, room] = *hole;
        free_.erase(hole);
        if (room > taken) free_.emplace(offset + taken, room - taken);
        if (!shared_) ASAN_UNPOISON_MEMORY_REGION(base_ + offset, size);
        clear(offset, size);
        used_.emplace(offset, size);
        return reinterpret_cast<uint64_t>(base_ + offset);
    }

    const uint64_t offset = end_;
    if (!open_up_to(offset + taken)) return 0;
    if (shared_) {
        clear(offset, size);  // never used is not untouched
    } else {
        ASAN_UNPOISON_MEMORY_REGION(base_ + offset, size);
    }
    used_.emplace(offset, size);
    end_ = offset + taken;
    return reinterpret_cast<uint64_t>(base_ + offset);
}

void arena::release(uint64_t address) {
    if (base_ == nullptr) return;
    const uint64_t offset = address - reinterpret_cast<uint64_t>(base_);
    const auto block = used_.find(offset);
    if (block == used_.end()) return;
    uint64_t begin = offset;
    uint64_t end = offset + round_up(block->second, ALIGNMENT);
    if (!shared_) {
        ASAN_POISON_MEMORY_REGION(base_ + begin, end - begin);
    } else if (block->second >= LARGE) {
        clear(begin, end - begin);
    }
    found_ = used_.end();
    auto freed = used_.extract(block);  // becomes the entry of the free block: releasing takes no memory

    auto next = free_.lower_bound(begin);
    if (next != free_.end() && next->first == end) {
        end += next->second;
        next = free_.erase(next);
    }
    if (next != free_.begin()) {
        const auto before = std::prev(next);
        if (before->first + before->second == begin) {
            begin = before->first;
            free_.erase(before);
        }
    }
    freed.key() = begin;
    freed.mapped() = end - begin;
    free_.insert(std::move(freed));
}

std::span<std::byte> arena::span(uint64_t address, uint64_t length) const {
    const uint64_t offset = address - reinterpret_cast<uint64_t>(base_);
    if (base_ == nullptr || offset >= end_ || length == 0) return {};
    if (found_ == used_.end() || offset - found_->first >= found_->second) {
        const auto after = used_.upper_bound(offset);
        if (after == used_.begin()) return {};
        found_ = std::prev(after);
    }
    const auto &[begin, size] = *found_;
    const uint64_t inside = offset - begin;
    if (inside >= size || length > size - inside) return {};
    return {base_ + offset, length};
}

}  // namespace hosted
