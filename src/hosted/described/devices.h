// hosted/described/devices.h - the servers of a described machine's devices.
#pragma once

#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "hosted/described/records.h"
#include "hosted/kernel/server.h"

namespace hosted::described {

// Makes servers over the records. Both the records and this object must outlive them.
class device_maker {
public:
    explicit device_maker(machine_records &from) : records_(from) {}

    // Makes the server of a device; null if there is none of that name.
    std::unique_ptr<server> make(kernel &owner, std::string_view name);

private:
    device *find(std::string_view name);

    template <class Source> Source &keep(std::shared_ptr<Source> source) {
        sources_.push_back(source);
        return *source;
    }

    machine_records &records_;
    std::unordered_map<std::string_view, device *> by_name_;  // filled at the first lookup
    std::vector<std::shared_ptr<void>> sources_;
};

}  // namespace hosted::described
