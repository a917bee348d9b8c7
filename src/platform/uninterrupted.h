// platform/uninterrupted.h - repeats interrupted kernel calls. Private to this folder.
#pragma once

#include <cstdint>

#include "platform/kernel.h"

// Makes a kernel call until it is not interrupted; a time-out starts over each time. Returns its result code.
template <class Call> uint64_t uninterrupted(Call call) {
    uint64_t result = call();
    while (result == RESULT_INTERRUPTED) result = call();
    return result;
}
