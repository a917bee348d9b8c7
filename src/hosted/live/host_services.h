// hosted/live/host_services.h - the service device "host": calls that are of use on any machine, from files and system
// calls alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "hosted/live/files.h"
#include "hosted/servers/sources.h"

namespace hosted::live {

// The system's names for itself, none of which steers a terminal.
struct system_names {
    system_names();
    std::string system, host, release, version, machine;
};

class host_services : public service_source {
public:
    explicit host_services(const file_roots &roots) : roots_(roots) {}

    size_t count() const override;
    const service_description &describe(size_t index) const override;
    uint32_t call(size_t index, service_call &call) override;

private:
    const file_roots &roots_;
};

}  // namespace hosted::live
