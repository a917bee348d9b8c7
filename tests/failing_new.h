// failing_new.h - lets allocations by non-throwing new fail, which is how the libraries allocate.
#pragma once

#include <cstdint>

inline constexpr uint64_t no_failure = ~uint64_t{0};

// How many allocations succeed before one fails, which sets this to no_failure again. The one that sets it resets it.
inline uint64_t allocations_to_failure = no_failure;
