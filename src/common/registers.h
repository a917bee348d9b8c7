// common/registers.h - the processor registers that the kernel knows, read from its register information.
//
// Order of calls: sb_getregisterinfo once, then sb_getregister for each number below the count. Nothing prints: a
// record says what failed, and each command reports it in its own words.
#pragma once

#include <cstdint>

#include "common/text.h"

// What a kernel can sensibly say. More is an answer that cannot be right.
inline constexpr uint64_t SB_MAX_REGISTERS = 16384;
inline constexpr uint64_t SB_MAX_REGISTER_NAME = 65536;  // bytes

struct sb_registerinfo {
    uint64_t count;     // registers
    uint64_t stride;    // items of the table per register
    uint64_t max_name;  // bytes of the longest name
};

struct sb_register {
    uint64_t id;
    uint64_t type;  // CPUREG_ bits and the width
};

enum class sb_registerstep {
    done,
    count,
    stride,
    max_name,
    id,  // this and the next two: of a register
    type,
    name,
};

// What could not be read.
struct sb_registerfault {
    sb_registerstep step = sb_registerstep::done;
    uint64_t code = 0;    // the kernel's result
    uint64_t offset = 0;  // of the piece of the name, bytes
};

// Reads count, stride and longest name, in this order, as the kernel reports them.
sb_registerfault sb_getregisterinfo(sb_registerinfo *info);

// Room for one register's name of any length up to the longest; null when out of memory, or when the longest name
// exceeds SB_MAX_REGISTER_NAME.
sb_text sb_newregistername(const sb_registerinfo &info);

// Reads one register: id, type, then its name in pieces of 8 bytes. A number of SB_MAX_REGISTERS or more fails at its
// id with RESULT_BAD_ARGUMENT, unread: a stride of 0 would be registers without end.
//   room  for its name, from sb_newregistername; NUL-terminated after the last piece, which may pass the longest name
// The outputs are unspecified after a fault.
sb_registerfault sb_getregister(const sb_registerinfo &info, uint64_t number, sb_register *out, char *room);
