// trace.cpp - the ring of the last calls.
#include "hosted/kernel/trace.h"

#include <algorithm>

#include "platform/kernel.h"

namespace hosted {

namespace {

constexpr uint64_t HEADER_WORDS = 3;  // of a buffer, in front of its entries

}  // namespace

void trace_ring::record(call which, uint8_t result_class, std::span<const uint64_t> arguments) {
    if (frozen_) return;
    frozen_ = read_;
    const uint64_t count = std::min<uint64_t>(arguments.size(), LARGEST_ENTRY - 1);
    if (position_ + 1 + count > WORDS_PER_BUFFER) {
        filling_ = (filling_ + 1) % BUFFERS;
        words_[filling_ * WORDS_PER_BUFFER] = 0;
        position_ = HEADER_WORDS;
    }
    uint64_t *buffer = &words_[filling_ * WORDS_PER_BUFFER];
    buffer[position_] = static_cast<uint64_t>(which) | uint64_t{result_class} << 8 | (count + 1) << 16;
    std::copy_n(arguments.begin(), count, buffer + position_ + 1);
    position_ += count + 1;
    buffer[0]++;
}

uint64_t trace_ring::read(uint64_t group, uint64_t index, uint64_t &value) {
    read_ = true;
    switch (group) {
    case KSYSIDX_TRACE:
        switch (index) {
        case KSYSIDX_TRACE_WORDS: value = words_.size(); return RESULT_SUCCESS;
        case KSYSIDX_TRACE_BUFFERS: value = BUFFERS; return RESULT_SUCCESS;
        case KSYSIDX_TRACE_WORDS_PER_BUFFER: value = WORDS_PER_BUFFER; return RESULT_SUCCESS;
        case KSYSIDX_TRACE_LARGEST_ENTRY: value = LARGEST_ENTRY; return RESULT_SUCCESS;
        default: return RESULT_NO_ITEM;
        }
    case KSYSIDX_TRACE_RAW_WORDS:
    case KSYSIDX_TRACE_ENTRY_WORDS: {
        if (index >= words_.size()) return RESULT_NO_ITEM;
        const uint64_t oldest = filling_ + 1;  // or one that was never filled, and holds no entries
        const uint64_t buffer = (oldest + index / WORDS_PER_BUFFER) % BUFFERS;
        value = words_[buffer * WORDS_PER_BUFFER + index % WORDS_PER_BUFFER];
        return RESULT_SUCCESS;
    }
    default: return RESULT_NO_ITEM;
    }
}

}  // namespace hosted
