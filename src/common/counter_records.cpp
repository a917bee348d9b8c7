// common/counter_records.cpp - walking counter records.
#include "common/counter_records.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "platform/protocol/counters.h"

void sb_counters_print(const unsigned char *records, uint64_t size, bool hexadecimal) {
    for (uint64_t at = 0; at < size && records[at] != 0;) {
        const uint64_t name_room = records[at++];
        if (name_room + COUNTER_VALUE_SIZE > size - at) return;
        const auto *name = reinterpret_cast<const char *>(records + at);
        at += name_room;
        uint64_t value = 0;
        for (uint64_t i = 0; i < COUNTER_VALUE_SIZE; ++i) value |= uint64_t{records[at + i]} << (8 * i);
        at += COUNTER_VALUE_SIZE;
        const auto length = static_cast<int>(strnlen(name, name_room));
        std::printf(hexadecimal ? "%.*s: 0x%" PRIX64 "\n" : "%.*s: %" PRIu64 "\n", length, name, value);
    }
}
