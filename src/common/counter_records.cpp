// common/counter_records.cpp - walking counter records.
#include "common/counter_records.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "platform/protocol/counters.h"

bool sb_counters_next(const unsigned char *records, uint64_t size, uint64_t *at, sb_counter *counter) {
    if (*at >= size || records[*at] == 0) return false;
    const uint64_t name_room = records[*at];
    if (name_room + COUNTER_VALUE_SIZE > size - *at - 1) return false;
    const auto *name = reinterpret_cast<const char *>(records + *at + 1);
    *at += 1 + name_room;
    uint64_t value = 0;
    for (uint64_t i = 0; i < COUNTER_VALUE_SIZE; ++i) value |= uint64_t{records[*at + i]} << (8 * i);
    *at += COUNTER_VALUE_SIZE;
    *counter = {{name, strnlen(name, name_room)}, value};
    return true;
}

void sb_counters_print(const unsigned char *records, uint64_t size, bool hexadecimal) {
    sb_counter counter;
    for (uint64_t at = 0; sb_counters_next(records, size, &at, &counter);) {
        std::printf(hexadecimal ? "%.*s: 0x%" PRIX64 "\n" : "%.*s: %" PRIu64 "\n",
                    static_cast<int>(counter.name.size()), counter.name.data(), counter.value);
    }
}
