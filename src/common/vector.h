// common/vector.h - a growable array of elements of one size, copied in by value.
//
// Results are 0 for success and negative for failure, which changes nothing, unless a pointer is returned. Addresses of
// elements hold until the next call that adds elements. Elements are copied as bytes.
#pragma once

#include <cstddef>
#include <memory>

#include "common/lextras.h"

enum : int {
    VECTOR_DONE = 0,
    VECTOR_NULL = -1,       // a null vector, element or function
    VECTOR_FAILED = -2,     // no memory; no such element; a corrupted record
    VECTOR_NO_MEMORY = -3,  // vector_pushback only: no memory
};

struct vector {
    size_t elem_size;  // bytes
    size_t capacity;   // elements allocated, a power of two
    size_t count;      // elements in use
    void *data;        // the elements
    void *alloc_ctx;   // handed to the two functions
    lextras_alloc alloc;
    lextras_release release;
};

// A new empty vector whose capacity is the smallest power of two not below initial_capacity.
//   returns  the vector, to be ended with vector_release; null for an element size of 0, a missing function, or no
//   memory
vector *vector_new(size_t elem_size, size_t initial_capacity);
vector *vector_new_ex(size_t elem_size, size_t initial_capacity, void *alloc_ctx, lextras_alloc alloc,
                      lextras_release release);
void vector_release(vector *v);  // null is ignored

// Appends a copy; doubles a full vector's capacity. The element may lie in the vector itself.
//   returns  0, VECTOR_NULL, VECTOR_FAILED (the count exceeds the capacity), VECTOR_NO_MEMORY
int vector_pushback(vector *v, const void *element);
int vector_popback(vector *v);  // drops the last element, if any; 0 or VECTOR_NULL

void *vector_at(const vector *v, size_t i);  // null where there is no element i
void *vector_back(const vector *v);          // null when empty

// Makes the count n, growing where needed; new elements are not initialised. 0, VECTOR_NULL, VECTOR_FAILED
int vector_resize(vector *v, size_t n);

// Appends n elements of an array, which may lie in the vector itself. 0 (also for n 0), VECTOR_NULL, VECTOR_FAILED
int vector_pushmulti(vector *v, const void *elements, size_t n);

// Appends all elements of other, which may be v. 0, VECTOR_NULL, VECTOR_FAILED (also where the element sizes differ)
int vector_concat(vector *v, const vector *other);

int vector_sort(vector *v, lextras_compare compare);       // in place; 0 or VECTOR_NULL; fewer than 2 need no compare
int vector_reverse(vector *v);                             // in place; 0 or VECTOR_NULL
int vector_set(vector *v, size_t i, const void *element);  // replaces element i; 0, VECTOR_NULL, VECTOR_FAILED
int vector_remove(vector *v, size_t i);                    // the later ones move up; 0, VECTOR_NULL, VECTOR_FAILED
int vector_clear(vector *v);                               // count 0, memory retained; 0 or VECTOR_NULL

// The first element for which compare(element, key) is 0, or, without compare, whose bytes are the key's. Null if none.
void *vector_find(const vector *v, const void *key, lextras_compare compare);

struct vector_releaser {
    void operator()(vector *v) const noexcept { vector_release(v); }
};
using vector_ptr = std::unique_ptr<vector, vector_releaser>;
