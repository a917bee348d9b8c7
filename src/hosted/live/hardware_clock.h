// hosted/live/hardware_clock.h - the hardware clock of the machine.
#pragma once

#include <cstdint>

#include "hosted/live/files.h"
#include "hosted/servers/sources.h"

namespace hosted::live {

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
