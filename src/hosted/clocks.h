// hosted/clocks.h - the system's clocks, read as one number.
#pragma once

#include <cstdint>
#include <ctime>

namespace hosted {

// The time of a clock that every system has: CLOCK_MONOTONIC, CLOCK_BOOTTIME, CLOCK_REALTIME.
inline uint64_t nanoseconds_of(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

inline uint64_t milliseconds_of(clockid_t clock) { return nanoseconds_of(clock) / 1'000'000; }

}  // namespace hosted
