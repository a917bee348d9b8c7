// hosted/live/process_table.h - the processes of the system as tasks: walks over them and their threads, the process
// that a handle names, the names they are published under, and what is done to them.
//
// A handle names a process only if it is the positive number of an existing one; nothing else ever reaches a call that
// acts. A number that this run handed out, by a walk or by the registry, is bound to the process that had it then. One
// that has the number later started later, or where the system's times do not show that has another name; it is not
// acted on before it is handed out itself. A process that this run has ended is gone, whatever its parent does.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "hosted/kernel/machine.h"
#include "hosted/live/process.h"
#include "hosted/live/thread.h"

namespace hosted::live {

class process_table {
public:
    // path: of the process file system
    explicit process_table(std::string path = "/proc");

    proc_root &root() { return root_; }

    // All results are RESULT_ codes.

    // ---- looking ------------------------------------------------------------------------------------------------

    // Walks take their list when they begin. The first process is on it even if the system hides it.
    std::unique_ptr<walk> walk_all(uint64_t &result);
    std::unique_ptr<walk> walk_threads(process &owner, uint64_t &result);  // owner: as find() returned it

    // The process or thread of a handle, valid until the next question: RESULT_SUCCESS, RESULT_NO_OBJECT,
    // RESULT_NOT_PERMITTED or a failure. One that a walk is on is that walk's, with all that was read of it.
    uint64_t find(uint64_t handle, process *&found);
    uint64_t find_thread(uint64_t handle, thread *&found);

    // The name that a process is published under, read once in a run.
    uint64_t name(uint64_t handle, const std::string *&name);

    // The processes that are published, one at a time.
    class listing;

    // ---- acting -------------------------------------------------------------------------------------------------

    // Kills a process and waits until it has ended, 2 seconds at most. Only agrees to the end of the calling process.
    uint64_t end(uint64_t handle);

    // Sends the signal of an exception, with its parameter as the signal's value.
    uint64_t raise(uint64_t handle, uint64_t exception, uint64_t parameter);

    // Sets the priority of every thread, on the scale of stat_record::task_priority(). The value that reads now changes
    // nothing.
    uint64_t set_priority(uint64_t handle, uint64_t priority);

private:
    friend class process_walk;
    friend class thread_walk;
    struct target;

    // A number that was handed out: when, in ticks since boot, and to a process of which name.
    struct binding {
        uint64_t ticks;
        size_t name_hash = 0;  // 0: by number alone
    };

    // ticks: from before the process was looked at, so that one that gets its number afterwards started later.
    void hand_out(process &candidate, uint64_t ticks);
    void hand_out_by_name(int id, const std::string *name, uint64_t ticks);
    bool was_ended(process &candidate);
    uint64_t listed_name(int id, const std::string *&name);
    uint64_t hold(uint64_t handle, target &held);
    bool sees_itself();
    uint64_t now_ticks() const;

    proc_root root_;
    std::vector<process *> walked_;  // those that walks are on
    std::vector<thread *> walked_threads_;
    process asked_;  // the last one named by handle
    thread asked_thread_;
    std::unordered_map<int, binding> handed_out_;
    std::unordered_map<int, uint64_t> ended_;  // start, in ticks since boot
    std::unordered_map<int, std::string> names_;
};

// The processes with a name that the caller may know, in the system's order.
class process_table::listing {
public:
    explicit listing(process_table &table) : table_(table) {}

    int begin();  // returns 0 or the error number

    // The next process that has a name; 0 at the end.
    //   name  out: null if it could not be read
    int next(const std::string *&name);

private:
    process_table &table_;
    std::vector<int> numbers_;
    size_t at_ = 0;
};

}  // namespace hosted::live
