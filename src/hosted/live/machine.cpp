// hosted/live/machine.cpp - the live machine: the Linux system that the program runs on, as the objects of the kernel
// calls.
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/user.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "hosted/boot.h"
#include "hosted/kernel/kernel.h"
#include "hosted/live/devices.h"
#include "hosted/live/drivers.h"
#include "hosted/live/handles.h"
#include "hosted/live/interrupts.h"
#include "hosted/live/isrs.h"
#include "hosted/live/maps.h"
#include "hosted/live/memory.h"
#include "hosted/live/mounts.h"
#include "hosted/live/process_details.h"
#include "hosted/live/process_table.h"
#include "hosted/live/register_table.h"
#include "hosted/live/run_registry.h"
#include "hosted/live/sockets.h"
#include "hosted/live/system_registry.h"
#include "hosted/live/terminals.h"
#include "hosted/live/thread_registers.h"
#include "hosted/live/totals.h"
#include "hosted/servers/device_server.h"
#include "hosted/servers/protocols.h"
#include "platform/protocol/registry.h"
#include "platform/protocol/sysvc.h"

namespace hosted {

namespace live {

namespace {

// The system service: ids from the processes, drivers from the system.
class id_source : public process_source {
public:
    id_source(process_table &processes, driver_table &drivers) : processes_(processes), drivers_(drivers) {}

    // A process's handle is its id, so that either names it.
    uint32_t id(uint32_t command, uint64_t key, uint64_t &value) override {
        process *asked = nullptr;
        if (processes_.find(key, asked) != RESULT_SUCCESS) return SYSVCERR_NO_PROCESS;
        if (command == SYSVCCMD_GET_PID) {
            value = key;
            return 0;
        }
        const stat_record *record = asked->stat();
        if (record == nullptr) return asked->has_gone() ? SYSVCERR_NO_PROCESS : SYSVCERR_NOT_PERMITTED;
        switch (command) {
        case SYSVCCMD_GET_PPID: value = record->parent; return 0;
        case SYSVCCMD_GET_PGID: value = record->group; return 0;
        default: value = record->session; return 0;
        }
    }

    const driver_map &drivers() override { return drivers_.drivers(); }

private:
    process_table &processes_;
    driver_table &drivers_;
};

class live_machine : public machine, private server_source, private terminal_source {
public:
    explicit live_machine(bool own_amounts) : memory_(roots_, own_amounts) {}

    machine_start start() override {
        return {.task = static_cast<uint64_t>(processes_.root().self),
                .first_handle = KERNEL_HANDLES.first,
                .virtual_tick = {},
                .call_budget = {},
                .traces_calls = true};
    }
    void attach(kernel &) override {}

    uint64_t thread(bool) override { return THREAD_HANDLES.first + static_cast<uint64_t>(gettid()); }
    bool knows(uint64_t handle) override;
    bool reserves(uint64_t handle) override { return !KERNEL_HANDLES.contains(handle); }

    bool state(uint64_t item, uint64_t &value) override { return totals_.state(item, value); }
    uint64_t system_data(uint64_t group, uint64_t index, uint64_t &value) override {
        return cpu_register_data(group, index, value);
    }

    uint64_t object_info(uint64_t handle, uint64_t item, uint64_t &value) override;
    uint64_t begin(uint64_t parent, uint64_t kind, std::unique_ptr<walk> &out) override;
    uint64_t set_property(uint64_t task, uint64_t property, uint64_t value) override {
        process *named = nullptr;
        if (property == TASKPROP_PRIORITY) return processes_.set_priority(task, value);
        return processes_.find(task, named) == RESULT_NO_OBJECT ? RESULT_NO_OBJECT : RESULT_BAD_ARGUMENT;
    }
    uint64_t fetch_register(uint64_t thread, uint64_t id, uint64_t node, uint64_t &value) override;
    uint64_t raise(uint64_t task, uint64_t exception, uint64_t parameter) override {
        return processes_.raise(task, exception, parameter);
    }
    uint64_t destroy(uint64_t handle) override;
    void exit_notice(uint64_t, uint64_t) override {}  // the system notifies a process's parent itself
    void withhold_secrets() override { roots_.readers = S_IROTH; }

