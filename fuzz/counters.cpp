// fuzz/counters.cpp - prints any bytes as counter records and reads none past their end.
#include "commands/commands.h"
#include "common/counter_records.h"
#include "input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    const std::vector<unsigned char> records(bytes, bytes + size);
    sb_counters_print(records.data(), records.size(), false);
    sb_counters_print(records.data(), records.size(), true);
    return 0;
}
