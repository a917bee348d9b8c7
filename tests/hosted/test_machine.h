// tests/hosted/test_machine.h - a kernel in this process, on a virtual clock that starts at 1000, whose devices and
// registry the test supplies.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "hosted/kernel/run.h"
#include "hosted/servers/protocols.h"
#include "platform/protocol/registry.h"
#include "platform/registry.h"
#include "platform/sysvc.h"

// Integer keys by their path, the ports of the devices, and one value for every binary key.
class number_registry : public hosted::registry_store {
public:
    std::map<std::string, uint64_t, std::less<>> keys;
    hosted::kernel *kernel = nullptr;

    hosted::registry_limits limits() const override { return {}; }
    hosted::registry_cursor list(std::string_view) override { return nullptr; }
    uint32_t describe(std::string_view, uint16_t &, uint32_t &) override { return IOERROR_NOT_FOUND; }
    uint32_t read_int(std::string_view path, uint64_t &value) override {
        const auto found = keys.find(path);
        value = NO_OBJECT;
        if (found != keys.end()) value = found->second;
        if (path.starts_with(DEVICE_DIRECTORY)) value = kernel->device_port(path.substr(sizeof DEVICE_DIRECTORY - 1));
        return value == NO_OBJECT ? uint32_t{IOERROR_NOT_FOUND} : 0;
    }
    uint32_t read_binary(std::string_view, std::string &value) override { return value = "value", 0; }
    uint32_t write_binary(std::string_view, std::string_view) override { return 0; }
    uint32_t create_temporary(std::string_view) override { return 0; }
    uint32_t create_guard(std::string_view, uint64_t, uint64_t) override { return 0; }
};

// A device's server with a protocol on it, and a buffer of some size for each of its clients.
inline std::unique_ptr<hosted::server> make_server(hosted::kernel &owner,
                                                   std::unique_ptr<hosted::device_protocol> protocol,
                                                   uint64_t buffer = 0,
                                                   const hosted::device_behaviour &behaviour = {}) {
    auto made = std::make_unique<hosted::device_server>(owner, behaviour);
    made->make_context(buffer);
    made->add(std::move(protocol));
    return made;
}

class test_machine : public hosted::machine, hosted::server_source, hosted::terminal_source {
public:
    using maker = std::function<std::unique_ptr<hosted::server>(hosted::kernel &)>;
    static constexpr uint64_t TASK = 0x10, THREAD = 0x11, FIRST = 0x20;

    std::map<std::string, maker, std::less<>> makers;  // of the devices' servers, by name
    maker registry_maker;                              // none: a healthy registry over store
    number_registry store;
    std::map<std::pair<uint64_t, uint64_t>, uint64_t> infos;  // by handle and item
    std::map<uint64_t, uint64_t> states;                      // by item
    std::vector<uint64_t> destroyed;                          // asked to end; nothing ever does

