// fuzz/colp.cpp - the column printer prints the same as its plain model after any calls, and after a sort by any
// SORTSPEC.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "colp/random_table.h"
#include "common/tables.h"
#include "input.h"

namespace {

constexpr size_t MOST_ROWS = 12;  // that one step adds
constexpr unsigned MOST_STEPS = 16;

// Numbers from the input, mostly of one byte.
struct input_numbers {
    fuzz_input &input;

    uint32_t operator()() {
        const uint8_t choice = input.byte();
        return choice < 0xF0 ? choice : static_cast<uint32_t>(input.word());
    }
};

// Sorts the model by a SORTSPEC. Returns false where the SORTSPEC is invalid.
bool sort_model(model_table &model, const std::string &spec) {
    static constexpr std::pair<std::string_view, uint32_t> modes[] = {
        {"", COLP_SORT_ASC}, {",asc", COLP_SORT_ASC}, {",desc", COLP_SORT_DESC}, {",unord", COLP_SORT_UNORD}};
    char *end = nullptr;
    const size_t position = std::strtoull(spec.c_str(), &end, 0);
    for (const auto &[text, order] : modes) {
        if (text != end || position >= model.columns.size()) continue;
        model.sort(position, order);
        return true;
    }
    return false;
}

}  // namespace

// The input: a SORTSPEC up to a line feed, and the numbers that choose the calls.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    fuzz_input input(bytes, size);
    const std::string spec(input.text_until('\n').substr(0, 64));
    input_numbers numbers{input};
    random_table<input_numbers> table(numbers, MOST_ROWS);
    for (unsigned steps = 0; steps < MOST_STEPS && input.size() != 0; ++steps) table.step();
    const bool sorted = sort_model(table.model(), spec);
    if ((sb_parse_colp_sort(table.table(), spec.c_str()) == 0) != sorted) std::abort();
    table.print(COLP_PRINT_ALL);
    if (table.complaint().empty()) return 0;
    std::fprintf(stderr, "%s", table.complaint().c_str());
    std::abort();
}
