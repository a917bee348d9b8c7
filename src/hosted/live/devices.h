// hosted/live/devices.h - where the devices of the live machine get their data.
#pragma once

#include <sys/utsname.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "hosted/live/files.h"
#include "hosted/servers/sources.h"

namespace hosted::live {

// The error word that stands for a system error number: RESULT_NOT_PERMITTED, IOERROR_NOT_FOUND, else
// SYSVCERR_SYSTEM + the number.
uint32_t error_word(int error);

// The names that the system has for itself.
utsname system_names();

// ---- counters -------------------------------------------------------------------------------------------------------

// The names of the network interfaces and of the block devices with their partitions, as devices are named: a '/' in
// one is a '!'. Those that no registry key could hold are left out.
std::vector<std::string> interface_names(const file_roots &roots);
std::vector<std::string> block_device_names(const file_roots &roots);

// Whether a text can be the name of a registry key here: one without control characters.
bool can_be_key(std::string_view name);

// The statistics of one device, read at each request.
class file_counters : public counter_source {
public:
    enum class kind : uint8_t { interface, block_device, processors, virtual_memory };

    file_counters(const file_roots &roots, kind of, std::string_view name) : roots_(roots), kind_(of), name_(name) {}

    // Whether there is such a device. What was read to tell it serves the next request.
    bool exists();

    uint32_t read(uint32_t unit, uint64_t room, std::string &bytes, uint64_t &returned) override;

private:
    bool load();

    const file_roots &roots_;
    kind kind_;
    std::string name_;
    std::string text_;  // of the file
    bool fresh_ = false;
};

// ---- the service device "host" --------------------------------------------------------------------------------------

class host_services : public service_source {
public:
    explicit host_services(const file_roots &roots) : roots_(roots) {}

    size_t count() const override;
    const service_description &describe(size_t index) const override;
    uint32_t call(size_t index, service_call &call) override;

private:
    const file_roots &roots_;
};

// How many sockets of a text like /proc/net/tcp or tcp6 listen at exactly this address and port, both in network byte
// order; an IPv4 address in IPv6 form counts.
uint64_t count_listening(std::string_view text, uint32_t address, uint16_t port);

// ---- the system log -------------------------------------------------------------------------------------------------

// The kernel's log, one line per record. It is taken whole when its length is asked for, so that what is read
// afterwards is what was measured. Writing goes to the kernel's log, or where that is refused to the system logger's
// socket.
class system_log : public log_source {
public:
    explicit system_log(const file_roots &roots) : roots_(roots) {}

    uint32_t length(uint64_t &characters) override;
    uint32_t read(uint64_t offset, uint64_t room, std::string_view &text) override;
    uint32_t write(std::string_view message) override;
    void emergency(uint64_t word1, uint64_t code, uint64_t word2) override;

private:
    uint32_t take();
    uint32_t send(int priority, std::string_view message);

    const file_roots &roots_;
    std::string text_;
    bool taken_ = false;
};

// Appends the line of one record as /dev/kmsg gives it; nothing for a text that is none.
void append_log_line(std::string &log, std::string_view record);

// The text of an emergency message's two words.
std::string emergency_text(uint64_t word1, uint64_t code, uint64_t word2);

// ---- the hardware clock ---------------------------------------------------------------------------------------------

class hardware_clock : public clock_source {
public:
    explicit hardware_clock(const file_roots &roots) : roots_(roots) {}

    bool exists() const;

    uint32_t read(rtc_time &time) override;
    uint32_t set(const rtc_time &time) override;  // to the second: the device has no milliseconds

private:
    const file_roots &roots_;
};

}  // namespace hosted::live
