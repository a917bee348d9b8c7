// hosted/live/run_registry.h - the live machine's registry: run/proc/ and run/dev/, and other stores beside them.
//
// All of it is read-only. A process is a binary key that holds its name, and is named by its handle in 16 hexadecimal
// digits. A device is an integer key that holds its port, which is made when the key is read.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "hosted/kernel/kernel.h"
#include "hosted/live/devices.h"
#include "hosted/live/process_table.h"
#include "hosted/servers/registry_store.h"

namespace hosted::live {

class run_registry : public registry_store {
public:
    //   devices  those beside the system service
    //   details  the further directories below run/
    //   system   the directories beside run/
    // All must outlive this object.
    run_registry(kernel &owner, process_table &processes, device_table &devices, registry_store &details,
                 registry_store &system)
        : owner_(owner), processes_(processes), devices_(devices), details_(details), system_(system) {}

    registry_limits limits() const override { return system_.limits(); }
    std::unique_ptr<registry_cursor> list(std::string_view path) override;
    uint32_t describe(std::string_view path, uint16_t &type, uint32_t &length) override;
    uint32_t read_int(std::string_view path, uint64_t &value) override;
    uint32_t read_binary(std::string_view path, std::string &value) override;

private:
    // The name of a process by its key. Returns 0 or the error word.
    uint32_t process_name(std::string_view key, const std::string *&name);

    kernel &owner_;
    process_table &processes_;
    device_table &devices_;
    registry_store &details_;
    registry_store &system_;
};

}  // namespace hosted::live
