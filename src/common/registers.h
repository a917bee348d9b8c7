// registers.h - the processor registers that the kernel knows, read from its register information.
//
// Order of calls: sb_getregisterinfo once, then sb_getregister for each number below the count. Nothing prints: what
// went wrong is told by a record, for commands that report it in their own words.
#pragma once

#include <cstdint>

// What a kernel can sensibly say. More is an answer that cannot be right.
inline constexpr uint64_t SB_MAX_REGISTERS = 16384;
inline constexpr uint64_t SB_MAX_REGISTER_NAME = 1024;  // bytes

struct sb_registerinfo {
    uint64_t count;     // registers
    uint64_t stride;    // items of the table per register
    uint64_t max_name;  // bytes of the longest name
};

struct sb_register {
    uint64_t id;
    uint64_t type;                        // CPUREG_ bits and the width
    char name[SB_MAX_REGISTER_NAME + 1];  // NUL-terminated
};

enum class sb_registerstep {
    done,
    count,              // could not be read, or exceeds SB_MAX_REGISTERS
    stride,             // could not be read
    max_name,           // could not be read
    max_name_too_long,  // info->max_name, which is filled, exceeds SB_MAX_REGISTER_NAME
    id,                 // of a register
    type,
    name,
};

// Where reading stopped.
struct sb_registerfault {
    sb_registerstep step = sb_registerstep::done;
    uint64_t code = 0;    // the kernel's result; RESULT_BAD_ARGUMENT for a value that was read and refused
    uint64_t offset = 0;  // of the name piece that could not be read, bytes
};

// Reads count, stride and longest name, in this order.
sb_registerfault sb_getregisterinfo(sb_registerinfo *info);

// Reads one register: id, type, then its name in pieces of 8 bytes. The record is unspecified after a fault.
sb_registerfault sb_getregister(const sb_registerinfo &info, uint64_t number, sb_register *out);
