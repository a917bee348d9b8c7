// tests/hosted/kernel/arena_test.cpp - every address inside one block is reachable, no other is, and new memory is
// zero.
#include "hosted/kernel/arena.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <map>
#include <random>

namespace hosted {
namespace {

bool all_zero(std::span<const std::byte> bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](std::byte one) { return one == std::byte{0}; });
}

TEST(Arena, SpansReachExactlyOneBlock) {
    arena memory;
    EXPECT_FALSE(memory.contains(0));
    const uint64_t first = memory.allocate(100);
    const uint64_t second = memory.allocate(16);
    ASSERT_NE(first, 0u);
    ASSERT_NE(second, 0u);

    EXPECT_EQ(memory.span(first, 100).size(), 100u);
    EXPECT_EQ(memory.span(first + 99, 1).size(), 1u);
    const struct {
        const char *what;
        uint64_t address, length;
    } outside[] = {{"one byte too long", first, 101},
                   {"after the end", first + 100, 1},
                   {"before the start", first - 1, 2},
                   {"across two blocks", first, second - first + 1},
                   {"nothing", first, 0},
                   {"null", 0, 1},
                   {"length wraps", first + 1, std::numeric_limits<uint64_t>::max()},
                   {"address wraps", std::numeric_limits<uint64_t>::max(), 2}};
    for (const auto &[what, address, length] : outside) EXPECT_TRUE(memory.span(address, length).empty()) << what;
    EXPECT_EQ(memory.record<uint64_t>(first + 4), nullptr) << "misaligned";
    EXPECT_NE(memory.record<uint64_t>(first + 88), nullptr);
    EXPECT_EQ(memory.record<uint64_t>(first + 96), nullptr) << "half outside";

    memory.release(first + 8);
    EXPECT_TRUE(memory.contains(first)) << "only a block's own address releases it";
    memory.release(first);
    EXPECT_FALSE(memory.contains(first));
    EXPECT_TRUE(memory.contains(second));
}

TEST(Arena, RefusesWhatDoesNotFit) {
    arena memory;
    EXPECT_EQ(memory.allocate(0), 0u);
    for (const uint64_t size : {uint64_t{1} << 40, std::numeric_limits<uint64_t>::max()})
        EXPECT_EQ(memory.allocate(size), 0u);
    EXPECT_NE(memory.allocate(uint64_t{3} << 30), 0u) << "the largest log request must fit";
    EXPECT_NE(memory.allocate(1), 0u);
}

TEST(Arena, RandomUseAgreesWithAMap) {
    constexpr unsigned seed = 20240229;
    std::mt19937 random(seed);
    arena memory;
    std::map<uint64_t, std::pair<uint64_t, std::byte>> live;  // address -> size, fill
    for (int round = 0; round < 4000; ++round) {
        if (live.empty() || random() % 3 != 0) {
            const uint64_t size = 1 + random() % (random() % 16 == 0 ? 200000 : 300);
            const uint64_t address = memory.allocate(size);
            ASSERT_NE(address, 0u);
            const auto bytes = memory.span(address, size);
            ASSERT_TRUE(all_zero(bytes)) << "seed " << seed << " round " << round;
            const auto fill = static_cast<std::byte>(1 + random() % 255);
            std::fill(bytes.begin(), bytes.end(), fill);
            const auto next = live.lower_bound(address);
            ASSERT_TRUE(next == live.end() || address + size <= next->first);
            ASSERT_TRUE(next == live.begin() || std::prev(next)->first + std::prev(next)->second.first <= address);
            live.emplace(address, std::pair(size, fill));
        } else {
            auto one = live.begin();
            std::advance(one, random() % live.size());
            const auto bytes = memory.span(one->first, one->second.first);
            ASSERT_TRUE(std::all_of(bytes.begin(), bytes.end(), [&](std::byte b) { return b == one->second.second; }));
            memory.release(one->first);
            live.erase(one);
        }
    }
}

// Other processes write wherever they like in shared memory, but a new block is zero and a large one costs nothing
// later.
TEST(Arena, ClearsSharedMemory) {
    constexpr size_t size = size_t{1} << 20;
    void *const mapped = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    std::memset(mapped, 1, size);
    arena memory({static_cast<std::byte *>(mapped), size});
    for (const size_t wanted : {16UL, 100000UL}) {
        for (int i = 0; i < 2; ++i) {
            const uint64_t block = memory.allocate(wanted);
            ASSERT_NE(block, 0u);
            EXPECT_TRUE(all_zero(memory.span(block, wanted))) << wanted;
            std::ranges::fill(memory.span(block, wanted), std::byte{2});
            memory.release(block);
            EXPECT_EQ(all_zero({reinterpret_cast<std::byte *>(block), wanted}), wanted > 16);
        }
    }
    munmap(mapped, size);
}

}  // namespace
}  // namespace hosted
