// hosted/live/drivers.h - the system's table of device major numbers.
#pragma once

#include <optional>
#include <string_view>

#include "hosted/live/files.h"
#include "hosted/servers/sources.h"

namespace hosted::live {

// The drivers of a text like /proc/devices by major number: the character driver where both kinds have one, the first
// of several on one major.
driver_map parse_drivers(std::string_view text);

// The drivers of this system.
class driver_table {
public:
    explicit driver_table(const file_roots &roots) : roots_(roots) {}

    const driver_map &drivers();  // read at the first call

private:
    const file_roots &roots_;
    std::optional<driver_map> drivers_;
};

}  // namespace hosted::live
