// hosted/live/drivers.cpp - the system's table of device major numbers.
#include "hosted/live/drivers.h"

#include <sys/sysmacros.h>

#include <utility>

#include "hosted/live/texts.h"
#include "platform/protocol/device.h"
#include "platform/protocol/sysvc.h"

namespace hosted::live {

namespace {
constexpr uint64_t HIGHEST_MAJOR = 4095;  // device numbers have 12 bits for it
}

std::map<uint32_t, std::string> parse_drivers(std::string_view text) {
    std::map<uint32_t, std::string> characters, blocks;
    std::map<uint32_t, std::string> *section = nullptr;
    for (scanner scan(text); !scan.done();) {
        const std::string_view whole = scan.line();
        if (whole == "Character devices:") section = &characters;
        if (whole == "Block devices:") section = &blocks;
        scanner line(whole);
        const auto major = line.decimal();
        std::string name(trimmed(line.rest()));
        if (section == nullptr || !major || *major > HIGHEST_MAJOR || name.empty()) continue;
        clean(name);
        section->emplace(static_cast<uint32_t>(*major), std::move(name));
    }
    characters.merge(blocks);
    return characters;
}

const std::map<uint32_t, std::string> &driver_table::drivers() {
    if (!drivers_) drivers_ = parse_drivers(read_table(roots_.proc + "/devices"));
    return *drivers_;
}

uint32_t driver_table::driver(uint64_t device_number, uint32_t &number, std::string &name) {
    const auto found = drivers().find(major(device_number));
    if (found == drivers().end()) return SYSVCERR_NO_DEVICE;
    number = minor(device_number);
    name = found->second;
    return 0;
}

uint32_t driver_table::max_major(uint32_t &major) {
    if (drivers().empty()) return IOERROR_NOT_FOUND;
    major = drivers().rbegin()->first;
    return 0;
}

}  // namespace hosted::live
