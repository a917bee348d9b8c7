// common/iterators.cpp - reading items and two-item counters.
#include "common/iterators.h"

#include "platform/kernel.h"

uint64_t sb_GetIteratorInfo64(uint64_t iterator, uint64_t *value, uint64_t low_item, uint64_t high_item) {
    uint64_t low = 0, high = 0;
    if (const uint64_t code = _SL_GetIteratorInfo(iterator, low_item, &low)) return code;
    if (const uint64_t code = _SL_GetIteratorInfo(iterator, high_item, &high)) return code;
    *value = high << 32 | low;
    return RESULT_SUCCESS;
}

uint64_t sb_iteratorcounter(uint64_t iterator, uint64_t low_item, uint64_t high_item) {
    uint64_t value = 0;
    static_cast<void>(sb_GetIteratorInfo64(iterator, &value, low_item, high_item));  // stays 0 then
    return value;
}

uint64_t sb_iteratoritem(uint64_t iterator, uint64_t item, uint64_t fallback) {
    uint64_t value = 0;
    return _SL_GetIteratorInfo(iterator, item, &value) == RESULT_SUCCESS ? value : fallback;
}
