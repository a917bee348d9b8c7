// platform/uninterrupted.h - the one place where interrupted kernel calls are repeated. Private to this folder.
#pragma once

#include <cstdint>

#include "platform/kernel.h"

// Does a kernel call again until it was not interrupted; a time-out starts over each time. Gives its result code.
template <class Call> uint64_t uninterrupted(Call call) {
    uint64_t result = call();
    while (result == RESULT_INTERRUPTED) result = call();
    return result;
}
