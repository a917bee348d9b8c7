#include "failing_new.h"

#include <new>

namespace {

constexpr uint64_t never = ~uint64_t{0};
uint64_t spared_allocations = never;
bool failed = false;

bool fails() {
    if (spared_allocations == never || spared_allocations-- > 0) return false;
    spared_allocations = never;
    failed = true;
    return true;
}
}  // namespace

failing_new::failing_new(uint64_t spared) {
    spared_allocations = spared;
    failed = false;
}
failing_new::~failing_new() { spared_allocations = never; }
bool failing_new::happened() { return failed; }

void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
    return fails() ? nullptr : ::operator new(size);
}
void *operator new[](std::size_t size, const std::nothrow_t &) noexcept {
    return fails() ? nullptr : ::operator new[](size);
}
