// hosted/live/interrupts.h - the system's interrupt lines.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "hosted/live/files.h"

namespace hosted::live {

struct interrupt_line {
    uint64_t number = 0;
    uint64_t count = 0;         // interrupts since boot, over all processors
    std::string_view counts;    // those of each processor
    std::string_view chip;      // the controller
    std::string_view handlers;  // the drivers' names of theirs; empty where none has a handler on it

    bool is_handled() const { return !handlers.empty(); }
};

struct interrupt_lines {
    std::vector<uint64_t> processors;   // those that have a count, by number
    std::vector<interrupt_line> lines;  // the numbered ones, in the system's order
};

// Takes a text like /proc/interrupts apart; its parts go with it.
interrupt_lines parse_interrupts(std::string_view text);

// The lines of this system, read when first asked for.
class interrupt_table {
public:
    explicit interrupt_table(const file_roots &roots) : roots_(roots) {}
    std::span<const interrupt_line> lines() { return read().lines; }
    std::span<const uint64_t> processors() { return read().processors; }
    uint64_t limit();  // highest number + 1; 0 without lines

private:
    const interrupt_lines &read();

    const file_roots &roots_;
    std::string text_;
    std::optional<interrupt_lines> parsed_;
};

}  // namespace hosted::live
