// tests/sweep/failing_allocations.cpp - operator new and the linker's wrappers of malloc, which count and fail.
#include "failing_allocations.h"

#include <algorithm>
#include <cstdlib>
#include <new>

failing_allocations allocations;

namespace {

bool fails() {
    if (!allocations.counts) return false;
    const uint64_t number = ++allocations.seen;
    return number == allocations.failing ||
           (allocations.persistent && allocations.failing != 0 && number > allocations.failing);
}

}  // namespace

extern "C" {
void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
void *__real_realloc(void *block, size_t size);
void *__wrap_malloc(size_t size) { return fails() ? nullptr : __real_malloc(size); }
void *__wrap_calloc(size_t count, size_t size) { return fails() ? nullptr : __real_calloc(count, size); }
void *__wrap_realloc(void *block, size_t size) { return fails() ? nullptr : __real_realloc(block, size); }
}

void *operator new(size_t size, const std::nothrow_t &) noexcept { return std::malloc(std::max<size_t>(size, 1)); }
void *operator new[](size_t size, const std::nothrow_t &) noexcept { return std::malloc(std::max<size_t>(size, 1)); }
void *operator new(size_t size) {
    void *block = std::malloc(std::max<size_t>(size, 1));
    return block != nullptr ? block : throw std::bad_alloc();
}
void *operator new[](size_t size) { return operator new(size); }
void operator delete(void *block) noexcept { std::free(block); }
void operator delete[](void *block) noexcept { std::free(block); }
void operator delete(void *block, size_t) noexcept { std::free(block); }
void operator delete[](void *block, size_t) noexcept { std::free(block); }
