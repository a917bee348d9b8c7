// tests/sweep/failing_allocations.h - counts the allocations of this program, and fails one, or all from one on.
//
// Replaces new and delete, so that those of the standard library count too. The linker must redirect malloc, calloc and
// realloc here (--wrap).
#pragma once

#include <cstdint>

struct failing_allocations {
    bool counts = false;      // nothing is counted, and nothing fails, while it is false
    uint64_t seen = 0;        // since it was set
    uint64_t failing = 0;     // number of the one that fails, from 1; 0: none
    bool persistent = false;  // and all after it
};
extern failing_allocations allocations;
