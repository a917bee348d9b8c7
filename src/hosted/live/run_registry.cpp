// hosted/live/run_registry.cpp - the directories of running processes and devices, and the stores beside them.
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

constexpr std::string_view RUN = reg_component(PROCESS_DIRECTORY, 0);
constexpr std::string_view PROC = reg_component(PROCESS_DIRECTORY, 1);
constexpr std::string_view DEV = reg_component(DEVICE_DIRECTORY, 1);

// What a path of this store names.
struct location {
    enum kind { root, run, processes, process, devices, device, details, system, nowhere } kind = root;
    std::string_view name;  // of a process's key or a device; the path in another store
};

location locate(std::string_view path) {
    const std::string_view whole = path;
    const std::string_view first = next_component(path);
    if (first.empty()) return {location::root, {}};
    if (first != RUN) return {location::system, whole};
    const std::string_view second = next_component(path);
    if (second.empty()) return {location::run, {}};
    const bool processes = second == PROC;
    if (!processes && second != DEV) return {location::details, {second.data(), path.data() + path.size()}};
    const std::string_view name = next_component(path);
    if (!next_component(path).empty()) return {location::nowhere, {}};
    if (name.empty()) return {processes ? location::processes : location::devices, {}};
    return {processes ? location::process : location::device, name};
}

// The error word of a RESULT_ code: one that the code does not name is passed on.
uint32_t error_word_of(uint64_t result) {
    return result == RESULT_NO_OBJECT ? uint32_t{IOERROR_NOT_FOUND} : static_cast<uint32_t>(result);
}

class process_cursor : public registry_cursor {
public:
    explicit process_cursor(process_table &table) : listing_(table) {
        if (const int error = listing_.begin()) throw system_failure(PROCESS_DIRECTORY, error);
    }
    bool next(registry_entry &entry) override {
        const std::string *name = nullptr;
        const int id = listing_.next(name);
        if (id == 0) return false;
        entry.name.resize(TASK_KEY_SIZE);
        write_task_key(entry.name.data(), static_cast<uint64_t>(id));
        entry.type = REGTYPE_BIN;
        entry.length = name == nullptr ? 0 : static_cast<uint32_t>(name->size());  // reading it fails then
        return true;
    }

private:
    process_table::listing listing_;
};

// Over entries of one type: directories, or the integer keys of devices. Another directory's entries may follow.
class fixed_cursor : public registry_cursor {
public:
    fixed_cursor(std::vector<std::string> names, uint16_t type, uint32_t length,
                 std::unique_ptr<registry_cursor> others = nullptr)
        : names_(std::move(names)), type_(type), length_(length), others_(std::move(others)) {}
    bool next(registry_entry &entry) override {
        if (at_ == names_.size()) return others_ && others_->next(entry);
        entry = {names_[at_++], type_, length_};
        return true;
    }

private:
    std::vector<std::string> names_;
    uint16_t type_;
    uint32_t length_;
    std::unique_ptr<registry_cursor> others_;
    size_t at_ = 0;
};

}  // namespace

// A key's digits are exactly those that a listing shows.
uint32_t run_registry::process_name(std::string_view key, const std::string *&name) {
    const uint64_t handle = parse_task_key(key);
    std::array<char, TASK_KEY_SIZE> listed;
    write_task_key(listed.data(), handle);
    if (key != std::string_view(listed.data(), listed.size())) return IOERROR_NOT_FOUND;
    return error_word_of(processes_.name(handle, name));
}

std::unique_ptr<registry_cursor> run_registry::list(std::string_view path) {
    const location asked = locate(path);
    switch (asked.kind) {
    case location::root:
        return std::make_unique<fixed_cursor>(std::vector{std::string(RUN)}, REGTYPE_DIR, 0, system_.list({}));
    case location::run:
        return std::make_unique<fixed_cursor>(std::vector{std::string(PROC), std::string(DEV)}, REGTYPE_DIR, 0,
                                              details_.list({}));
    case location::processes: return std::make_unique<process_cursor>(processes_);
    case location::devices: {
        std::vector<std::string> names = devices_.names();
        names.insert(names.begin(), std::string(SYSVC_DEVICE));
        return std::make_unique<fixed_cursor>(std::move(names), REGTYPE_INT, sizeof(uint64_t));
    }
    case location::details: return details_.list(asked.name);
    case location::system: return system_.list(asked.name);
    default: return nullptr;
    }
}

uint32_t run_registry::describe(std::string_view path, uint16_t &type, uint32_t &length) {
    const location asked = locate(path);
    switch (asked.kind) {
    case location::process: {
        const std::string *name = nullptr;
        if (const uint32_t error = process_name(asked.name, name)) return error;
        type = REGTYPE_BIN;
        length = static_cast<uint32_t>(name->size());
        return 0;
    }
    case location::device:
        if (asked.name != SYSVC_DEVICE && !devices_.has(asked.name)) return IOERROR_NOT_FOUND;
        type = REGTYPE_INT;
        length = sizeof(uint64_t);
        return 0;
    case location::details: return details_.describe(asked.name, type, length);
    case location::system: return system_.describe(asked.name, type, length);
    case location::nowhere: return IOERROR_NOT_FOUND;
    default:
        type = REGTYPE_DIR;
        length = 0;
        return 0;
    }
}

uint32_t run_registry::read_int(std::string_view path, uint64_t &value) {
    const location asked = locate(path);
    if (asked.kind == location::details) return details_.read_int(asked.name, value);
    if (asked.kind == location::system) return system_.read_int(asked.name, value);
    if (asked.kind != location::device) return IOERROR_NOT_FOUND;
    const uint64_t port = owner_.device_port(asked.name);
    if (port == NO_OBJECT) return IOERROR_NOT_FOUND;
    value = port;
    return 0;
}

uint32_t run_registry::read_binary(std::string_view path, std::string &value) {
    const location asked = locate(path);
    if (asked.kind == location::details) return details_.read_binary(asked.name, value);
    if (asked.kind == location::system) return system_.read_binary(asked.name, value);
    const std::string *name = nullptr;
    if (asked.kind != location::process) return IOERROR_NOT_FOUND;
    if (const uint32_t error = process_name(asked.name, name)) return error;
    value = *name;
    return 0;
}

}  // namespace hosted::live
