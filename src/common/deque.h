// common/deque.h - a double-ended queue of elements of one size, copied in by value, in linked blocks.
//
// Elements keep their addresses while others are pushed and popped at the ends; insertion and removal in the middle
// move elements of one block. Elements are copied as bytes. A failed call changes nothing.
#pragma once

#include <cstddef>
#include <memory>

#include "common/lextras.h"

// A block: this header, then per_block slots. The used slots are contiguous, and there is at least one.
struct deque_block {
    deque_block *next;
    deque_block *prev;
    size_t start;  // first used slot
    size_t used;   // used slots
};

inline constexpr size_t DEQUE_BLOCK_ROOM = 2016;  // bytes of slots in a block, or more for the least number of slots
inline constexpr size_t DEQUE_LEAST_SLOTS = 4;

struct deque {
    size_t count;        // elements
    size_t elem_size;    // bytes
    size_t block_bytes;  // size of a block with its header
    size_t per_block;    // slots of a block
    deque_block *first;  // null when empty
    deque_block *last;
    void *alloc_ctx;  // handed to the two functions
    lextras_alloc alloc;
    lextras_release release;
};

// A new empty deque, without a block.
//   returns  the deque, to be ended with deque_release; null for an element size of 0, a missing function, or no memory
deque *deque_new(size_t elem_size);
deque *deque_new_ex(size_t elem_size, void *alloc_ctx, lextras_alloc alloc, lextras_release release);
void deque_clear(deque *d);    // removes all elements and releases all blocks; null is ignored
void deque_release(deque *d);  // null is ignored

// Insert a copy of an element after the last or before the first. The element may lie in the deque itself.
//   returns  the address of the copy, or null for a null argument or without memory
void *deque_push_back(deque *d, const void *element);
void *deque_push_front(deque *d, const void *element);

// Remove the last or the first element; a block that becomes empty is released at once.
//   returns  0, or -1 for a null or empty deque
int deque_pop_back(deque *d);
int deque_pop_front(deque *d);

void *deque_front(const deque *d);         // null when empty
void *deque_back(const deque *d);          // null when empty
void *deque_at(const deque *d, size_t i);  // null where there is no element i. Walks the blocks from the nearer end

// A position in a deque: at an element, or at the end (block null). Only changes made through it leave it valid.
struct deque_iterator {
    deque *owner;
    deque_block *block;
    size_t slot;
};

// Move the iterator to the first element, to the next, or n elements on.
//   returns  the element's address; null at the end, where further steps stay
void *deque_begin(deque *d, deque_iterator *it);
void *deque_next(deque_iterator *it);
void *deque_advance(deque_iterator *it, size_t n);

// Insert a copy of an element before the iterator's (at the end: after the last), or before element i (i at most the
// count). The iterator then is at the copy. The element must not lie in the deque.
//   returns  the address of the copy, or null for a null argument, a bad index, or without memory
void *deque_insertit(deque_iterator *it, const void *element);
void *deque_insert(deque *d, size_t i, const void *element);

// Removes the iterator's element; the iterator then is at the one after it, or at the end.
//   returns  0, or -1 for a null iterator or one at the end
int deque_removeit(deque_iterator *it);

// Puts elements in order by selection: for n from the last index down to 1 the greatest of the elements *before* n is
// exchanged with element n. Element n itself takes no part in the choice, so the result is not sorted for every input
// (1, 3 becomes 3, 1); that is the promise. Time grows with the square of the count.
void deque_sort(deque *d, lextras_compare compare);

struct deque_releaser {
    void operator()(deque *d) const noexcept { deque_release(d); }
};
using deque_ptr = std::unique_ptr<deque, deque_releaser>;
