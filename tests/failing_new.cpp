#include "failing_new.h"

#include <new>

static bool fails() {
    if (allocations_to_failure == no_failure) return false;
    return allocations_to_failure-- == 0;  // and below 0 is no_failure
}

void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
    return fails() ? nullptr : ::operator new(size);
}
void *operator new[](std::size_t size, const std::nothrow_t &) noexcept {
    return fails() ? nullptr : ::operator new[](size);
}
