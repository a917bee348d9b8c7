// hosted/live/counters.h - statistics of interfaces, block devices, processors and virtual memory as counters.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "hosted/live/files.h"
#include "hosted/servers/sources.h"

namespace hosted::live {

// The names of the network interfaces, and of the block devices with their partitions, as devices are named: a '/' in
// one is a '!'. Names that no registry key could have are left out.
std::vector<std::string> interface_names(const file_roots &roots);
std::vector<std::string> block_device_names(const file_roots &roots);

// The statistics of one device, read anew at each request.
class file_counters : public counter_source {
public:
    enum class kind : uint8_t { interface, block_device, processors, virtual_memory };

    // Counters in a unit of the virtual memory: they and their names fit a client's usual buffer.
    static constexpr size_t UNIT_COUNTERS = 100;

    file_counters(const file_roots &roots, kind of, std::string_view name) : roots_(roots), kind_(of), name_(name) {}

    // Whether there is such a device. The file that is read to find out serves the next request.
    bool exists();

    uint32_t read(uint32_t unit, uint64_t room, std::string &bytes, uint64_t &returned) override;

private:
    int load();

    const file_roots &roots_;
    kind kind_;
    std::string name_;
    std::string text_;  // of the file
    bool fresh_ = false;
};

}  // namespace hosted::live