    void attach(hosted::kernel &owner) override { store.kernel = &owner; }
    hosted::machine_start start() override {
        return {.task = TASK, .first_handle = FIRST, .virtual_tick = 1000, .call_budget = {}, .traces_calls = false};
    }
    uint64_t thread(bool first) override { return first ? THREAD : 0; }
    bool knows(uint64_t handle) override { return handle == TASK || handle == THREAD; }
    bool reserves(uint64_t) override { return false; }
    bool state(uint64_t item, uint64_t &value) override {
        const auto known = states.find(item);
        if (known != states.end()) value = known->second;
        return known != states.end();
    }
    uint64_t system_data(uint64_t, uint64_t, uint64_t &) override { return RESULT_NO_ITEM; }
    uint64_t object_info(uint64_t handle, uint64_t item, uint64_t &value) override {
        const auto found = infos.find({handle, item});
        if (found == infos.end()) return RESULT_NO_ITEM;
        value = found->second;
        return RESULT_SUCCESS;
    }
    uint64_t begin(uint64_t, uint64_t, std::unique_ptr<hosted::walk> &) override { return RESULT_BAD_ARGUMENT; }
    uint64_t set_property(uint64_t, uint64_t, uint64_t) override { return RESULT_NOT_PERMITTED; }
    uint64_t fetch_register(uint64_t, uint64_t, uint64_t, uint64_t &) override { return RESULT_NO_ITEM; }
    uint64_t raise(uint64_t, uint64_t, uint64_t) override { return RESULT_NOT_PERMITTED; }
    uint64_t destroy(uint64_t handle) override { return destroyed.push_back(handle), RESULT_NOT_PERMITTED; }
    void exit_notice(uint64_t, uint64_t) override {}
    hosted::server_source &servers() override { return *this; }
    std::unique_ptr<hosted::server> make_registry(hosted::kernel &owner) override {
        if (registry_maker) return registry_maker(owner);
        return make_server(owner, hosted::make_registry_protocol(store), store.limits().buffer);
    }
    std::unique_ptr<hosted::server> make_device(hosted::kernel &owner, std::string_view name) override {
        const auto found = makers.find(name);
        return found == makers.end() ? nullptr : found->second(owner);
    }
    hosted::terminal_source &terminals() override { return *this; }
    int open_terminal(const char *, int) override { return -1; }
    int control_terminal(int, unsigned long, char *) override { return -1; }
    void close_terminal(int) override {}
    bool save(std::string &) override { return true; }
};

// A protocol that performs a function of the test.
class performed_protocol : public hosted::device_protocol {
public:
    using performer = std::function<std::optional<uint32_t>(uint32_t command, const hosted::request_view &request)>;
    explicit performed_protocol(performer perform) : perform_(std::move(perform)) {}
    std::optional<uint32_t> perform(uint32_t command, const hosted::request_view &request) override {
        return perform_(command, request);
    }

private:
    performer perform_;
};

inline test_machine::maker performing_server(performed_protocol::performer perform, uint64_t buffer = 256,
                                             hosted::device_behaviour behaviour = {}) {
    return [=](hosted::kernel &owner) {
        return make_server(owner, std::make_unique<performed_protocol>(perform), buffer, behaviour);
    };
}

// The running kernel on a test machine, to the end of the scope.
class test_kernel {
public:
    explicit test_kernel(const std::function<void(test_machine &)> &set_up = {}, hosted::fault_list faults = {}) {
        auto made = std::make_unique<test_machine>();
        machine_ = made.get();
        if (set_up) set_up(*made);
        hosted::install(std::move(made), std::move(faults));
    }
    ~test_kernel() {
        g_registry_device = g_sysvc_device = nullptr;
        hosted::shut_down();
    }
    test_kernel(const test_kernel &) = delete;
    test_kernel &operator=(const test_kernel &) = delete;

    test_machine *operator->() { return machine_; }
    hosted::kernel &kernel() { return hosted::running(); }

    // All handles of an object. A leak shows as a difference.
    std::set<uint64_t> handles() {
        const uint64_t block = kernel().memory().allocate(1);
        _SL_GetAddressMemo(0, block, ADDRESS_MEMO_ANY);  // makes the arena's memo, if it was not there yet
        kernel().memory().release(block);
        std::set<uint64_t> found;
        for (uint64_t end = kernel().new_handle(), handle = test_machine::FIRST, master; handle < end; ++handle) {
            if (_SL_GetObjectInfo(handle, OBJINFO_HANDLE, &master) == RESULT_SUCCESS) found.insert(handle);
        }
        return found;
    }

private:
    test_machine *machine_;
};

// A list of one fault, for sends of one code where a code is given.
inline hosted::fault_list fault(hosted::call which, uint64_t result, uint64_t nth = 1, uint64_t times = 1,
                                std::optional<uint32_t> code = {}) {
    hosted::fault_list list;
    list.add({.which = which, .code = code, .nth = nth, .times = times, .result = result});
    return list;
}
inline hosted::fault_list send_fault(uint32_t code, uint64_t result, uint64_t nth = 1, uint64_t times = 1) {
    return fault(hosted::call::send_msg, result, nth, times, code);
}
