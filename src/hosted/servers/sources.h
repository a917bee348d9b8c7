// hosted/servers/sources.h - where the protocols of devices get their data. Each machine implements these.
//
// A result is the error word of the request: 0 (done), IOERROR_NOT_FOUND, or another code. Outputs are written on
// success only. All are called with the kernel's lock held.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/protocol/rtc.h"
#include "platform/protocol/service.h"

namespace hosted {

// Statistics counters of a device.
class counter_source {
public:
    virtual ~counter_source() = default;

    // The counter records of a unit.
    //   room      bytes that the client offers; only whole records that fit are delivered, raw bytes are cut to it
    //   bytes     out: the records
    //   returned  out: the byte count to report: the size of bytes, unless the source misbehaves on purpose
    virtual uint32_t read(uint32_t unit, uint64_t room, std::string &bytes, uint64_t &returned) = 0;
};

// Appends one counter record to bytes. Returns false, and appends nothing, if it would grow past room.
bool append_counter(std::string &bytes, uint64_t room, std::string_view name, uint64_t value);

// One service: its arguments and its results.
struct service_description {
    struct item {
        std::string key;
        uint64_t type = 0;  // SVCTYPE_
    };
    std::string name;
    std::vector<item> args;
    std::vector<item> results;
};

// One call of a service: its arguments, and where its results go. The service protocol implements it.
class service_call {
public:
    virtual ~service_call() = default;

    // An argument: its slot word (0 past the last slot), or the text or address that it points at (nothing where that
    // is out of reach).
    virtual uint64_t word(size_t argument) const = 0;
    virtual std::optional<std::string> text(size_t argument) const = 0;
    virtual std::optional<svc_sockaddr> address(size_t argument) const = 0;

    // Store a result; past the last slot nothing is stored. Texts and addresses lie in the server's memory until the
    // request is deleted.
    virtual void set_word(size_t result, uint64_t value) = 0;
    virtual void set_text(size_t result, std::string_view value) = 0;
    virtual void set_wide(size_t result, std::u32string_view value) = 0;
    virtual void set_address(size_t result, const svc_sockaddr &value) = 0;
};

// The services of one device, by index from 0 to count() - 1. A call returns 0 or the request's error word.
class service_source {
public:
    virtual ~service_source() = default;
    virtual size_t count() const = 0;
    virtual uint64_t total() const { return count(); }  // that the list reports
    virtual const service_description &describe(size_t index) const = 0;
    virtual uint32_t call(size_t index, service_call &call) = 0;
};

// A system log.
class log_source {
public:
    virtual ~log_source() = default;

    // The length of the whole log. Later reads deliver the log of this moment.
    virtual uint32_t length(uint64_t &characters) = 0;

    // Reads at most room characters from an offset. The text is valid until the next call.
    virtual uint32_t read(uint64_t offset, uint64_t room, std::string_view &text) = 0;

    // Appends one message, which may be any bytes.
    virtual uint32_t write(std::string_view message) = 0;

    // Appends a direct message of up to 16 characters; its two words and its code are as protocol/log.h has them.
    virtual void emergency(uint64_t word1, uint64_t code, uint64_t word2) = 0;
};

// A real-time clock, in UTC or in local time, as it was set last.
class clock_source {
public:
    virtual ~clock_source() = default;
    virtual uint32_t read(rtc_time &time) = 0;
    virtual uint32_t set(const rtc_time &time) = 0;
};

using driver_map = std::map<uint32_t, std::string>;

// A system service.
class process_source {
public:
    virtual ~process_source() = default;

    // One id of a process.
    //   command  SYSVCCMD_GET_PID, _PPID, _PGID or _SID
    //   key      what the client named: a task handle, or a process id
    virtual uint32_t id(uint32_t command, uint64_t key, uint64_t &value) = 0;

    // The names of drivers by major number, and the highest number that a driver may have.
    virtual const driver_map &drivers() = 0;
    virtual std::optional<uint32_t> max_major() {
        return drivers().empty() ? std::nullopt : std::optional(drivers().rbegin()->first);
    }
};

}  // namespace hosted
