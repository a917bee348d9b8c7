// hosted/kernel/faults.h - calls that fail on purpose.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "hosted/kernel/calls.h"

namespace hosted {

struct fault {
    call which = call::get_state;
    std::optional<uint32_t> code;  // count only sends of a message with this code
    uint64_t nth = 1;              // the first call to replace, counted from 1
    uint64_t times = 1;            // how many calls in a row to replace
    uint64_t result = 0;
};

// The faults of one run. Every call of a name counts, also one that a fault replaces. Of two faults that meet in one
// call, the first in the list wins.
class fault_list {
public:
    void add(const fault &listed) { faults_.push_back({listed, 0}); }
    bool empty() const { return faults_.empty(); }

    // Counts one call. Returns the result to fail it with, or nothing where it is to run.
    //   code  of the message, for a send
    std::optional<uint64_t> strike(call which, uint32_t code);

private:
    struct counted {
        fault what;
        uint64_t seen;  // calls that it applies to
    };
    std::vector<counted> faults_;
};

}  // namespace hosted
