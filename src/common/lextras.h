// common/lextras.h - what the containers share: where their memory comes from, how elements are compared and exchanged.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>

// Returns size bytes, aligned for any type, or null.
using lextras_alloc = void *(*)(void *context, size_t size);
// Releases what the allocation function of the same container returned.
using lextras_release = void (*)(void *context, void *pointer);
// Negative, zero or positive as a sorts before, with or after b.
using lextras_compare = int (*)(const void *a, const void *b);

// The default pair: the system allocator; the context is ignored.
inline void *lextras_wrap_malloc(void *, size_t size) { return std::malloc(size); }
inline void lextras_wrap_free(void *, void *pointer) { std::free(pointer); }

// Exchanges two areas that do not overlap, or are the same one.
inline void memswap(void *a, void *b, size_t size) {
    auto *first = static_cast<unsigned char *>(a);
    if (a != b) std::swap_ranges(first, first + size, static_cast<unsigned char *>(b));
}
