// hosted/live/run_registry.cpp - the directories of running processes and devices.
#include "hosted/live/run_registry.h"

#include <array>
#include <utility>
#include <vector>

#include "platform/kernel.h"
#include "platform/protocol/device.h"
#include "platform/protocol/registry.h"
#include "platform/protocol/sysvc.h"
#include "platform/protocol/task.h"

namespace hosted::live {

namespace {

class process_names : public registry_node {
public:
    explicit process_names(process_table &processes) : processes_(processes) {}

    registry_cursor walk() override {
        process_table::listing listing(processes_);
        if (const int error = listing.begin()) throw system_failure(PROCESS_DIRECTORY, error);
        return [listing = std::move(listing)](registry_entry &entry) mutable {
            const std::string *name = nullptr;
            const int id = listing.next(name);
            if (id == 0) return false;
            entry.name.resize(TASK_KEY_SIZE);
            write_task_key(entry.name.data(), static_cast<uint64_t>(id));
            entry.type = REGTYPE_BIN;
            entry.length = name == nullptr ? 0 : static_cast<uint32_t>(name->size());  // reading it fails then
            return true;
        };
    }

    // A key's digits are exactly those that a listing shows.
    registry_node *entry(std::string_view key) override {
        const uint64_t handle = parse_task_key(key);
        std::array<char, TASK_KEY_SIZE> listed;
        write_task_key(listed.data(), handle);
        if (key != std::string_view(listed.data(), listed.size())) return nullptr;
        const std::string *name = nullptr;
        const uint64_t result = processes_.name(handle, name);
        if (result == RESULT_NO_OBJECT) return nullptr;
        if (result == RESULT_NO_MEMORY)
            throw system_failure(PROCESS_DIRECTORY + std::string(key), EAGAIN);  // memory, or descriptors
        found_.type = name != nullptr ? REGTYPE_BIN : 0;
        found_.failure = static_cast<uint32_t>(result);
        if (name != nullptr) found_.bytes = *name;
        return &found_;
    }

private:
    process_table &processes_;
    registry_node found_;
};

struct device_key : registry_node {
    explicit device_key(kernel &to) : owner(to) { type = REGTYPE_INT; }

    uint32_t read_int(uint64_t &value) override {
        const uint64_t port = owner.device_port(name);
        if (port == NO_OBJECT) return IOERROR_NOT_FOUND;
        value = port;
        return 0;
    }

    kernel &owner;
    std::string name;
};

class device_ports : public registry_node {
public:
    device_ports(kernel &owner, device_table &devices) : devices_(devices), found_(owner) {}

    registry_cursor walk() override {
        std::vector<std::string> names = devices_.names();
        names.insert(names.begin(), std::string(SYSVC_DEVICE));
        return [names = std::move(names), next = size_t{0}](registry_entry &entry) mutable {
            if (next == names.size()) return false;
            entry = {names[next++], REGTYPE_INT, sizeof(uint64_t)};
            return true;
        };
    }

    registry_node *entry(std::string_view name) override {
        if (name != SYSVC_DEVICE && !devices_.has(name)) return nullptr;
        found_.name = name;
        return &found_;
    }

private:
    device_table &devices_;
    device_key found_;
};

}  // namespace

std::unique_ptr<whole_directory> make_run_directory(kernel &owner, process_table &processes, device_table &devices) {
    auto made = std::make_unique<whole_directory>();
    made->add(reg_component(PROCESS_DIRECTORY, 1), std::make_unique<process_names>(processes));
    made->add(reg_component(DEVICE_DIRECTORY, 1), std::make_unique<device_ports>(owner, devices));
    return made;
}

}  // namespace hosted::live
