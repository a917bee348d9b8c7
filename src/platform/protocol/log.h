// platform/protocol/log.h - the system log device: reading, long messages, and emergency messages.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/protocol/device.h"

inline constexpr char LOG_DEVICE[] = "syslog";

enum : uint32_t {
    LOGCMD_WRITE = 0xC0510001,
    LOGCMD_LENGTH = 0xC0510002,
    LOGCMD_READ = 0xC0510003,

    // Messages to the device's port, without a request. 8 characters in each word, the first in the most significant
    // byte.
    LOGMSG_LABELLED = 0xD0510001,  // label, text
    LOGMSG_PLAIN = 0xD0510002,     // text, its continuation
};

// Requests on the log. The text follows the record, with room for a NUL.
struct log_read_request {
    IOreq header;
    uint32_t offset;  // LOGCMD_LENGTH: out, the number of characters in the log; LOGCMD_READ: in, the first to read
    uint32_t count;   // LOGCMD_READ: in the capacity, out what was delivered; bytes
    uint64_t buffer;  // in: address of the text
};
static_assert(offsetof(log_read_request, offset) == 120);
static_assert(offsetof(log_read_request, count) == 124);
static_assert(offsetof(log_read_request, buffer) == 128);
static_assert(sizeof(log_read_request) == 136);

struct log_write_request {
    IOreq header;
    uint16_t length;  // in: bytes of the text, without its NUL
    uint8_t reserved122[6];
    uint64_t buffer;  // in: address of the text
};
static_assert(offsetof(log_write_request, length) == 120);
static_assert(offsetof(log_write_request, buffer) == 128);
static_assert(sizeof(log_write_request) == 136);
