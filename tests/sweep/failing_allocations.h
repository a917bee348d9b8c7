// failing_allocations.h - counts all allocations of this program, and lets one fail, or all from one on.
//
// new and delete are replaced, so that the standard library's own use of them counts too; the linker has to lead
// malloc, calloc and realloc here (--wrap).
#pragma once

#include <cstdint>

struct failing_allocations {
    bool counts = false;      // nothing is counted, and nothing fails, while it is false
    uint64_t seen = 0;        // since it was set
    uint64_t failing = 0;     // number of the one that fails, from 1; 0: none
    bool persistent = false;  // and all behind it
};
extern failing_allocations allocations;
