// hosted/live/devices.h - the devices of the live machine by name, and their servers.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "hosted/kernel/kernel.h"
#include "hosted/live/files.h"
#include "hosted/servers/device_server.h"
#include "platform/protocol/log.h"
#include "platform/protocol/rtc.h"

namespace hosted::live {

// The devices that are part of the live machine, whatever the system has.
inline constexpr std::string_view PROCESSOR_NAME = "cpu", VM_NAME = "vm", HOST_NAME = "host";
inline constexpr std::array<std::string_view, 5> FIXED_NAMES = {LOG_DEVICE, RTC_NAME, PROCESSOR_NAME, VM_NAME,
                                                                HOST_NAME};

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
