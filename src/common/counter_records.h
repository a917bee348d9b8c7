// common/counter_records.h - reading and printing the counter records of a device.
#pragma once

#include <cstdint>
#include <string_view>

struct sb_counter {
    std::string_view name;  // within the records
    uint64_t value;
};

// Reads the record at an offset and moves the offset past it.
//   records, size  what the device returned; untrusted
//   at             in and out: bytes; 0 for the first record
//   returns        false, with the counter untouched, at the end of the list and at a record that passes size
bool sb_counters_next(const unsigned char *records, uint64_t size, uint64_t *at, sb_counter *counter);

// Prints one line for each record up to there.
void sb_counters_print(const unsigned char *records, uint64_t size, bool hexadecimal);
