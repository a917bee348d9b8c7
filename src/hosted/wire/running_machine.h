// hosted/wire/running_machine.h - a described machine with the tasks that have attached to it.
//
// The described objects stay data and are the inner machine's. The attached tasks come after them in a walk; their
// figures are those of their processes. Every method is called with the kernel's lock held.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "hosted/descriptors.h"
#include "hosted/kernel/faults.h"
#include "hosted/kernel/machine.h"
#include "hosted/kernel/server.h"
#include "hosted/live/process.h"
#include "hosted/live/thread.h"

namespace hosted::wire {

// A process that has attached.
struct guest_task {
    uint64_t handle = 0;
    int process = 0;
    descriptor lifetime;              // its process descriptor: the only way to kill it
    std::map<uint64_t, int> threads;  // its attached threads: handle -> number on this system
    std::vector<int> terminals;       // open descriptors of the machine's
    std::optional<uint64_t> slice;    // of the shared memory, which it serves in
    fault_list faults;                // each task has its own count of them
    uint64_t calls_left = 0;
    bool limited = false;  // it has faults, or a budget of calls
    bool killed = false;   // no longer shown: only its process has to end
    std::atomic<bool> ended = false;
};

class running_machine final : public machine, private server_source {
public:
    static constexpr size_t MOST_THREADS = 256;

    // faults  of the machine's file, for every task anew
    // memory  the descriptor of the shared memory, which must outlive this object
    running_machine(std::unique_ptr<machine> inner, const fault_list &faults, int memory);

    // ---- tasks --------------------------------------------------------------------------------------------------

    // Makes a process a task, and publishes it under a name. An earlier program of that process has ended.
    //   lifetime  its process descriptor
    std::shared_ptr<guest_task> attach_process(int process, descriptor lifetime, const std::string &name);

    // The task of a process; null where it has not attached.
    std::shared_ptr<guest_task> find_process(int process) const;

    // Adds a thread of a task, by its number on this system; 0 where it has as many as it may have.
    uint64_t add_thread(guest_task &of, int number);

    void remove_thread(guest_task &of, uint64_t handle);

    // Ends a task and all that is its. May be repeated while threads of it are still inside a call.
    void end_task(guest_task &gone);

    // Returns the address of a task's slice of the shared memory; nothing where all are taken.
    std::optional<uint64_t> take_slice(guest_task &of);

    size_t task_count() const { return tasks_.size(); }

    // ---- as the kernel asks -------------------------------------------------------------------------------------

    machine_start start() override;
    void attach(kernel &owner) override;
    uint64_t thread(bool) override { return 0; }
    bool knows(uint64_t handle) override;
    bool reserves(uint64_t handle) override { return inner_->reserves(handle); }
    bool state(uint64_t item, uint64_t &value) override { return inner_->state(item, value); }
    uint64_t system_data(uint64_t group, uint64_t index, uint64_t &value) override {
        return inner_->system_data(group, index, value);
    }
    uint64_t object_info(uint64_t handle, uint64_t item, uint64_t &value) override;
    uint64_t begin(uint64_t parent, uint64_t kind, std::unique_ptr<walk> &out) override;
    uint64_t set_property(uint64_t task, uint64_t property, uint64_t value) override;
    uint64_t fetch_register(uint64_t thread, uint64_t id, uint64_t node, uint64_t &value) override {
        return inner_->fetch_register(thread, id, node, value);
    }
    uint64_t raise(uint64_t task, uint64_t exception, uint64_t parameter) override;
    uint64_t destroy(uint64_t handle) override;
    void exit_notice(uint64_t master, uint64_t word) override { inner_->exit_notice(master, word); }
    std::optional<uint64_t> process_id(uint32_t command, uint64_t key) override;
    bool shares(uint64_t address) override;
    server_source &servers() override { return *this; }
    terminal_source &terminals() override { return inner_->terminals(); }
    bool save(std::string &message) override { return inner_->save(message); }

private:
    class task_walk;
    class thread_walk;
    enum class slice_state : uint8_t { free, taken, kept };
    struct slice {
        slice_state state = slice_state::free;
        std::set<uint64_t> readers;  // the tasks that may still use a kept one
    };

    std::unique_ptr<server> make_registry(kernel &owner) override { return inner_->servers().make_registry(owner); }
    std::unique_ptr<server> make_device(kernel &owner, std::string_view name) override {
        return inner_->servers().make_device(owner, name);
    }

    bool clear_slice(size_t index) const;
    guest_task *find(uint64_t handle) const;         // null: no attached task
    guest_task *find_thread(uint64_t handle) const;  // its task
    uint64_t read(const guest_task &of, live::process &from, uint64_t item, uint64_t &value);
    uint64_t read(uint64_t handle, const guest_task &of, live::thread &from, uint64_t item, uint64_t &value);

    const std::unique_ptr<machine> inner_;
    const fault_list faults_;
    machine_start inner_start_;
    bool super_ = false;  // what the file says of the task that runs a command
    kernel *kernel_ = nullptr;
    live::proc_root processes_{"/proc"};
    std::map<uint64_t, std::shared_ptr<guest_task>> tasks_;  // by handle, which is in the order of attaching
    std::map<uint64_t, uint64_t> threads_;                   // their threads: handle -> task
    std::vector<slice> slices_;
    const int memory_;
};

// The task that the calling thread makes kernel calls for. Its deletion of itself is left to its process.
extern thread_local uint64_t served_task;

}  // namespace hosted::wire
