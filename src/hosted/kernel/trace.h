// hosted/kernel/trace.h - the kernel's own ring of its last calls, in the layout of a kernel trace.
//
// The trace is a row of buffers. A buffer's first word is the number of entries in it; they begin 3 words after its
// start. An entry's header holds the type in bits 0 to 7 (here the call's number), the user byte in bits 8 to 15 (here
// the class of its result) and the entry's length in words, header included, in bits 16 to 23. Its parameters follow
// (here the call's arguments). The oldest buffer is overwritten when all are full.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "hosted/kernel/call_log.h"

namespace hosted {

class trace_ring {
public:
    static constexpr uint64_t BUFFERS = 4;
    static constexpr uint64_t WORDS_PER_BUFFER = 256;
    static constexpr uint64_t LARGEST_ENTRY = 8;  // words: a header and at most 7 arguments

    // Classes of results, the user byte of an entry.
    enum : uint8_t { SUCCEEDED = 0, FAILED = 1, GAVE_VALUE = 2 };

    trace_ring() {}  // clears no buffer: a short run touches little memory

    // Adds a call, unless the trace is frozen. Allocates nothing, so it cannot fail. The last call that is added is the
    // one that first read the trace.
    void record(call which, uint8_t result_class, std::span<const argument> arguments);

    // Reads the trace, oldest buffer first; the first read freezes it once that call itself is added. RESULT_ codes.
    uint64_t read(uint64_t group, uint64_t index, uint64_t &value);

private:
    using buffer = std::array<uint64_t, WORDS_PER_BUFFER>;

    void record_in_next(call which, uint8_t result_class, std::span<const argument> arguments);

    std::array<buffer, BUFFERS> buffers_;   // each is cleared when it is first filled
    uint64_t cleared_ = 0;                  // buffers that are
    uint64_t filling_ = BUFFERS - 1;        // index of the buffer being filled; the first call starts the next one
    uint64_t position_ = WORDS_PER_BUFFER;  // next free word in it
    bool read_ = false;
    bool frozen_ = false;
};

}  // namespace hosted
