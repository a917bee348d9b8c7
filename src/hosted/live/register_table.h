// hosted/live/register_table.h - the general registers of the processor that this is built for, by their debugger
// names.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace hosted::live {

struct cpu_register {
    const char *name;
    uint32_t id;      // what the kernel calls name it by, never 0
    uint8_t width;    // bits
    uint32_t access;  // CPUREG_READABLE, CPUREG_WRITABLE
    uint32_t offset;  // of its 64-bit field in user_regs_struct, the register set NT_PRSTATUS
};

// All of them, in the debugger's order; empty for a processor that is not known here.
std::span<const cpu_register> cpu_registers();

// The register of an id, or null.
const cpu_register *find_cpu_register(uint64_t id);

// The value of a register in a register set, cut to its width.
//   set      bytes of a user_regs_struct, as many as the debugger interface returned
//   returns  false where the set ends before the register's field
bool cpu_register_value(const cpu_register &which, std::span<const std::byte> set, uint64_t &value);

// Reads an item of the KSYSIDX_REGISTERINFO groups; RESULT_ codes.
uint64_t cpu_register_data(uint64_t group, uint64_t index, uint64_t &value);

}  // namespace hosted::live
