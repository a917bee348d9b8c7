// common/iterators.h - items of the object at which a kernel iterator is.
#pragma once

#include <cstdint>

// A 64-bit counter that the kernel keeps in two items: (high << 32) | low. The low item is read first.
//   returns  0, or the result code of the read that failed; the output is untouched then
uint64_t sb_GetIteratorInfo64(uint64_t iterator, uint64_t *value, uint64_t low_item, uint64_t high_item);

// The same, and 0 when either half cannot be read.
uint64_t sb_iteratorcounter(uint64_t iterator, uint64_t low_item, uint64_t high_item);

// One item, or the fallback when it cannot be read.
uint64_t sb_iteratoritem(uint64_t iterator, uint64_t item, uint64_t fallback);
