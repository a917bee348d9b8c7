// platform/protocol/sysvc.h - what the system service's client and server share: commands, argument blocks, error
// codes.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr char SYSVC_DEVICE[] = "sysvc";

enum : uint32_t {
    SYSVCCMD_GET_PID = 0xC0030013,
    SYSVCCMD_GET_PPID = 0xC0030015,
    SYSVCCMD_GET_PGID = 0xC0030016,
    SYSVCCMD_GET_SID = 0xC0030018,
    SYSVCCMD_DECOMPOSE_DEVICE = 0xC0030021,
    SYSVCCMD_GET_MAX_MAJOR = 0xC0030022,
};

struct sysvc_id_block {  // the four id commands
    uint64_t task;       // in: task handle for SYSVCCMD_GET_PID, process id for the others
    uint64_t id;         // out
};
static_assert(offsetof(sysvc_id_block, id) == 8);
static_assert(sizeof(sysvc_id_block) == 16);

struct sysvc_device_block {  // SYSVCCMD_DECOMPOSE_DEVICE; in: a 64-bit device number over both words
    uint32_t device_low;
    uint32_t number;  // out
    // out: the NUL-terminated driver name follows
};
static_assert(offsetof(sysvc_device_block, number) == 4);
static_assert(sizeof(sysvc_device_block) == 8);

struct sysvc_max_major_block {
    uint32_t max_major;  // out
};
static_assert(sizeof(sysvc_max_major_block) == 4);

// Error words of failed requests.
enum : uint32_t {
    SYSVCERR_SYSTEM = 0xBE000000,       // + a system error number
    SYSVCERR_SYSTEM_LIMIT = 0x1000000,  // of that number
    SYSVCERR_NO_SPACE = 0xE0030001,
    SYSVCERR_INVALID_2 = 0xE0030002,
    SYSVCERR_NO_DEVICE = 0xE0030003,
    SYSVCERR_INVALID_4 = 0xE0030004,
    SYSVCERR_INVALID_5 = 0xE0030005,
    SYSVCERR_NO_PROCESS = 0xE0030006,
    SYSVCERR_NOT_PERMITTED = 0xE0030007,
};
