// hosted/live/devices.h - the devices of the live machine by name, and their servers.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "hosted/kernel/kernel.h"
#include "hosted/live/counters.h"
#include "hosted/live/files.h"
#include "hosted/servers/device_server.h"
#include "platform/protocol/log.h"
#include "platform/protocol/rtc.h"

namespace hosted::live {

// A device that every live machine has, but for the clock, which may be missing.
struct fixed_device {
    enum protocol : uint8_t { log, clock, services, counters };

    std::string_view name;
    protocol speaks;
    file_counters::kind figures = {};  // of counters
};
inline constexpr fixed_device FIXED_DEVICES[] = {
    {LOG_DEVICE, fixed_device::log},
    {RTC_NAME, fixed_device::clock},
    {"cpu", fixed_device::counters, file_counters::kind::processors},
    {"vm", fixed_device::counters, file_counters::kind::virtual_memory},
    {"host", fixed_device::services},
};

// The fixed device of a name; null where the name is not one of theirs.
const fixed_device *find_fixed_device(std::string_view name);

// Every device but the system service, whose name no other device gets.
class device_table {
public:
    explicit device_table(const file_roots &roots);
    ~device_table();

    // The names: the fixed devices that this machine has, then network interfaces, then block devices. An interface or
    // block device of a name that is taken is left out.
    std::vector<std::string> names();
    bool has(std::string_view name);

    // The server of a device; null where has() would be false. It uses this table's data, so the table must outlive it.
    std::unique_ptr<server> make(kernel &owner, std::string_view name);

private:
    struct device_data;
    device_data &data();

    const file_roots &roots_;
    std::unique_ptr<device_data> data_;  // made when a device is first asked for
};

}  // namespace hosted::live
