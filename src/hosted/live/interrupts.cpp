// hosted/live/interrupts.cpp - the system's interrupt lines.
#include "hosted/live/interrupts.h"

#include <algorithm>

#include "hosted/live/handles.h"
#include "hosted/live/texts.h"

namespace hosted::live {

namespace {

// What follows the counts of a line: the controller, the controller's own number of the line ("24", "24-edge", or
// none), its trigger ("Level"), the trigger's name ("-edge"), and the handlers.
void parse_wiring(scanner rest, interrupt_line &out) {
    out.chip = rest.word();
    rest.skip_blanks();
    scanner handlers = rest;
    std::string_view field = rest.word();
    const auto skip = [&] {
        rest.skip_blanks();
        handlers = rest;
        field = rest.word();
    };
    if (!field.empty() && field[0] >= '0' && field[0] <= '9') skip();
    if (field == "Edge" || field == "Level") skip();
    if (field.starts_with('-')) skip();
    out.handlers = trimmed(handlers.rest());
}

}  // namespace

interrupt_lines parse_interrupts(std::string_view text) {
    interrupt_lines all;
    scanner scan(text);
    scanner heading(scan.line());
    for (std::string_view name = heading.word(); !name.empty(); name = heading.word()) {
        name.remove_prefix(std::min(name.find_first_of("0123456789"), name.size()));  // after "CPU"
        all.processors.push_back(whole_number(name).value_or(all.processors.size()));
    }

    while (!scan.done()) {
        scanner line(scan.line());
        const auto number = line.decimal();
        if (!number || *number >= ISR_HANDLES.size() || !line.take(':')) continue;  // a processor's own, by letters
        interrupt_line found;
        found.number = *number;
        const std::string_view counts = line.rest();
        for (size_t i = 0; i < all.processors.size(); ++i) {
            const auto count = line.decimal();
            if (!count) break;
            found.count += *count;
        }
        found.counts = counts.substr(0, counts.size() - line.rest().size());
        parse_wiring(line, found);
        all.lines.push_back(found);
    }
    return all;
}

const interrupt_lines &interrupt_table::read() {
    if (!parsed_) {
        text_ = read_table(roots_.proc + "/interrupts");
        parsed_ = parse_interrupts(text_);
    }
    return *parsed_;
}

uint64_t interrupt_table::limit() {
    uint64_t limit = 0;
    for (const interrupt_line &line : lines()) limit = std::max(limit, line.number + 1);
    return limit;
}

}  // namespace hosted::live