    server_source &servers() override { return *this; }
    std::unique_ptr<server> make_registry(kernel &owner) override;
    std::unique_ptr<server> make_device(kernel &owner, std::string_view name) override;

    terminal_source &terminals() override { return *this; }
    int open_terminal(const char *path, int flags) override { return live::open_terminal(path, flags); }
    int control_terminal(int descriptor, unsigned long request, char *buffer) override {
        return live::control_terminal(descriptor, request, buffer);
    }
    void close_terminal(int descriptor) override { live::close_terminal(descriptor); }

    bool save(std::string &) override { return true; }

private:
    // The registers of the thread that was asked for last, all from one stop.
    struct stopped {
        uint64_t handle;
        uint64_t result;
        register_block block;
    };

    file_roots roots_;
    process_table processes_{roots_.proc};
    map_table maps_{processes_.root()};
    live::memory_map memory_;
    interrupt_table interrupts_{roots_};
    isr_table isrs_{processes_.root(), interrupts_};
    totals totals_{roots_, memory_, interrupts_};
    driver_table drivers_{roots_};
    device_table devices_{roots_};
    id_source ids_{processes_, drivers_};
    socket_table sockets_{processes_.root(), socket_table::local_source::diagnosis};
    std::unique_ptr<registry_tree> registry_;
    std::optional<stopped> stopped_;
};

bool live_machine::knows(uint64_t handle) {
    process *named = nullptr;
    live::thread *named_thread = nullptr;
    return processes_.find(handle, named) != RESULT_NO_OBJECT ||
           processes_.find_thread(handle, named_thread) != RESULT_NO_OBJECT || maps_.knows(handle) ||
           memory_.knows(handle) || isrs_.find(handle) != nullptr;
}

uint64_t live_machine::object_info(uint64_t handle, uint64_t item, uint64_t &value) {
    process *named = nullptr;
    live::thread *named_thread = nullptr;
    uint64_t result = processes_.find(handle, named);
    if (result == RESULT_SUCCESS) return named->item(item, value);
    if (result != RESULT_NO_OBJECT) return result;
    result = processes_.find_thread(handle, named_thread);
    if (result == RESULT_SUCCESS) return named_thread->item(item, value);
    if (result != RESULT_NO_OBJECT) return result;
    if (maps_.knows(handle)) return maps_.info(handle, item, value);
    if (memory_.knows(handle)) return memory_.info(handle, item, value);
    if (const isr *routine = isrs_.find(handle)) return routine->item(item, value);
    return RESULT_NO_OBJECT;
}

uint64_t live_machine::begin(uint64_t parent, uint64_t kind, std::unique_ptr<walk> &out) {
    uint64_t result = RESULT_SUCCESS;
    const bool of_process =
        kind == ITERSEL_THREADS || kind == ITERSEL_MEMOS || kind == ITERSEL_VIEWS || kind == ITERSEL_ISRS;
    process *owner = nullptr;
    if (of_process) result = processes_.find(parent, owner);
    if (!of_process && kind != ITERSEL_TASKS && kind != ITERSEL_MEMCHUNKS && kind != ITERSEL_VSPACES)
        return RESULT_BAD_ARGUMENT;
    if (!of_process && parent != SYSTEM_WIDE) result = RESULT_NO_OBJECT;
    if (result != RESULT_SUCCESS) return result;
    std::unique_ptr<walk> made;
    switch (kind) {
    case ITERSEL_TASKS: made = processes_.walk_all(result); break;
    case ITERSEL_MEMCHUNKS: made = memory_.walk_chunks(); break;
    case ITERSEL_VSPACES: made = memory_.walk_spaces(); break;
    case ITERSEL_THREADS:
        stopped_.reset();
        made = processes_.walk_threads(*owner, result);
        break;
    case ITERSEL_MEMOS: made = maps_.walk_memos(*owner, result); break;
    case ITERSEL_VIEWS: made = maps_.walk_views(*owner, result); break;
    default: made = isrs_.walk_owned(owner->number(), result); break;
    }
    if (result == RESULT_SUCCESS) out = std::move(made);
    return result;
}

// A thread has node 0 only: exceptions do not nest here.
uint64_t live_machine::fetch_register(uint64_t thread, uint64_t id, uint64_t node, uint64_t &value) {
    if (!stopped_ || stopped_->handle != thread) {
        live::thread *named = nullptr;
        if (const uint64_t result = processes_.find_thread(thread, named); result != RESULT_SUCCESS) return result;
        stopped &asked = stopped_.emplace();
        asked.handle = thread;
        asked.result = read_registers(named->number(), asked.block);
        if (!named->exists()) asked.result = RESULT_NO_OBJECT;  // then it may have been another of its number
    }
    if (stopped_->result != RESULT_SUCCESS) return stopped_->result;
    const cpu_register *asked = find_cpu_register(id);
    const register_block &block = stopped_->block;
    if (node != 0 || asked == nullptr) return RESULT_NO_ITEM;
    if (block.size != sizeof(user_regs_struct)) return RESULT_NO_ITEM;  // of a program for another processor
    const std::span<const std::byte> set(block.bytes.data(), block.size);
    return cpu_register_value(*asked, set, value) ? RESULT_SUCCESS : RESULT_NO_ITEM;
}

// Processes can be ended. Everything else goes with its process, or with the machine.
uint64_t live_machine::destroy(uint64_t handle) {
    const uint64_t result = processes_.end(handle);
    return result == RESULT_NO_OBJECT && knows(handle) ? uint64_t{RESULT_NOT_PERMITTED} : result;
}

std::unique_ptr<server> live_machine::make_registry(kernel &owner) {
    auto run = make_run_directory(owner, processes_, devices_);
    run->add("info", make_process_directory(processes_.root(), sockets_));
    run->add("mount", make_mount_directory(roots_));
    run->add("socket", make_socket_directory(sockets_));
    auto root = std::make_unique<whole_directory>(make_system_directory(roots_));
    root->add(reg_component(PROCESS_DIRECTORY, 0), std::move(run));
    registry_ = std::make_unique<registry_tree>(std::move(root));
    auto made = std::make_unique<device_server>(owner, device_behaviour{});
    made->make_context(registry_->limits().buffer);
    made->add(make_registry_protocol(*registry_));
    return made;
}

std::unique_ptr<server> live_machine::make_device(kernel &owner, std::string_view name) {
    if (name != SYSVC_DEVICE) return devices_.make(owner, name);
    auto made = std::make_unique<device_server>(owner, device_behaviour{});
    made->make_context(SYSTEM_SERVICE_BUFFER);
    made->add(make_system_service_protocol(ids_));
    return made;
}

}  // namespace

}  // namespace live

// What the machine has open at once, at most: the process file system, a process that is listed or held to be acted on,
// its threads' directory, one of its threads and a file of that; another process beside it where two are looked at; and
// the call log.
constexpr size_t DESCRIPTORS_NEEDED = 7;

// Without its process file system nothing is known of a system, and every figure would read 0. Mounted for processes
// alone, it has none of its files about the system. The file of the memory's amounts is asked for first, so that one
// call is enough; where something else is mounted over it, another file that every kernel has and the directory decide.
std::unique_ptr<machine> make_live_machine(std::string &message) {
    if (!live::can_open(DESCRIPTORS_NEEDED)) {
        message = "live: fewer than " + std::to_string(DESCRIPTORS_NEEDED) + " file descriptors are left";
        return nullptr;
    }
    const live::file_roots roots;
    if (live::memory_map::is_of_kernel(roots)) return std::make_unique<live::live_machine>(true);
    struct statfs mounted {};
    if (statfs(roots.proc.c_str(), &mounted) != 0) {
        message = roots.proc + ": " + std::strerror(errno);
    } else if (mounted.f_type != PROC_SUPER_MAGIC) {
        message = roots.proc + ": not the process file system";
    } else if (access((roots.proc + "/version").c_str(), F_OK) != 0) {
        message = roots.proc + ": mounted without the files about the system (subset=pid)";
    } else {
        return std::make_unique<live::live_machine>(false);
    }
    return nullptr;
}

}  // namespace hosted
