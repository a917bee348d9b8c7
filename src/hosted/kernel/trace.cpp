// trace.cpp - the ring of the last calls.
#include "hosted/kernel/trace.h"

#include <algorithm>

#include "platform/kernel.h"

namespace hosted {

namespace {

constexpr uint64_t HEADER_WORDS = 3;  // of a buffer, in front of its entries

}  // namespace

void trace_ring::record(call which, uint8_t result_class, std::span<const argument> arguments) {
    if (frozen_) return;
    frozen_ = read_;
    const uint64_t count = std::min<uint64_t>(arguments.size(), LARGEST_ENTRY - 1);
    if (position_ + 1 + count > WORDS_PER_BUFFER) {
        filling_ = (filling_ + 1) % BUFFERS;
        position_ = HEADER_WORDS;
        if (buffers_[filling_]) (*buffers_[filling_])[0] = 0;
    }
    if (!buffers_[filling_]) buffers_[filling_] = std::make_unique<buffer>();
    uint64_t *words = buffers_[filling_]->data();
    words[position_] = static_cast<uint64_t>(which) | uint64_t{result_class} << 8 | (count + 1) << 16;
    for (uint64_t i = 0; i < count; i++) words[position_ + 1 + i] = arguments[i].value;
    position_ += count + 1;
    words[0]++;
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
        const uint64_t oldest = filling_ + 1;  // or one that was never filled, and holds no entries
        const auto &kept = buffers_[(oldest + index / WORDS_PER_BUFFER) % BUFFERS];
        value = kept ? (*kept)[index % WORDS_PER_BUFFER] : 0;
        return RESULT_SUCCESS;
    }
    default: return RESULT_NO_ITEM;
    }
}

}  // namespace hosted
