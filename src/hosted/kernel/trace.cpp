// hosted/kernel/trace.cpp - the ring of the last calls.
#include "hosted/kernel/trace.h"

#include <algorithm>

#include "platform/kernel.h"

namespace hosted {

namespace {

constexpr uint64_t HEADER_WORDS = 3;  // of a buffer, before its entries

}  // namespace

void trace_ring::record(call which, uint8_t result_class, std::span<const argument> arguments) {
    if (frozen_) return;
    const uint64_t count = std::min<uint64_t>(arguments.size(), LARGEST_ENTRY - 1);
    if (position_ + count >= WORDS_PER_BUFFER) return record_in_next(which, result_class, arguments);
    frozen_ = read_;
    uint64_t *words = buffers_[filling_].data();
    uint64_t *at = words + position_;
    position_ += count + 1;
    ++words[0];
    *at++ = static_cast<uint64_t>(which) | uint64_t{result_class} << 8 | (count + 1) << 16;
    for (const argument &one : arguments.first(count)) *at++ = one.value;
}

// Continues in the next buffer and drops its entries. A function of its own, so that the many calls between two buffers
// save no registers.
[[gnu::noinline]] void trace_ring::record_in_next(call which, uint8_t result_class,
                                                  std::span<const argument> arguments) {
    filling_ = (filling_ + 1) % BUFFERS;
    auto &into = buffers_[filling_];
    if (filling_ >= cleared_) {
        into.fill(0);
        cleared_ = filling_ + 1;
    }
    into[0] = 0;
    position_ = HEADER_WORDS;
    record(which, result_class, arguments);
}

uint64_t trace_ring::read(uint64_t group, uint64_t index, uint64_t &value) {
    read_ = true;
    switch (group) {
    case KSYSIDX_TRACE:
        switch (index) {
        case KSYSIDX_TRACE_WORDS: value = BUFFERS * WORDS_PER_BUFFER; return RESULT_SUCCESS;
        case KSYSIDX_TRACE_BUFFERS: value = BUFFERS; return RESULT_SUCCESS;
        case KSYSIDX_TRACE_WORDS_PER_BUFFER: value = WORDS_PER_BUFFER; return RESULT_SUCCESS;
        case KSYSIDX_TRACE_LARGEST_ENTRY: value = LARGEST_ENTRY; return RESULT_SUCCESS;
        default: return RESULT_NO_ITEM;
        }
    case KSYSIDX_TRACE_RAW_WORDS:
    case KSYSIDX_TRACE_ENTRY_WORDS: {
        if (index >= BUFFERS * WORDS_PER_BUFFER) return RESULT_NO_ITEM;
        // The oldest buffer follows the one being filled. One that was never filled holds no entries.
        const uint64_t asked = (filling_ + 1 + index / WORDS_PER_BUFFER) % BUFFERS;
        value = asked < cleared_ ? buffers_[asked][index % WORDS_PER_BUFFER] : 0;
        return RESULT_SUCCESS;
    }
    default: return RESULT_NO_ITEM;
    }
}

}  // namespace hosted
