// hosted/live/interrupts.h - the system's interrupt lines.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "hosted/live/files.h"

namespace hosted::live {

struct interrupt_line {
    uint64_t number = 0;
    uint64_t count = 0;    // interrupts since boot, over all processors
    bool handled = false;  // a driver has a handler on it
};

// The numbered lines of a text like /proc/interrupts, in its order.
std::vector<interrupt_line> parse_interrupts(std::string_view text);

// The lines of this system, read when first asked for.
class interrupt_table {
public:
    explicit interrupt_table(const file_roots &roots) : roots_(roots) {}
    std::span<const interrupt_line> lines();
    uint64_t limit();  // highest number + 1; 0 without lines

private:
    const file_roots &roots_;
    std::optional<std::vector<interrupt_line>> lines_;
};

}  // namespace hosted::live
