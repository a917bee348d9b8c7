// hosted/live/drivers.cpp - the system's table of device major numbers.
#include "hosted/live/drivers.h"

#include <utility>

#include "hosted/live/texts.h"

namespace hosted::live {

namespace {
constexpr uint64_t HIGHEST_MAJOR = 4095;  // device numbers have 12 bits for it
}

driver_map parse_drivers(std::string_view text) {
    driver_map characters, blocks;
    driver_map *section = nullptr;
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

const driver_map &driver_table::drivers() {
    if (!drivers_) drivers_ = parse_drivers(read_table(roots_.proc + "/devices"));
    return *drivers_;
}

}  // namespace hosted::live
