// tests/hosted/kernel/trace_test.cpp - the ring of calls: layout of a kernel trace, latest calls in order, frozen by
// the first read.
#include "hosted/kernel/trace.h"

#include <gtest/gtest.h>

#include <vector>

#include "platform/kernel.h"

namespace hosted {
namespace {

// The first argument of every entry, in the order of a reader's walk.
std::vector<uint64_t> first_arguments(trace_ring &ring) {
    std::vector<uint64_t> found;
    for (uint64_t buffer = 0; buffer < trace_ring::BUFFERS; ++buffer) {
        const uint64_t start = buffer * trace_ring::WORDS_PER_BUFFER;
        uint64_t entries = 0;
        EXPECT_EQ(ring.read(KSYSIDX_TRACE_RAW_WORDS, start, entries), RESULT_SUCCESS);
        uint64_t at = start + 3;
        for (uint64_t entry = 0; entry < entries; ++entry) {
            uint64_t header = 0, argument = 0;
            EXPECT_EQ(ring.read(KSYSIDX_TRACE_ENTRY_WORDS, at, header), RESULT_SUCCESS);
            EXPECT_EQ(ring.read(KSYSIDX_TRACE_ENTRY_WORDS, at + 1, argument), RESULT_SUCCESS);
            EXPECT_EQ(header & 0xFF, static_cast<uint64_t>(call::get_state));
            EXPECT_EQ(header >> 8 & 0xFF, uint64_t{trace_ring::GAVE_VALUE});
            found.push_back(argument);
            at += header >> 16 & 0xFF;
        }
        EXPECT_LE(at, start + trace_ring::WORDS_PER_BUFFER);
    }
    return found;
}

TEST(TraceRing, KeepsTheLastCallsInOrderAndFreezes) {
    for (const uint64_t calls : {uint64_t{0}, uint64_t{1}, uint64_t{100}, uint64_t{5000}}) {
        trace_ring ring;
        std::vector<argument> arguments(9, uint64_t{0});
        for (uint64_t number = 1; number <= calls; ++number) {
            arguments[0].value = number;
            ring.record(call::get_state, trace_ring::GAVE_VALUE, {arguments.data(), 1 + number % 9});
        }
        uint64_t words = 0;
        ring.read(KSYSIDX_TRACE, KSYSIDX_TRACE_WORDS, words);
        const argument reader[] = {calls + 1};
        ring.record(call::get_state, trace_ring::GAVE_VALUE, reader);  // the call that read
        const auto found = first_arguments(ring);
        ASSERT_FALSE(found.empty());
        for (size_t i = 0; i < found.size(); ++i) EXPECT_EQ(found[i], calls - found.size() + 2 + i);
        if (calls <= 100) {
            EXPECT_EQ(found.size(), calls + 1);
        }

        ring.record(call::delay, trace_ring::SUCCEEDED, arguments);
        EXPECT_EQ(first_arguments(ring), found) << "frozen";
        for (const auto &[group, index] :
             {std::pair(KSYSIDX_TRACE_RAW_WORDS, words), {KSYSIDX_TRACE_ENTRY_WORDS, ~uint64_t{0}}, {KSYSIDX_TRACE, 6}})
            EXPECT_EQ(ring.read(group, index, words), RESULT_NO_ITEM);
    }
}

}  // namespace
}  // namespace hosted
