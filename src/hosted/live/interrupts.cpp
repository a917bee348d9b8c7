// interrupts.cpp - the system's interrupt lines.
#include <algorithm>

#include "hosted/live/system.h"

namespace hosted::live {

namespace {

constexpr uint64_t HIGHEST_NUMBER = 0xFFFFFFFF;  // of a line; interrupt numbers have 32 bits

// Whether handlers' names follow the counts and what says how the line is wired: the controller, its own number of the
// line ("24", "24-edge", or none), how the line is triggered ("Level") and the name of that way ("-edge").
bool has_handler(std::string_view rest) {
    next_field(rest);
    std::string_view field = next_field(rest);
    if (!field.empty() && field[0] >= '0' && field[0] <= '9') field = next_field(rest);
    if (field == "Edge" || field == "Level") field = next_field(rest);
    if (field.starts_with('-')) field = next_field(rest);
    return !field.empty();
}

}  // namespace

std::vector<interrupt_line> parse_interrupts(std::string_view text) {
    std::vector<interrupt_line> lines;
    size_t processors = 0;  // each has a column of counts
    for (std::string_view heading = next_line(text); !next_field(heading).empty();) processors++;

    while (!text.empty()) {
        std::string_view line = next_line(text);
        const auto number = next_number(line);
        if (!number || *number > HIGHEST_NUMBER || !line.starts_with(':')) continue;  // a processor's own, by letters
        line.remove_prefix(1);
        interrupt_line found{.number = *number};
        for (size_t i = 0; i < processors; i++) {
            const auto count = next_number(line);
            if (!count) break;
            found.count += *count;
        }
        found.handled = has_handler(line);
        lines.push_back(found);
    }
    return lines;
}

std::span<const interrupt_line> interrupt_table::lines() {
    if (!lines_) {
        std::string text;
        read_file(roots_.proc + "/interrupts", text);
        lines_ = parse_interrupts(text);
    }
    return *lines_;
}

uint64_t interrupt_table::limit() {
    uint64_t limit = 0;
    for (const interrupt_line &line : lines()) limit = std::max(limit, line.number + 1);
    return limit;
}

}  // namespace hosted::live
