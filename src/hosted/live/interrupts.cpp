// hosted/live/interrupts.cpp - reads the interrupt lines.
#include "hosted/live/interrupts.h"

#include <algorithm>
#include <cerrno>
#include <string>

#include "hosted/live/handles.h"
#include "hosted/live/proc_reader.h"
#include "platform/kernel.h"

namespace hosted::live {

namespace {

// Whether names of handlers end a line, after its counts and wiring: the controller, the controller's own number of the
// line ("24", "24-edge", or none), its trigger ("Level") and the trigger's name ("-edge").
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
        if (!number || *number >= ISR_HANDLES.size() || !line.starts_with(':'))
            continue;  // a processor's own, by letters
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

uint64_t interrupt_table::read() {
    if (lines_) return RESULT_SUCCESS;
    std::string text;
    if (!read_file(roots_.proc + "/interrupts", text) && means_failure(errno)) return result_of(errno);
    lines_ = parse_interrupts(text);
    return RESULT_SUCCESS;
}

std::span<const interrupt_line> interrupt_table::lines() {
    return read() == RESULT_SUCCESS ? std::span<const interrupt_line>(*lines_) : std::span<const interrupt_line>();
}

uint64_t interrupt_table::limit() {
    uint64_t limit = 0;
    for (const interrupt_line &line : lines()) limit = std::max(limit, line.number + 1);
    return limit;
}

}  // namespace hosted::live
