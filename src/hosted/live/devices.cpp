// hosted/live/devices.cpp - the devices of the live machine by name, and their servers.
#include "hosted/live/devices.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <unordered_set>
#include <utility>

#include "hosted/live/hardware_clock.h"
#include "hosted/live/host_services.h"
#include "hosted/live/system_log.h"
#include "hosted/servers/protocols.h"
#include "platform/protocol/sysvc.h"

namespace hosted::live {

const fixed_device *find_fixed_device(std::string_view name) {
    const auto *const found = std::ranges::find(FIXED_DEVICES, name, &fixed_device::name);
    return found == std::end(FIXED_DEVICES) ? nullptr : found;
}

// What the servers read and write.
struct device_table::device_data {
    explicit device_data(const file_roots &roots) : log(roots), clock(roots), host(roots) {}

    system_log log;
    hardware_clock clock;
    host_services host;
    std::map<std::string, std::unique_ptr<file_counters>, std::less<>> counters;  // listed or asked for, by name

    // The counters of a device; null where there is none of that name.
    file_counters *counters_of(const file_roots &roots, std::string_view name);
};

file_counters *device_table::device_data::counters_of(const file_roots &roots, std::string_view name) {
    using kind = file_counters::kind;
    if (const auto known = counters.find(name); known != counters.end()) return known->second.get();
    std::vector<kind> kinds = {kind::interface, kind::block_device};
    if (const fixed_device *const fixed = find_fixed_device(name)) kinds = {fixed->figures};
    for (const kind one : kinds) {
        auto made = std::make_unique<file_counters>(roots, one, name);
        if (made->exists()) return counters.emplace(name, std::move(made)).first->second.get();
    }
    return nullptr;
}

device_table::device_table(const file_roots &roots) : roots_(roots) {}

device_table::~device_table() = default;

device_table::device_data &device_table::data() {
    if (!data_) data_ = std::make_unique<device_data>(roots_);
    return *data_;
}

std::vector<std::string> device_table::names() {
    std::vector<std::string> names;
    std::unordered_set<std::string> taken = {std::string(SYSVC_DEVICE)};
    for (const fixed_device &fixed : FIXED_DEVICES) {
        taken.emplace(fixed.name);
        if (has(fixed.name)) names.emplace_back(fixed.name);
    }
    const auto add = [&](std::vector<std::string> found, file_counters::kind of) {
        for (std::string &name : found) {
            if (!taken.insert(name).second) continue;
            // A client that lists the devices asks for each of them next; the table is not read again for that.
            data().counters.try_emplace(name, std::make_unique<file_counters>(roots_, of, name));
            names.push_back(std::move(name));
        }
    };
    add(interface_names(roots_), file_counters::kind::interface);
    add(block_device_names(roots_), file_counters::kind::block_device);
    return names;
}

bool device_table::has(std::string_view name) {
    if (name == SYSVC_DEVICE) return false;
    const fixed_device *const fixed = find_fixed_device(name);
    if (fixed == nullptr) return data().counters_of(roots_, name) != nullptr;
    return fixed->speaks != fixed_device::clock || data().clock.exists();
}

std::unique_ptr<server> device_table::make(kernel &owner, std::string_view name) {
    if (!has(name)) return nullptr;
    device_behaviour behaviour;
    std::unique_ptr<device_protocol> protocol;
    const fixed_device *const fixed = find_fixed_device(name);
    switch (fixed != nullptr ? fixed->speaks : fixed_device::counters) {
    case fixed_device::log: protocol = make_log_protocol(data().log); break;
    case fixed_device::clock: protocol = make_clock_protocol(data().clock); break;
    case fixed_device::services:
        behaviour.classes.push_back(SERVICE_CLASS);
        protocol = make_service_protocol(data().host);
        break;
    case fixed_device::counters: protocol = make_counter_protocol(*data().counters_of(roots_, name)); break;
    }
    auto made = std::make_unique<device_server>(owner, std::move(behaviour));
    made->add(std::move(protocol));
    return made;
}

}  // namespace hosted::live
