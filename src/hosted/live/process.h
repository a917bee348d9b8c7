// hosted/live/process.h - one process of the system as a task.
//
// Items of a process that has gone read 0 and its state is deleted; what the caller may not look at falls back to 0.
// What cannot be read for any other reason fails the item.
#pragma once

#include <cstdint>
#include <string>

#include "hosted/live/proc_object.h"

namespace hosted::live {

// The system's first process. It exists wherever there is one, also where the caller may not see it.
inline constexpr int FIRST_PROCESS = 1;

// The longest name that the system stores of a command; one of that length may have been cut.
inline constexpr size_t COMMAND_NAME_LENGTH = 15;

struct page_counts {
    uint64_t resident = 0;
    uint64_t reserved = 0;  // data and stack
};

class process : public proc_object {
public:
    using proc_object::proc_object;

    // Opens the process of a number; false where there is none. A thread's number opens as well (see is_process).
    bool open(int id);

    // Whether the open number is a process's own: RESULT_SUCCESS, RESULT_NO_OBJECT for the number of a further thread,
    // RESULT_NOT_PERMITTED where the caller may not look, or a failure. A number from a list of all processes is one.
    uint64_t is_process();
    void assume_process() { is_process_ = outcome::done; }

    uint64_t item(uint64_t item, uint64_t &value);  // RESULT_ codes

    // Reads the name under which it is published: RESULT_SUCCESS, RESULT_NO_OBJECT where it has none that the caller
    // may know, or a failure.
    uint64_t name(std::string &out);

    // Reads the start of its life, in ticks since boot; false where there is none to read.
    bool start(uint64_t &ticks);

    // Its effective user and group; false where they are not known.
    bool owner(uint32_t &user, uint32_t &group) const {
        user = user_;
        group = group_;
        return owner_known_;
    }

    // Lists its threads. tasks: out, the open directory of theirs. Returns 0 or the error number.
    int list_threads(std::vector<int> &numbers, descriptor &tasks);

    // Whether its stat, read before, says that it has one thread: the one of its own number.
    bool is_known_single() const { return stat_if_read() != nullptr && stat_if_read()->threads <= 1; }

    // What has been read of the process and is true of its only thread too; null where nothing is. The process's times
    // include those of threads that have ended, so they are the thread's only where they are 0.
    const stat_record *stat_of_thread() const {
        const stat_record *const known = stat_if_read();
        return known != nullptr && known->user_ticks + known->system_ticks == 0 ? known : nullptr;
    }
    const switch_counts *switches_of_thread() const { return switches_read_ == outcome::done ? &switches_ : nullptr; }

    // The directory whose files describe its memory, arguments and executable. They go with a thread: where the main
    // thread has ended and others run on, the directory is one of theirs.
    //   result  out: RESULT_SUCCESS, RESULT_NOT_PERMITTED or a failure; -1 is returned unless it is RESULT_SUCCESS
    int memory_directory(uint64_t &result);

private:
    int memory_directory();
    uint64_t flags();
    uint64_t state();
    uint64_t virtual_bytes();
    uint64_t memos();
    const page_counts &pages();
    uint64_t system_calls();
    const switch_counts &switches();
    uint64_t ids();

    uint32_t user_ = 0, group_ = 0;  // effective ids
    bool owner_known_ = false;
    outcome is_process_ = outcome::unread, pages_read_ = outcome::unread, calls_read_ = outcome::unread;
    outcome memos_read_ = outcome::unread, switches_read_ = outcome::unread, survivor_read_ = outcome::unread;
    page_counts pages_;
    uint64_t calls_ = 0;
    uint64_t memos_ = 0;
    switch_counts switches_;
    descriptor survivor_;  // directory of a thread that runs on; none unless the main thread has ended
    uint64_t survivor_virtual_bytes_ = 0;
};

}  // namespace hosted::live
