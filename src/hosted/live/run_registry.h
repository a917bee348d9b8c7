// live/run_registry.h - the live machine's registry: run/proc and run/dev beside what the system itself publishes.
//
// All of it is read-only. A process is a binary key, its handle as 16 hexadecimal digits, that holds its name; a device
// is an integer key that holds its port, which is made when the key is read.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "hosted/kernel/kernel.h"
#include "hosted/live/processes.h"
#include "hosted/live/system.h"
#include "hosted/servers/registry_store.h"

namespace hosted::live {

class run_registry : public registry_store {
public:
    //   devices  those beside the system service
    //   system   the directories beside run/, outlived by nothing here
    run_registry(kernel &owner, process_table &processes, device_table &devices, registry_store &system)
        : owner_(owner), processes_(processes), devices_(devices), system_(system) {}

    registry_limits limits() const override { return system_.limits(); }
    std::unique_ptr<registry_cursor> list(std::string_view path) override;
    uint32_t describe(std::string_view path, uint16_t &type, uint32_t &length) override;
    uint32_t read_int(std::string_view path, uint64_t &value) override;
    uint32_t read_binary(std::string_view path, std::string &value) override;

private:
    const std::string *process_name(std::string_view key);  // null: no such key

    kernel &owner_;
    process_table &processes_;
    device_table &devices_;
    registry_store &system_;
};

}  // namespace hosted::live
