// hosted/live/register_table.cpp - the tables of general registers, one for each processor.
#include "hosted/live/register_table.h"

#include <sys/user.h>

#include <cstring>
#include <iterator>
#include <string_view>

#include "hosted/kernel/register_info.h"
#include "platform/kernel.h"

namespace hosted::live {

namespace {

// No kernel call sets a register, so each is readable only. The ids are the positions in the table, from 1.
struct row {
    const char *name;
    uint8_t width;
    size_t offset;
};

#if defined(__x86_64__)

#define FIELD(name) offsetof(user_regs_struct, name)
constexpr row rows[] = {
    {"rax", 64, FIELD(rax)},         {"rbx", 64, FIELD(rbx)},         {"rcx", 64, FIELD(rcx)}, {"rdx", 64, FIELD(rdx)},
    {"rsi", 64, FIELD(rsi)},         {"rdi", 64, FIELD(rdi)},         {"rbp", 64, FIELD(rbp)}, {"rsp", 64, FIELD(rsp)},
    {"r8", 64, FIELD(r8)},           {"r9", 64, FIELD(r9)},           {"r10", 64, FIELD(r10)}, {"r11", 64, FIELD(r11)},
    {"r12", 64, FIELD(r12)},         {"r13", 64, FIELD(r13)},         {"r14", 64, FIELD(r14)}, {"r15", 64, FIELD(r15)},
    {"rip", 64, FIELD(rip)},         {"eflags", 32, FIELD(eflags)},   {"cs", 16, FIELD(cs)},   {"ss", 16, FIELD(ss)},
    {"ds", 16, FIELD(ds)},           {"es", 16, FIELD(es)},           {"fs", 16, FIELD(fs)},   {"gs", 16, FIELD(gs)},
    {"fs_base", 64, FIELD(fs_base)}, {"gs_base", 64, FIELD(gs_base)},
};

#elif defined(__aarch64__)

#define FIELD(name) offsetof(user_regs_struct, name)
constexpr row rows[] = {
    {"x0", 64, FIELD(regs[0])},   {"x1", 64, FIELD(regs[1])},   {"x2", 64, FIELD(regs[2])},
    {"x3", 64, FIELD(regs[3])},   {"x4", 64, FIELD(regs[4])},   {"x5", 64, FIELD(regs[5])},
    {"x6", 64, FIELD(regs[6])},   {"x7", 64, FIELD(regs[7])},   {"x8", 64, FIELD(regs[8])},
    {"x9", 64, FIELD(regs[9])},   {"x10", 64, FIELD(regs[10])}, {"x11", 64, FIELD(regs[11])},
    {"x12", 64, FIELD(regs[12])}, {"x13", 64, FIELD(regs[13])}, {"x14", 64, FIELD(regs[14])},
    {"x15", 64, FIELD(regs[15])}, {"x16", 64, FIELD(regs[16])}, {"x17", 64, FIELD(regs[17])},
    {"x18", 64, FIELD(regs[18])}, {"x19", 64, FIELD(regs[19])}, {"x20", 64, FIELD(regs[20])},
    {"x21", 64, FIELD(regs[21])}, {"x22", 64, FIELD(regs[22])}, {"x23", 64, FIELD(regs[23])},
    {"x24", 64, FIELD(regs[24])}, {"x25", 64, FIELD(regs[25])}, {"x26", 64, FIELD(regs[26])},
    {"x27", 64, FIELD(regs[27])}, {"x28", 64, FIELD(regs[28])}, {"x29", 64, FIELD(regs[29])},
    {"x30", 64, FIELD(regs[30])}, {"sp", 64, FIELD(sp)},        {"pc", 64, FIELD(pc)},
    {"cpsr", 32, FIELD(pstate)},
};

#endif

#if defined(__x86_64__) || defined(__aarch64__)

struct register_table {
    cpu_register entries[std::size(rows)] = {};
    size_t longest = 0;  // bytes of the longest name

    constexpr register_table() {
        for (size_t i = 0; i < std::size(rows); ++i) {
            const row &from = rows[i];
            entries[i] = {from.name, static_cast<uint32_t>(i + 1), from.width, CPUREG_READABLE,
                          static_cast<uint32_t>(from.offset)};
            const size_t length = std::string_view(from.name).size();
            if (length > longest) longest = length;
        }
    }
};
constexpr register_table table;
constexpr std::span<const cpu_register> all = table.entries;
constexpr size_t LONGEST_NAME = table.longest;

#else

constexpr std::span<const cpu_register> all;
constexpr size_t LONGEST_NAME = 0;

#endif

}  // namespace

std::span<const cpu_register> cpu_registers() { return all; }

const cpu_register *find_cpu_register(uint64_t id) { return id == 0 || id > all.size() ? nullptr : &all[id - 1]; }

bool cpu_register_value(const cpu_register &which, std::span<const std::byte> set, uint64_t &value) {
    if (which.offset + sizeof value > set.size()) return false;
    std::memcpy(&value, set.data() + which.offset, sizeof value);
    if (which.width < 64) value &= (uint64_t{1} << which.width) - 1;
    return true;
}

uint64_t cpu_register_data(uint64_t group, uint64_t index, uint64_t &value) {
    const auto at = [](size_t position) {
        const cpu_register &which = all[position];
        return register_info{which.name, which.id, which.access | which.width};
    };
    return read_register_info(all.size(), LONGEST_NAME, at, group, index, value);
}

}  // namespace hosted::live
