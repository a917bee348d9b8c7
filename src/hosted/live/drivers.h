// hosted/live/drivers.h - the system's table of device major numbers.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "hosted/live/files.h"

namespace hosted::live {

// The drivers of a text like /proc/devices by major number: the character driver where both kinds have one, the first
// of several on one major.
std::map<uint32_t, std::string> parse_drivers(std::string_view text);

// The drivers of this system, read when first asked for. The calls are those of a process_source, results included.
class driver_table {
public:
    explicit driver_table(const file_roots &roots) : roots_(roots) {}

    uint32_t driver(uint64_t device_number, uint32_t &number, std::string &name);
    uint32_t max_major(uint32_t &major);

private:
    const std::map<uint32_t, std::string> &drivers();

    const file_roots &roots_;
    std::optional<std::map<uint32_t, std::string>> drivers_;
};

}  // namespace hosted::live
