// live/processes.h - the processes of the system as tasks: walks over them and their threads, the process that a handle
// names, the names they are published under, and what is done to them.
//
// A handle names a process only if it is the positive number of an existing one; nothing else ever reaches a call that
// acts. A number that this run gave out, by a walk or by the registry, stays with the process that had it then: one
// that has it later started later, and is not acted on. A process that this run has ended is gone, whatever its parent
// does.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "hosted/kernel/machine.h"
#include "hosted/live/process.h"

namespace hosted::live {

class process_table {
public:
    // path: of the process file system
    explicit process_table(std::string path = "/proc");

    proc_root &root() { return root_; }

    // ---- looking ------------------------------------------------------------------------------------------------

    std::unique_ptr<walk> walk_all();  // null where the system does not tell who is there

    // Over the threads of a process that find() gave.
    std::unique_ptr<walk> walk_threads(process &owner, uint64_t &result);

    // The process or thread of a handle, valid until the next question: RESULT_SUCCESS, RESULT_NO_OBJECT or
    // RESULT_NOT_PERMITTED. One that a walk stands on is that walk's, with all that was read of it.
    uint64_t find(uint64_t handle, process *&found);
    uint64_t find_thread(uint64_t handle, thread *&found);

    // The name that a process is published under, read once in a run. RESULT_ codes.
    uint64_t name(uint64_t handle, const std::string *&name);

    // The processes that are published, one at a time.
    class listing;

    // ---- acting: RESULT_ codes ----------------------------------------------------------------------------------

    // Kills a process and waits until it has ended, 2 seconds at most. The calling process is only told that it may.
    uint64_t end(uint64_t handle);

    // Sends the signal of an exception, with its parameter as the signal's value.
    uint64_t raise(uint64_t handle, uint64_t exception, uint64_t parameter);

    // Sets the priority of every thread, on the scale that stat_record::task_priority() reads.
    uint64_t set_priority(uint64_t handle, uint64_t priority);

private:
    friend class process_walk;
    friend class thread_walk;
    struct target;

    void hand_out(int id);
    bool was_ended(process &candidate);
    const std::string *listed_name(int id);  // null: it has none that the caller may know
    uint64_t hold(uint64_t handle, target &held);
    bool sees_itself();
    uint64_t now_ticks() const;

    proc_root root_;
    std::vector<process *> stood_on_;  // by the walks that are under way
    std::vector<thread *> threads_stood_on_;
    process asked_;  // the last one named by handle
    thread asked_thread_;
    std::unordered_map<int, uint64_t> handed_out_;  // when first, in ticks since boot
    std::unordered_map<int, uint64_t> ended_;       // start, in ticks since boot
    std::unordered_map<int, std::string> names_;
};

// The processes with a name that the caller may know, the system's order.
class process_table::listing {
public:
    explicit listing(process_table &table);

    // The next process that has a name; 0 at the end.
    int next(const std::string *&name);

private:
    process_table &table_;
    number_scan scan_;
};

}  // namespace hosted::live
