// common/counter_records.h - printing the counter records of a device.
#pragma once

#include <cstdint>

// Prints one line for each record that lies whole within size bytes; the first that does not ends the list.
void sb_counters_print(const unsigned char *records, uint64_t size, bool hexadecimal);
