// hosted/kernel/faults.cpp - which call of a run a fault replaces.
#include "hosted/kernel/faults.h"

namespace hosted {

std::optional<uint64_t> fault_list::strike(call which, uint32_t code) {
    std::optional<uint64_t> result;
    for (auto &[what, seen] : faults_) {
        if (what.which != which || (what.code && *what.code != code)) continue;
        ++seen;
        if (!result && seen >= what.nth && seen - what.nth < what.times) result = what.result;
    }
    return result;
}

}  // namespace hosted
