// hosted/live/totals.h - the state items that are totals of the system.
#pragma once

#include <cstdint>
#include <optional>

#include "hosted/live/files.h"
#include "hosted/live/interrupts.h"
#include "hosted/live/memory.h"

namespace hosted::live {

class totals {
public:
    totals(const file_roots &roots, memory_map &memory, interrupt_table &interrupts)
        : roots_(roots), memory_(memory), interrupts_(interrupts) {}

    // Reads one KSTATE_ item; false for an item that is not a total of the system.
    bool state(uint64_t item, uint64_t &value);

private:
    const file_roots &roots_;
    memory_map &memory_;
    interrupt_table &interrupts_;
    std::optional<uint64_t> handles_;
};

}  // namespace hosted::live
