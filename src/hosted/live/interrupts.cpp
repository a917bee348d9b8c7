// hosted/live/interrupts.cpp - the system's interrupt lines.
#include "hosted/live/interrupts.h"

#include <algorithm>

#include "hosted/live/handles.h"
#include "hosted/live/texts.h"

namespace hosted::live {

namespace {

// Whether names of handlers end a line, after its counts and wiring: the controller, the controller's own number of the
// line ("24", "24-edge", or none), its trigger ("Level") and the trigger's name ("-edge").
bool has_handler(scanner rest) {
    rest.word();
    std::string_view field = rest.word();
    if (!field.empty() && field[0] >= '0' && field[0] <= '9') field = rest.word();
    if (field == "Edge" || field == "Level") field = rest.word();
    if (field.starts_with('-')) field = rest.word();
    return !field.empty();
}

}  // namespace

std::vector<interrupt_line> parse_interrupts(std::string_view text) {
    std::vector<interrupt_line> lines;
    size_t processors = 0;  // each has a column of counts
    scanner scan(text);
    for (scanner heading(scan.line()); !heading.word().empty();) processors++;

    while (!scan.done()) {
        scanner line(scan.line());
        const auto number = line.decimal();
        if (!number || *number >= ISR_HANDLES.size() || !line.take(':')) continue;  // a processor's own, by letters
        interrupt_line found{.number = *number};
        for (size_t i = 0; i < processors; i++) {
            const auto count = line.decimal();
            if (!count) break;
            found.count += *count;
        }
        found.handled = has_handler(line);
        lines.push_back(found);
    }
    return lines;
}

std::span<const interrupt_line> interrupt_table::lines() {
    if (!lines_) lines_ = parse_interrupts(read_table(roots_.proc + "/interrupts"));
    return *lines_;
}

uint64_t interrupt_table::limit() {
    uint64_t limit = 0;
    for (const interrupt_line &line : lines()) limit = std::max(limit, line.number + 1);
    return limit;
}

}  // namespace hosted::live
