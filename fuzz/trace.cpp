// trace.cpp - the display of the kernel's trace: any words in buffers of any shape, and none is read outside them.
#include "hostile.h"

namespace {

constexpr uint64_t SHAPE[] = {KSYSIDX_TRACE_WORDS, KSYSIDX_TRACE_BUFFERS, KSYSIDX_TRACE_WORDS_PER_BUFFER,
                              KSYSIDX_TRACE_LARGEST_ENTRY};

std::vector<uint64_t> shape;
std::vector<uint64_t> words;  // all others are 0

// A number, an entry's header (its length in a byte), or any word.
uint64_t read_word() {
    const uint8_t choice = now->input.byte();
    if (choice < 0x80) return choice;
    return choice == 0xFF ? now->input.word() : uint64_t{choice & 0x7FU} << 16 | now->input.byte();
}

uint64_t system_data(uint64_t group, uint64_t index, uint64_t *value) {
    const uint64_t status = result();
    if (status != RESULT_SUCCESS) return status;
    while (shape.size() < std::size(SHAPE)) shape.push_back(number());
    while (now->input.size() != 0) words.push_back(read_word());
    if (group == KSYSIDX_TRACE) {
        *value = shape[static_cast<size_t>(std::find(SHAPE, std::end(SHAPE), index) - SHAPE)];
        return RESULT_SUCCESS;
    }
    const bool inside = index < shape[0] || (shape[2] != 0 && index / shape[2] < shape[1]);
    if (!inside) std::abort();
    *value = index < words.size() ? words[index] : 0;
    return RESULT_SUCCESS;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    static constexpr std::string_view commands[] = {"dumpktrace"};
    fuzz_input input(bytes, size);
    shape.clear();
    words.clear();
    run_hostile(input, {.commands = commands, .obliging = true, .system_data = system_data});
    return 0;
}
