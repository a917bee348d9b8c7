// hosted/live/thread.h - one thread of a process.
//
// Items of a thread that has gone read 0 and its state is nowhere; what the caller may not look at falls back to 0.
// What cannot be read for any other reason fails the item.
#pragma once

#include <cstdint>
#include <string_view>

#include "hosted/live/proc_object.h"

namespace hosted::live {

// The system call that a thread is blocked in, from its "syscall" file: zeros while it runs.
struct blocked_call {
    bool blocked = false;            // in a system call, or stopped
    uint64_t number = ~uint64_t{0};  // of the system call
    uint64_t arguments[6] = {};
    uint64_t stack_pointer = 0;
    uint64_t program_counter = 0;
};
blocked_call parse_blocked_call(std::string_view text);

class thread : public proc_object {
public:
    using proc_object::proc_object;

    // Opens a thread of a process; false where there is none.
    //   tasks  the process's open "task" directory
    //   owner  the process's number
    bool open(int tasks, int id, int owner);

    // Opens the thread of a process's own number.
    //   process  the process's open directory
    bool open_only(int process, int id);

    // Takes what has been read for the open thread; null: nothing.
    void assume(const stat_record *stat, const switch_counts *switches) {
        if (stat != nullptr) assume_stat(*stat);
        if (switches == nullptr) return;
        switches_ = *switches;
        switches_read_ = outcome::done;
    }

    // Opens a thread by its number alone.
    bool open(int id);

    uint64_t item(uint64_t item, uint64_t &value);  // RESULT_ codes

private:
    int owner();
    const blocked_call &call();
    const switch_counts &switches();
    uint64_t state();
    uint64_t waited_address();

    int owner_ = 0;
    outcome owner_read_ = outcome::unread, call_read_ = outcome::unread, switches_read_ = outcome::unread;
    blocked_call call_;
    switch_counts switches_;
};

}  // namespace hosted::live
