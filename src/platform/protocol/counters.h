// platform/protocol/counters.h - a device's statistics counters.
//
// The request's transfer.buffer_size is the capacity of its in-line area. The server writes a sequence of records there
// and stores the bytes written in transfer.returned_size. A record: one byte L, the length of the name field (0 ends
// the list); L bytes of name, NUL-terminated; the value in 8 bytes, little-endian, unaligned.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr uint32_t CNTCMD_GET = 0xC0010001;
inline constexpr uint64_t COUNTER_VALUE_SIZE = 8;
inline constexpr size_t COUNTER_MAX_NAME = UINT8_MAX - 1;  // bytes; the length byte counts the NUL too
